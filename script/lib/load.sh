# shellcheck shell=bash
# What script/soak and script/crowd share: a place in memory, an nginx for many connections that
# logs what a connection costs, and the release build. Sourced after common.sh and nginx.sh.

# shellcheck disable=SC2034,SC2154
build_directory=$root/build/load

# Files of this size pass through many times; on a disk it would be the disk that is measured.
make_work_directory() {
    work=$(mktemp -d -p /dev/shm tarvisnet.XXXXXX)
    mkdir -p "$work/content/slow" "$work/out"
    echo '{"channel": "stable", "index": "/index.json"}' >"$work/content/definition.json"
    echo '{"files": [{"path": "/data.bin"}]}' >"$work/content/index.json"
}

# Of each request it logs when it came, the connection, its number on the connection, and whether
# the TLS session was resumed ("r") or new (".").
nginx_configuration() {
    begin_configuration 4096
    cat <<END
    log_format load '\$msec \$uri \$status \$body_bytes_sent \$connection \$connection_requests '
                    '\$ssl_session_reused \$request_time';
    access_log access.log load;
    ssl_session_cache shared:sessions:10m;
    server {
        listen 127.0.0.1:$1 ssl http2 backlog=4096;
        ssl_certificate server.crt;
        ssl_certificate_key server.key;
        root content;
        location /slow/ { limit_rate ${slow_rate:-1m}; }
        location = / { return 204; }
    }
}
END
}

# build_program TARGET
build_program() {
    script/bootstrap --test --soak
    heading "Building $1"
    configure_in "$build_directory" release
    build_in "$build_directory" "$1"
}

# The machine that figures hold for.
machine() {
    printf '%s, %d processors, Linux %s\n' \
        "$(sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1)" "$(nproc)" "$(uname -r)"
}
