# shellcheck shell=bash
# A private HTTPS server: Debian's nginx with a certificate and a configuration of our own, on a
# loopback port. It needs no rights and touches nothing outside its directory. Sourced, never run;
# the configuration is what the script's function nginx_configuration PORT writes.

nginx=/usr/sbin/nginx

# The directory of the server that a script has started, which is not to outlive the script.
work=
clean_up() {
    if [[ -n $work ]]; then
        stop_nginx "$work"
        rm -rf "$work"
    fi
}

# start_nginx DIRECTORY: at a port that is free, with DIRECTORY/server.crt. Sets port.
start_nginx() {
    local directory=$1 attempt
    make_certificate "$directory/server" IP:127.0.0.1,DNS:localhost
    for attempt in {1..50}; do
        # Below the ports that the system gives to outgoing connections.
        port=$((20000 + RANDOM % 12000))
        if ! port_is_taken "$port"; then
            nginx_configuration "$port" >"$directory/nginx.conf"
            "$nginx" -p "$directory" -c nginx.conf -e error.log 2>/dev/null && return
        fi
    done
    echo "nginx does not start after $attempt attempts:" >&2
    tail -n 5 "$directory/error.log" >&2
    return 1
}

# stop_nginx DIRECTORY: does nothing when none was started there.
stop_nginx() {
    local directory=$1 pid
    if pid=$(cat "$directory/nginx.pid" 2>/dev/null); then
        kill "$pid"
        while kill -0 "$pid" 2>/dev/null; do
            sleep 0.05
        done
    fi
}

port_is_taken() {
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

# make_certificate PATH NAMES: PATH.key and PATH.crt, signed by itself.
make_certificate() {
    quietly openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost \
        -addext subjectAltName="$2" -keyout "$1.key" -out "$1.crt"
}

# begin_configuration CONNECTIONS: what every configuration begins with, as far as into its block
# http, with so many connections at the most.
begin_configuration() {
    # Started by root, nginx would serve as a user who may not look into a private directory.
    if ((EUID == 0)); then
        echo 'user root;'
    fi
    cat <<END
worker_processes 1;
pid nginx.pid;
error_log error.log;
events { worker_connections $1; }
http {
    default_type application/octet-stream;
    types { application/json json; text/plain txt; }
    client_body_temp_path body;
    proxy_temp_path proxy;
    fastcgi_temp_path fastcgi;
    uwsgi_temp_path uwsgi;
    scgi_temp_path scgi;
END
}
