#!/bin/bash
# Runs Apache httpd with mod_dav; dav_server.sh tells how. Started by root, it serves as www-data,
# who must be able to come to DIR.
set -euo pipefail

# shellcheck source=tests/interop/dav_server.sh
source "$(dirname "${BASH_SOURCE[0]}")/dav_server.sh"

configure()
{
    local module access='Require all granted' user=
    if [[ -e $dir/passwords ]]; then
        access="AuthType Basic
    AuthName files
    AuthUserFile $dir/passwords
    Require valid-user"
    fi
    mkdir -p "$dir/locks"
    if ((EUID == 0)); then
        user='User www-data
Group www-data'
        chown www-data: "$dir/files" "$dir/locks"
    fi
    {
        for module in mpm_event authn_core authn_file authz_core authz_user auth_basic dav dav_fs dir ssl; do
            echo "LoadModule ${module}_module /usr/lib/apache2/modules/mod_$module.so"
        done
        cat <<CONFIGURATION
$user
ServerName localhost
ServerRoot $dir
PidFile $dir/httpd.pid
DefaultRuntimeDir $dir
ErrorLog $dir/error.log
CustomLog $dir/access.log "%t \"%r\" %>s %b"
Listen 127.0.0.1:$port
Listen 127.0.0.1:$tls_port
DocumentRoot $dir/files
DavLockDB $dir/locks/db
LimitRequestBody 0
KeepAlive On
<Directory $dir/files>
    Dav On
    DirectoryIndex disabled
    Options None
    AllowOverride None
    $access
</Directory>
<VirtualHost 127.0.0.1:$tls_port>
    SSLEngine On
    SSLCertificateFile $dir/certificate.pem
    SSLCertificateKeyFile $dir/key.pem
</VirtualHost>
CONFIGURATION
    } >"$dir/httpd.conf"
    command=(apache2 -f "$dir/httpd.conf" -DFOREGROUND)
}

serve "$@"
