#!/bin/sh
# Tests of packaging/prof_collect.sh with the machine's own perf.
#
# usage: tools/isolated.sh tests/packaging/real_perf_test.sh TEST      status 77: skipped
#
# Tests are called by a name put together.
# shellcheck disable=SC2317
set -u
# shellcheck source=tests/packaging/prof_collect_fixture.sh
. "$(dirname "$0")/prof_collect_fixture.sh"

use_real_perf() {
    umount /usr/local/sbin
    double=$work
    command -v perf >/dev/null || skip "no perf on this machine"
}

test_real_perf_makes_a_profile_that_a_person_can_read() {
    need_other_users
    use_real_perf
    perf record -q -a -B -N -e cpu-clock -o "$work/probe" -- true 2>/dev/null || skip "this kernel lets perf record nothing"
    start --record "$path" 0050 '{r11,r3c}'
    await test -s "$path.000001"
    "$script" --kill || die "kill failed"
    wait "$recorder" || die "$(cat "$work/err")"

    "$script" --script "$path.000001" >"$work/text" 2>"$work/err" || die "$(cat "$work/err")"
    grep -Eq '^[^ ].* +[0-9]+ \[[0-9]+\] +[0-9]+\.[0-9]+: ' "$work/text" || die "no sample in the text"
    last=$(find "$dir" -name 'ai_ctrl_cpu.data.5.*' | sort | tail -n 1)
    [ "$last" != "$path.000001" ] || die "the last file did not come"
    "$script" --script "$last" >"$work/text" || die "the last file is not whole"
}

test_real_perf_counts() {
    use_real_perf
    perf stat -a -e cycles -- true >/dev/null 2>&1 || skip "this kernel lets perf count nothing"
    start --stat "$dir/llc.data.5" read,nonsense 100
    await grep -q 'LLC-loads' "$dir/llc.data.5"
    "$script" --kill || die "kill failed"
    wait "$recorder" || die "$(cat "$work/err")"

    has_line "$dir/llc.data.5" "# <not supported> nonsense" || die "$(cat "$dir/llc.data.5")"
    ! grep -Eq ' 0 +LLC-loads' "$dir/llc.data.5" || die "a counter that is not there counts zero"
}

run_test "$1"
