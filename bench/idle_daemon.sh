#!/bin/sh
# Measures the daemon without a job: resident memory, threads, and wake-ups per second of all its
# threads together, over ten seconds.
#
# usage: bench/idle_daemon.sh [build directory]      the default is build/release
set -eu
cd "$(dirname "$0")/.."
build=${1:-build/release}

# Times that any thread has given up its processor by itself or was taken off it.
switches() {
    cat /proc/"$1"/task/*/status | awk '/ctxt_switches/ { n += $2 } END { print n }'
}

if [ "${TIV_ISOLATED:-}" != 1 ]; then
    exec tools/isolated.sh "bench/$(basename "$0")" "$build"
fi
TIV_RUNTIME_DIR=/run/tiv "$build/src/daemon/tiv" >/dev/null 2>&1 &
daemon=$!
trap 'kill "$daemon"' EXIT
tries=0
until [ -S /run/tiv/hdc_0_4.sock ] || [ "$tries" -ge 100 ]; do
    tries=$((tries + 1))
    sleep 0.1
done
sleep 2
before=$(switches "$daemon")
sleep 10
after=$(switches "$daemon")
awk '/^(VmRSS|Threads)/ { print $1, $2, $3 }' /proc/"$daemon"/status
awk -v n=$((after - before)) 'BEGIN { printf "wake-ups per second: %.1f\n", n / 10 }'
