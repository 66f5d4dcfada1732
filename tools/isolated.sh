#!/bin/sh
# Runs a command in a mount namespace of its own, in which every absolute path that the daemon
# empties or writes is an empty directory in memory: the machine stays clean.
#
# usage: tools/isolated.sh command [arguments...]
#
# Private are /usr/local/profiler, /var/log/npu, /run/tiv and the home directory of the user
# database; everything else is the machine's own. Root needs nothing else; any other user needs user
# namespaces, which most kernels allow. In the namespace TIV_ISOLATED is 1.
set -eu

# shellcheck source=tools/shadow.sh
. "$(dirname "$0")/shadow.sh"

# The daemon asks the user database for its home directory.
move_home() {
    mkdir -p /run/tiv/home
    sed "s|^\([^:]*:[^:]*:$(id -u):[^:]*:[^:]*:\)[^:]*|\1/run/tiv/home|" /etc/passwd \
        >/run/tiv/passwd
    chmod 0644 /run/tiv/passwd
    mount --bind /run/tiv/passwd /etc/passwd
}

run_inside() {
    mount --make-rprivate /
    shadow /usr/local profiler
    shadow /var/log npu
    shadow /run tiv
    chmod 0750 /run/tiv
    move_home
    export TIV_ISOLATED=1
    cd "$TIV_START_DIR"
    unset TIV_START_DIR
    exec "$@"
}

if [ $# -eq 0 ]; then
    echo "usage: tools/isolated.sh command [arguments...]" >&2
    exit 2
fi
if [ "$1" = --inside ]; then
    shift
    run_inside "$@"
fi
TIV_START_DIR=$(pwd)
export TIV_START_DIR
self=$(realpath "$0")
if [ "$(id -u)" -eq 0 ]; then
    exec unshare -m "$self" --inside "$@"
fi
if ! unshare -Ur -m true 2>/dev/null; then
    echo "tiv: this kernel lets no ordinary user make a namespace; run this, then try again:" >&2
    echo "  sudo sysctl -w user.max_user_namespaces=15000" >&2
    exit 1
fi
exec unshare -Ur -m "$self" --inside "$@"
