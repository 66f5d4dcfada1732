#!/bin/bash
# Records the results below this directory anew, below OUTPUT, with the daemon and tivctl of a
# release build. For root.
#
# usage: tests/host/golden/record.sh OUTPUT
#
# complete: two seconds of the system, its processes and a channel. profile: eight seconds of the CPU
# profile. incomplete: the daemon is killed in the middle. Names of processes hold quotes, line ends,
# markup and bytes of another encoding; one process goes in the middle. The processes live in a PID namespace of their own, so that there are few; the
# programs lie below /opt/tiv, where an installation puts them.
set -eu
root=$(cd "$(dirname "$0")/../../.." && pwd)

# Puts empty layers over directories of the machine.
cover() {
    layers=$(mktemp -d)
    mount -t tmpfs none "$layers"
    for directory in /var /usr/bin /opt; do
        mkdir -p "$layers$directory/upper" "$layers$directory/work"
        mount -t overlay none "$directory" \
            -o "lowerdir=$directory,upperdir=$layers$directory/upper,workdir=$layers$directory/work"
    done
    mkdir -p /var/log/npu /opt/tiv
    mount -t tmpfs none /var/log/npu
    install -m 0755 "$root/packaging/prof_collect.sh" /var/prof_collect.sh
    printf '#!/bin/sh\nexec "$@"\n' >/usr/bin/sudo
    chmod 0755 /usr/bin/sudo
    cp "$root"/build/release/src/daemon/tiv "$root"/build/release/src/host/tivctl \
        "$root"/build/release/src/soft_driver/libtiv_driver.so /opt/tiv/
}

# named NAME SECONDS: a process of this name that is mostly busy. It is a shell under another name.
named() {
    cp /bin/bash "/opt/names/$1"
    # The text is the shell's own.
    # shellcheck disable=SC2016
    exec "/opt/names/$1" -c 'while [ "$SECONDS" -lt "$0" ]; do
        for ((i = 0; i < 20000; ++i)); do :; done
        read -r -t 0.05
    done <>/tmp/pipe' "$2"
}

start_daemon() {
    TIV_RUNTIME_DIR=/run/tiv /opt/tiv/tiv >/dev/null 2>&1 &
    daemon=$!
}

collect() {
    TIV_RUNTIME_DIR=/run/tiv /opt/tiv/tivctl collect --quiet --wait 20s --output recorded "$@"
}

inside() {
    cover
    export LD_LIBRARY_PATH=/opt/tiv TIV_DRIVER_CONFIG=/opt/tiv/driver.json
    echo '{"channels": [{"id": 8, "name": "software events", "source": "perf", "events":
        ["page-faults", "context-switches"]}]}' >"$TIV_DRIVER_CONFIG"
    mount -t tmpfs none /tmp
    mkfifo /tmp/pipe
    mkdir /opt/names
    for name in "it's \"q\"" $'a\nb) S 1' '<b>&amp;<i>' $'caf\xe9' $'\xe6\x97\xa5\xe6\x9c\xac'; do
        named "$name" 25 &
    done
    named 'short-lived' 1 &
    start_daemon
    collect --duration 2s --interval 200ms --cpu --memory --processes --llc read
    mv recorded/PROF* complete
    collect --duration 8s --interval 50ms --ctrl-cpu 0x11
    mv recorded/PROF* profile
    (sleep 3 && kill -KILL "$daemon") &
    collect --duration 20s --interval 100ms --memory || [ $? -eq 4 ]
    mv recorded/PROF* incomplete
    rmdir recorded
}

if [ "${1:-}" = --in-namespace ]; then
    shift
    inside
    exit
fi
mkdir -p "$1"
cd "$1"
exec "$root/tools/isolated.sh" unshare --pid --fork --mount-proc "$root/tests/host/golden/record.sh" \
    --in-namespace
