# shellcheck shell=bash
# What the scripts share. Sourced, never run.

set -euo pipefail

# Wherever a script is called from, it works on the tree it lies in.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"

# Not every script uses every colour.
# shellcheck disable=SC2034
if [[ -t 1 && -z ${NO_COLOR:-} ]]; then
    bold=$'\e[1m' dim=$'\e[2m' red=$'\e[31m' green=$'\e[32m' plain=$'\e[0m'
else
    bold='' dim='' red='' green='' plain=''
fi

heading() {
    printf '\n%s==> %s%s\n' "$bold" "$*" "$plain"
}

die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# Runs a command whose output is of interest only when it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 </dev/null || status=$?
    if ((status != 0)); then
        cat "$log" >&2
    fi
    rm -f "$log"
    return "$status"
}

# The comment at the top of a script is its help.
show_help() {
    sed -n '2,/^$/s/^# \{0,1\}//p' "$0"
    exit 0
}

# at_exit COMMAND: however the script ends.
at_exit() {
    # shellcheck disable=SC2064
    trap "$1" EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

# build PRESET: configures and builds everything.
build() {
    quietly cmake --preset "$1"
    cmake --build --preset "$1" --parallel "$(nproc)"
}

# configure_in DIRECTORY PRESET [OPTION]...: apart from what script/test builds, which may be at work
# at the same time.
configure_in() {
    quietly cmake --preset "$2" -B "$1" "${@:3}"
}

# build_in DIRECTORY [TARGET]...
build_in() {
    local directory=$1
    shift
    cmake --build "$directory" --parallel "$(nproc)" ${1:+--target "$@"}
}
