#!/bin/sh
# Measures the daemon's share of one CPU while it samples every process each 100 ms, with 500
# processes more than the machine has anyway.
#
# usage: bench/sampling_cost.sh [build directory]      the default is build/release
set -eu
cd "$(dirname "$0")/.."
build=${1:-build/release}

# User and system time of a process so far, in ticks.
ticks() {
    awk '{ print $14 + $15 }' /proc/"$1"/stat
}

if [ "${TIV_ISOLATED:-}" != 1 ]; then
    exec tools/isolated.sh "bench/$(basename "$0")" "$build"
fi
export TIV_RUNTIME_DIR=/run/tiv
idlers=""
i=0
while [ "$i" -lt 500 ]; do
    sleep 600 &
    idlers="$idlers $!"
    i=$((i + 1))
done
"$build/src/daemon/tiv" >/dev/null 2>&1 &
daemon=$!
# The list is meant as words.
# shellcheck disable=SC2064,SC2086
trap "kill $daemon $idlers" EXIT
"$build/src/host/tivctl" collect --wait 20s --duration 1s --processes --quiet --output /run/tiv
before=$(ticks "$daemon")
"$build/src/host/tivctl" collect --duration 20s --processes --output /run/tiv
after=$(ticks "$daemon")
awk -v n=$((after - before)) -v hz="$(getconf CLK_TCK)" \
    'BEGIN { printf "CPU share of the daemon: %.1f %%\n", 100 * n / hz / 20 }'
