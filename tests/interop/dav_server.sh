# shellcheck shell=bash
#
# Sourced by the scripts beside this one, each of which runs a WebDAV server that others wrote.
#
# usage: SCRIPT DIR
#
# Serves DIR/files on two free ports of 127.0.0.1, until standard input ends. When the server is
# ready, the first line of the output is
#     http://127.0.0.1:PORT https://127.0.0.1:PORT
# Everything else of the server is in DIR too: its configuration, what it logs, and the certificate
# that it shows, DIR/certificate.pem, which it signed itself for localhost and 127.0.0.1.
#
# In the environment, DAV_USER and DAV_PASSWORD make it ask for these (Basic authentication).

# The script's own part: writes the configuration of a server that asks for a password if there is
# a file DIR/passwords, and sets `command` to what runs the server in the foreground.
#     configure
command=()

usage()
{
    echo "usage: $0 DIR, with standard input open as long as the server shall run" >&2
    exit 2
}

listens()
{
    (: <"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

# Sets `port` and `tls_port` to ports on which nobody listens, below those that the system gives to
# outgoing connections.
draw_ports()
{
    port=$((20000 + RANDOM % 5000 * 2)) tls_port=$((port + 1))
    while listens "$port" || listens "$tls_port"; do
        port=$((20000 + RANDOM % 5000 * 2)) tls_port=$((port + 1))
    done
}

make_certificate()
{
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj /CN=localhost \
        -addext 'subjectAltName=DNS:localhost,IP:127.0.0.1' \
        -keyout "$dir/key.pem" -out "$dir/certificate.pem" 2>/dev/null
}

end_server()
{
    [[ -n $server ]] || return 0
    kill "$server" 2>/dev/null || true
    wait "$server" || true
    server=
}

# Starts the server. @return whether it serves now; it ends at once when somebody was faster to
# take a port.
start_server()
{
    draw_ports
    configure
    "${command[@]}" >>"$dir/output" 2>&1 </dev/null &
    server=$!
    until listens "$port" && listens "$tls_port"; do
        if ! kill -0 "$server" 2>/dev/null; then
            end_server
            return 1
        fi
        sleep 0.02
    done
}

# usage: serve "$@", with the arguments of the script
serve()
{
    local attempt
    (($# == 1)) || usage
    mkdir -p "$1/files"
    dir=$(cd "$1" && pwd)
    server=
    [[ -e $dir/certificate.pem ]] || make_certificate
    if [[ -n ${DAV_USER:-} ]]; then
        echo "$DAV_USER:$(openssl passwd -apr1 -stdin <<<"${DAV_PASSWORD:-}")" >"$dir/passwords"
    fi

    trap end_server EXIT
    trap 'exit 1' INT TERM HUP
    for attempt in 1 2 3 4 5; do
        if start_server; then
            echo "http://127.0.0.1:$port https://127.0.0.1:$tls_port"
            cat >/dev/null
            exit 0
        fi
    done
    echo "$0: the server does not start ($attempt attempts):" >&2
    cat "$dir/output" "$dir/error.log" >&2 || true
    exit 1
}
