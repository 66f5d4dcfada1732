# What the tests of packaging/prof_collect.sh stand on. Sourced by them.
#
# Everything that the script writes is private to the namespace; the double hides the machine's perf
# in an empty /usr/local/sbin.
#
# Tests are called by a name put together; what is set here is used by those who source it.
# shellcheck shell=sh disable=SC2317,SC2034
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
script=$source_dir/packaging/prof_collect.sh
double=/usr/local/sbin/perf.d
dir=/var/log/npu/profiling/3
path=$dir/ai_ctrl_cpu.data.5
run=/run/prof_collect

die() {
    echo "FAILED: $*" >&2
    "$script" --kill
    exit 1
}

skip() {
    echo "skipped: $*"
    exit 77
}

expect() {
    [ "$1" = "$2" ] || die "expected <$2>, got <$1>${3:+: $3}"
}

expect_file() {
    expect "$(cat "$1" 2>&1)" "$2" "$1"
}

# Waits at most forty seconds for a command to succeed.
await() {
    tries=800
    until "$@" 2>/dev/null; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || die "never came: $*"
        sleep 0.05
    done
}

has_line() {
    grep -qFx -- "$2" "$1"
}

use_double() {
    mount -t tmpfs -o mode=0755 double /usr/local/sbin || die "no place for the double"
    mkdir -m 0777 "$double"
    : >"$double/calls"
    chmod 0666 "$double/calls"
    cp "$source_dir/tests/packaging/perf_double.sh" /usr/local/sbin/perf
    chmod 0755 /usr/local/sbin/perf
}

start() {
    "$script" "$@" >"$work/out" 2>"$work/err" &
    recorder=$!
}

start_record() {
    start --record "$path" 0050 '{r11,r2a}'
    await test -e "$double/ready"
    await test -s "$run/recorder.$recorder/perf"
}

refused() {
    if "$script" "$@" >"$work/out" 2>&1; then
        die "taken: $*"
    fi
    grep -q '^prof_collect: ' "$work/out" || die "refused without a word: $*"
    expect "$(cat "$double/calls")" "" "perf was called: $*"
}

need_other_users() {
    setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups true 2>/dev/null ||
        skip "this namespace has no other users"
}

setup() {
    [ "${TIV_ISOLATED:-}" = 1 ] || die "run it through tools/isolated.sh"
    work=$(mktemp -d /run/prof_collect_test.XXXXXX)
    mkdir -p "$dir"
    use_double
}

# run_test NAME: one test between its preparations and its traces. Does not return.
run_test() {
    setup
    "test_$1"
    status=$?
    rm -rf "$work"
    exit "$status"
}
