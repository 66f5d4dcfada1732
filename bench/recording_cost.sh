#!/bin/sh
# Measures what recording the control CPU at 50 Hz costs: the CPU time of everything that the daemon
# starts for it (sudo, script, perf, conversions) and of the daemon itself, as a share of one CPU,
# and the bytes and samples that reach the host. Once on the machine as it is, once with every CPU
# kept busy, and once without perf.
#
# usage: bench/recording_cost.sh [SECONDS] [build directory]      the defaults are 20 and build/release
#
# Only root may: perf has to see the whole system. What else the machine does goes into the profile
# and has to be made into text, too: its own CPU time is printed with each figure.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-20}
build=${2:-build/release}

if [ "${TIV_ISOLATED:-}" != 1 ]; then
    exec tools/isolated.sh "bench/$(basename "$0")" "$seconds" "$build"
fi
export TIV_RUNTIME_DIR=/run/tiv
out=/run/tiv/recording_cost
tools/place_script.sh --keep-sudo packaging/prof_collect.sh
mkdir "$out"

# Ticks of the daemon, of all processes below it that have ended and were waited for, and of the
# whole machine; and the time in ticks.
ticks() {
    sed 's/^.*) //' "/proc/$daemon/stat" | awk '{ print $12 + $13, $14 + $15 }'
    awk '$1 == "cpu" { print $2 + $3 + $4 + $7 + $8 + $9 }' /proc/stat
    awk -v hz="$(getconf CLK_TCK)" '{ print $1 * hz }' /proc/uptime
}

collect() {
    rm -rf "$out/result"
    mkdir "$out/result"
    "$build/src/host/tivctl" collect --wait 20s --duration "${seconds}s" --interval 20ms \
        --ctrl-cpu 0x11,0x3c --output "$out/result" >"$out/summary" 2>"$out/errors" ||
        cat "$out/errors"
}

# report NAME TICKS TICKS: what has passed between the two.
report() {
    echo "$1"
    echo "$2 $3" | awk '{
        time = $8 - $4
        printf "  children of the daemon: %6.2f %% of one CPU\n", 100 * ($6 - $2) / time
        printf "  the daemon itself:      %6.2f %%\n", 100 * ($5 - $1) / time
        printf "  everything else:        %6.2f %%\n", 100 * ($7 - $3 - ($5 - $1) - ($6 - $2)) / time
    }'
    profile=$(echo "$out"/result/*/device_0/data/ai_ctrl_cpu.data)
    if [ -f "$profile" ]; then
        awk -v bytes="$(stat -c %s "$profile")" -v s="$seconds" '$1 == "data/ai_ctrl_cpu.data" {
            printf "  profile: %d bytes/s, %.1f samples/s, %d bytes a sample\n",
                bytes / s, $3 / s, bytes / ($3 > 0 ? $3 : 1) }' "$out/summary"
    else
        echo "  no profile; $(grep 'data session' "$out/summary")"
        echo "  the script: $(grep '^prof_collect: ' "$out/daemon.err" | tail -n 1)"
    fi
}

measure() {
    before=$(ticks | tr '\n' ' ')
    collect
    report "$1" "$before" "$(ticks | tr '\n' ' ')"
}

busy=
"$build/src/daemon/tiv" >/dev/null 2>"$out/daemon.err" &
daemon=$!
# shellcheck disable=SC2064
trap "kill $daemon \$busy 2>/dev/null; /var/prof_collect.sh --kill" EXIT
"$build/src/host/tivctl" collect --wait 20s --duration 0s --cpu --quiet --output "$out"

command -v sudo >/dev/null || echo "(no sudo on this machine: its own time is not in the figures)"
measure "as it is"
i=0
while [ "$i" -lt "$(nproc)" ]; do
    sh -c 'while :; do :; done' &
    busy="$busy $!"
    i=$((i + 1))
done
measure "busy"
# shellcheck disable=SC2086
kill $busy
busy=
perf=$(command -v perf || true)
[ -z "$perf" ] || mount --bind /dev/null "$(realpath "$perf")"
measure "without perf"
