#!/bin/bash
# Runs nginx with its WebDAV modules; dav_server.sh tells how.
set -euo pipefail

# shellcheck source=tests/interop/dav_server.sh
source "$(dirname "${BASH_SOURCE[0]}")/dav_server.sh"

# nginx asks for a password if it is told to, whether there is a file of them or not.
configure()
{
    local realm=off user=
    [[ ! -e $dir/passwords ]] || realm=files
    # Its workers would be another user, who may not come to the files.
    ((EUID != 0)) || user='user root;'
    cat >"$dir/nginx.conf" <<CONFIGURATION
load_module /usr/lib/nginx/modules/ngx_http_dav_ext_module.so;
$user
daemon off;
pid $dir/nginx.pid;
error_log $dir/error.log;
events { }
http {
    access_log $dir/access.log;
    client_body_temp_path $dir/bodies;
    proxy_temp_path $dir/proxy;
    fastcgi_temp_path $dir/fastcgi;
    uwsgi_temp_path $dir/uwsgi;
    scgi_temp_path $dir/scgi;
    server {
        listen 127.0.0.1:$port;
        listen 127.0.0.1:$tls_port ssl;
        ssl_certificate $dir/certificate.pem;
        ssl_certificate_key $dir/key.pem;
        root $dir/files;
        client_max_body_size 0;
        dav_methods PUT DELETE MKCOL COPY MOVE;
        dav_ext_methods PROPFIND OPTIONS;
        create_full_put_path on;
        autoindex on;
        autoindex_format json;
        auth_basic $realm;
        auth_basic_user_file $dir/passwords;
    }
}
CONFIGURATION
    command=(nginx -c "$dir/nginx.conf" -e "$dir/error.log")
}

serve "$@"
