#!/bin/sh
# Puts a helper script where the daemon looks for it, for the life of a private namespace.
#
# usage: tools/isolated.sh ... tools/place_script.sh [--keep-sudo] SCRIPT
#
# /var/prof_collect.sh becomes SCRIPT. The machine's sudo is hidden, and /var/sudo stands in for it:
# it runs what it is given as it is. With --keep-sudo neither happens where the machine has one.
# Called again, it puts another script there.
set -eu

# shellcheck source=tools/shadow.sh
. "$(dirname "$0")/shadow.sh"

hide_sudo() {
    for sudo in /usr/bin/sudo /usr/sbin/sudo; do
        # A device is no program.
        [ ! -f "$sudo" ] || mount --bind /dev/null "$sudo"
    done
    printf '#!/bin/sh\nexec "$@"\n' >/var/sudo
    chmod 0755 /var/sudo
}

keep_sudo=0
if [ "${1:-}" = --keep-sudo ]; then
    keep_sudo=1
    shift
fi
if [ $# -ne 1 ] || [ "${TIV_ISOLATED:-}" != 1 ]; then
    echo "usage, inside tools/isolated.sh: tools/place_script.sh [--keep-sudo] SCRIPT" >&2
    exit 2
fi
script=$(realpath "$1")
[ -d /var/tiv_placed ] || shadow /var tiv_placed
install -m 0755 "$script" /var/prof_collect.sh
if [ "$keep_sudo" = 0 ] || [ ! -x /usr/bin/sudo ]; then
    hide_sudo
fi
