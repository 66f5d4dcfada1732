#!/bin/sh
# Tests of tools/isolated.sh and tools/place_script.sh: what is private, and that all else is the
# machine's own.
set -u
cd "$(dirname "$0")/../.." || exit 1

failed=0

expect() {
    if [ "$1" != "$2" ]; then
        echo "FAILED: $3: expected <$2>, got <$1>" >&2
        failed=1
    fi
}

# The entries of a directory and theirs, without the private one.
listing() {
    # The paths are meant to be taken by the shell inside.
    # shellcheck disable=SC2016
    "$@" sh -c 'find "$0"/ -mindepth 1 -maxdepth 2 ! -path "$0/$1*" 2>/dev/null | sort' \
        /usr/local profiler
}

inside=$(listing tools/isolated.sh)
expect "$inside" "$(listing env)" "what is beside a private directory is the machine's own"

inside=$(tools/isolated.sh sh -c 'cd /usr/local/profiler && ls -A && ls -A /var/log/npu')
expect "$inside" "" "private directories are empty"

tools/isolated.sh sh -c 'echo x >/usr/local/profiler/tiv_isolated_test'
expect "$(ls /usr/local/profiler/tiv_isolated_test 2>/dev/null)" "" "what is written stays inside"

# shellcheck disable=SC2016
inside=$(tools/isolated.sh sh -c 'tools/place_script.sh tools/check &&
    [ "$(ls /var/lib)" = "$1" ] && cmp tools/check /var/prof_collect.sh && /var/sudo echo runs &&
    ! PATH=/usr/bin:/usr/sbin command -v sudo' sh "$(ls /var/lib)")
expect "$inside" "runs" "the script is placed, sudo is replaced, and the rest of /var is as before"
expect "$(ls /var/tiv_placed 2>/dev/null)" "" "the machine's /var is untouched"

exit "$failed"
