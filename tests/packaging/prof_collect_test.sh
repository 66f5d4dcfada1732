#!/bin/sh
# Tests of packaging/prof_collect.sh with a double of perf.
#
# usage: tools/isolated.sh tests/packaging/prof_collect_test.sh TEST      status 77: skipped
#
# Tests are called by a name put together; commas, dollars and the file names here are meant as they
# stand.
# shellcheck disable=SC2317,SC2258,SC2016,SC2012
set -u
# shellcheck source=tests/packaging/prof_collect_fixture.sh
. "$(dirname "$0")/prof_collect_fixture.sh"

# --- record ---

test_files_come_complete_and_numbered() {
    start_record
    await test -e "$path.000002"
    "$script" --kill || die "kill failed"
    wait "$recorder" || die "the recorder failed"

    expect_file "$path.000001" "part 1"
    expect_file "$path.000002" "part 2"
    expect_file "$path.000003" "last part"
    expect "$(ls -A "$dir" | wc -l)" 3
    expect "$(stat -c %a "$path.000001")" 640
}

test_unfinished_file_is_elsewhere_under_another_name() {
    start_record
    await test -e "$path.000002"

    expect "$(ls -A "$dir")" "ai_ctrl_cpu.data.5.000001
ai_ctrl_cpu.data.5.000002"
    expect_file "$run/recorder.$recorder/cpu" unfinished
    expect "$(stat -c %u:%a "$run/recorder.$recorder")" 0:700
    "$script" --kill
}

test_names_sort_beyond_the_ninth_file() {
    echo 12 >"$double/files"
    start_record
    await test -e "$path.000012"
    "$script" --kill

    expect_file "$path.000009" "part 9"
    expect_file "$path.000010" "part 10"
    expect_file "$path.000013" "last part"
}

test_perf_gets_its_command_and_no_environment() {
    SECRET=x
    PERF_CONFIG=/tmp/mine
    export SECRET PERF_CONFIG
    start_record
    "$script" --kill

    has_line "$double/calls" "root --no-pager record -a -g -k CLOCK_MONOTONIC_RAW -F 50 -e {r11,r2a} -B -N -o $run/recorder.$recorder/cpu --switch-output=2s" || die "$(cat "$double/calls")"
    ! grep -q SECRET "$double/environment" || die "the environment came through"
    has_line "$double/environment" PERF_CONFIG=/dev/null || die "a configuration came through"
}

test_frequency_0000_is_one_hertz() {
    start --record "$path" 0000 '{r11}'
    await test -e "$double/ready"
    "$script" --kill

    grep -q ' -F 1 ' "$double/calls" || die "$(cat "$double/calls")"
}

test_unknown_events_give_way_to_cpu_clock() {
    echo 'r2a' >"$double/unknown"
    start_record
    "$script" --kill
    wait "$recorder" || die "the recorder failed"

    expect "$(grep -c ' record ' "$double/calls")" 2
    grep -q -- ' -e cpu-clock ' "$double/calls" || die "no cpu-clock"
    expect_file "$work/err" "prof_collect: events not recorded, cpu-clock in their place: events={r11,r2a}"
    expect_file "$path.000001" "part 1"
}

test_perf_that_ends_by_itself_is_reported() {
    : >"$double/dies"
    start --record "$path" 0050 '{r11}'
    wait "$recorder" && die "the recorder succeeded"

    grep -q 'perf ended by itself: status=7' "$work/err" || die "$(cat "$work/err")"
    expect_file "$path.000002" "part 2"
}

test_machine_without_perf_says_so() {
    for tool in /usr/local/bin/perf /usr/sbin/perf /usr/bin/perf /sbin/perf /bin/perf; do
        if [ -e "$tool" ]; then
            mount --bind /dev/null "$tool" || skip "the machine's perf cannot be hidden"
        fi
    done
    rm /usr/local/sbin/perf

    for command in "--record $path 0050 {r11}" "--stat $dir/llc.data.5 read 100" "--script $path.000001"; do
        # shellcheck disable=SC2086
        "$script" $command 2>"$work/err" && die "it ran: $command"
        expect_file "$work/err" "prof_collect: no perf on this machine, install linux-perf"
    done
}

# --- the owner of the directory ---

test_files_belong_to_the_owner_of_the_directory() {
    need_other_users
    chown nobody "$dir"
    start_record
    await test -e "$path.000002"
    "$script" --kill

    expect "$(stat -c %U "$path.000001")" nobody
}

test_link_planted_by_the_owner_leads_nowhere() {
    need_other_users
    echo precious >"$work/precious"
    ln -s "$work/precious" "$path.000001"
    ln -s "$work/precious" "$dir/.prof_collect_part"
    chown -h nobody "$dir" "$path.000001" "$dir/.prof_collect_part"
    start_record
    await test -e "$path.000002"
    "$script" --kill

    expect_file "$work/precious" precious
    expect_file "$path.000001" "part 1"
}

test_owner_reads_nothing_of_roots_through_the_script() {
    need_other_users
    echo precious >/var/log/npu/precious
    chmod 0600 /var/log/npu/precious
    ln /var/log/npu/precious "$path.000001" || die "no link"
    chown nobody "$dir"

    "$script" --script "$path.000001" >"$work/out" 2>&1 && die "read"

    ! grep -q precious "$work/out" || die "root's file came out"
}

# --- stat ---

test_statistic_is_appended_until_the_kill() {
    echo before >"$dir/llc.data.5"
    start --stat "$dir/llc.data.5" cycles,a/b/ 250
    await has_line "$dir/llc.data.5" "counted cycles,a/b/"
    "$script" --kill
    wait "$recorder" || die "the statistic failed"

    expect_file "$dir/llc.data.5" "before
counted cycles,a/b/
last line"
    has_line "$double/calls" "root --no-pager stat -a -I 250 -e cycles,a/b/" || die "$(cat "$double/calls")"
}

test_read_and_write_are_the_loads_and_stores_of_the_cache() {
    start --stat "$dir/llc.data.5" read,write 100
    await has_line "$dir/llc.data.5" "counted LLC-loads,LLC-stores"
    "$script" --kill
}

test_event_without_a_counter_is_not_supported_and_never_zero() {
    echo nonsense >"$double/unknown"
    start --stat "$dir/llc.data.5" nonsense,cycles 100
    await has_line "$dir/llc.data.5" "counted cycles"
    "$script" --kill

    has_line "$dir/llc.data.5" "# <not supported> nonsense" || die "$(cat "$dir/llc.data.5")"
}

test_statistic_without_any_counter_ends() {
    echo nonsense >"$double/unknown"

    "$script" --stat "$dir/llc.data.5" nonsense 100 2>"$work/err" && die "it ran"

    expect_file "$dir/llc.data.5" "# <not supported> nonsense"
    expect_file "$work/err" "prof_collect: perf knows none of the events: events=nonsense"
}

test_statistic_follows_no_link() {
    echo precious >"$work/precious"
    ln -s "$work/precious" "$dir/llc.data.5"

    "$script" --stat "$dir/llc.data.5" cycles 100 2>"$work/err" && die "it ran"

    expect_file "$work/precious" precious
}

# --- script ---

test_text_is_made_by_nobody() {
    need_other_users
    echo record >"$path.000001"
    chmod 0600 "$path.000001"

    "$script" --script "$path.000001" >"$work/out" 2>"$work/err" || die "$(cat "$work/err")"

    expect_file "$work/out" "text of record"
    has_line "$double/calls" "nobody --no-pager script --no-inline --kallsyms=kallsyms -i data" || die "$(cat "$double/calls")"
    expect "$(ls "$run")" kallsyms
}

test_text_has_the_kernels_symbols_that_only_root_may_read() {
    need_other_users
    echo record >"$path.000001"

    "$script" --script "$path.000001" >"$work/out" || die "no text"

    expect_file "$double/symbols" "$(wc -l </proc/kallsyms)"
    expect "$(stat -c %u:%a "$run/kallsyms")" 0:600
}

test_recording_takes_the_symbols_anew_and_its_conversions_do_not() {
    need_other_users
    mkdir -m 0711 "$run"
    echo stale >"$run/kallsyms"
    start_record
    await test -e "$path.000001"
    expect "$(wc -l <"$run/kallsyms")" "$(wc -l </proc/kallsyms)"

    echo of this recording >"$run/kallsyms"
    "$script" --script "$path.000001" >"$work/out" || die "no text"
    "$script" --kill

    expect_file "$double/symbols" 1
}

test_link_is_no_record_file() {
    echo precious >"$work/precious"
    ln -s "$work/precious" "$path.000001"

    refused --script "$path.000001"
    expect "$(ls "$run")" ""
}

test_missing_record_file_is_reported() {
    refused --script "$path.000001"
}

# --- kill ---

test_kill_without_recorders_succeeds_twice() {
    "$script" --kill || die "first"
    "$script" --kill || die "second"
}

test_kill_leaves_other_processes_alone() {
    perf stat -a -I 100 -e cycles 2>/dev/null &
    foreign=$!
    await test -e "$double/ready"
    rm "$double/ready"
    start_record
    "$script" --kill

    kill -0 "$foreign" || die "a foreign perf was ended"
    kill "$foreign"
}

test_kill_waits_until_the_last_file_stands() {
    start_record
    "$script" --kill || die "kill failed"

    expect_file "$path.000003" "last part"
    [ ! -e "$run/recorder.$recorder" ] || die "the recorder is still there"
}

# The script with a second of patience instead of ten.
use_impatient_script() {
    has_line "$script" KILL_SECONDS=10 || die "no patience in the script"
    sed 's/^KILL_SECONDS=10$/KILL_SECONDS=1/' "$script" >"$work/prof_collect.sh"
    chmod 0755 "$work/prof_collect.sh"
    script=$work/prof_collect.sh
}

test_kill_ends_a_deaf_recorder() {
    use_impatient_script
    : >"$double/deaf"
    start_record

    "$script" --kill || die "kill failed"

    wait "$recorder"
    expect "$(pgrep -f "$run/recorder.$recorder/" | wc -l)" 0
}

test_kill_ends_the_perf_of_a_lost_recorder() {
    start_record
    read -r perf _ <"$run/recorder.$recorder/perf"
    kill -KILL "$recorder"
    wait "$recorder" 2>/dev/null

    "$script" --kill || die "kill failed"

    ! kill -0 "$perf" 2>/dev/null || die "perf is still there"
    [ ! -e "$run/recorder.$recorder" ] || die "its directory is still there"
}

# The process that becomes the recorder is older than the kill.
test_kill_reaches_a_recorder_that_has_not_begun() {
    mkfifo "$work/go"
    sh -c 'read -r _ <"$1"; shift; exec "$@"' sh "$work/go" "$script" --record "$path" 0050 '{r11}' &
    late=$!
    "$script" --kill || die "kill failed"
    echo go >"$work/go"

    wait "$late" || die "the recorder failed"
    expect "$(cat "$double/calls")" "" "it has recorded"
}

test_recorder_after_a_kill_runs() {
    "$script" --kill
    start_record
    await test -e "$path.000002"
    "$script" --kill
}

# --- hostile arguments ---

test_hostile_arguments_are_refused() {
    newline='
'
    refused
    refused --help
    refused --kill now
    refused --record "$path" 0050
    refused --record "$path" 0050 '{r11}' more
    for bad in /etc/passwd /var/log/npu/profiling/ai_ctrl_cpu.data.5 "$dir/../4/ai_ctrl_cpu.data.5" \
        "$dir/x/ai_ctrl_cpu.data.5" "$dir/ai_ctrl_cpu.data.5.x" "$dir/ai_ctrl_cpu.data.-5" "x$path" "$path$newline$path" \
        /var/log/npu/profiling/-1/ai_ctrl_cpu.data.5 "$path;id" ""; do
        refused --record "$bad" 0050 '{r11}'
        refused --stat "$bad" cycles 100
        refused --script "$bad"
    done
    for bad in 50 00050 -050 0x50 "0050 " ""; do
        refused --record "$path" "$bad" '{r11}'
    done
    for bad in r11 '{}' '{r}' '{r11' '{r11,}' '{r1g}' '{r11};id' '{r11 -o x}' "{r11}$newline{r11}" "-e" \
        '{r1,r1,r1,r1,r1,r1,r1,r1,r1}' '{r11111111111111111}' ''; do
        refused --record "$path" 0050 "$bad"
    done
    for bad in a.c --all a=b 'a b' ,a a, '$(id)' '' "$(printf '%0513d' 0)"; do
        refused --stat "$dir/llc.data.5" "$bad" 100
    done
    for bad in 0 -1 1.5 01 1234567890 ''; do
        refused --stat "$dir/llc.data.5" cycles "$bad"
    done
    refused --script "$path"
    refused --script "$path.1"
}

test_link_in_the_way_to_the_directory_is_refused() {
    ln -s "$work" /var/log/npu/profiling/4
    mkdir -p "$work/real/7"
    rmdir "$dir"
    ln -s "$work/real" /var/log/npu/profiling/3

    refused --record /var/log/npu/profiling/4/ai_ctrl_cpu.data.5 0050 '{r11}'
    refused --stat /var/log/npu/profiling/4/llc.data.5 cycles 100
    refused --script "$path.000001"
}

test_run_directory_of_somebody_else_is_refused() {
    mkdir -m 0777 "$run"
    chmod 0777 "$run"
    refused --record "$path" 0050 '{r11}'
    refused --kill
    rmdir "$run"
    mkdir -m 0711 "$work/elsewhere"
    ln -s "$work/elsewhere" "$run"
    refused --kill
}

test_ordinary_user_is_refused() {
    need_other_users
    cp "$script" "$work/script"
    chmod 0755 "$work" "$work/script"
    setpriv --reuid=nobody --regid="$(id -g nobody)" --clear-groups "$work/script" --kill 2>"$work/err" && die "it ran"

    expect_file "$work/err" "prof_collect: only root may do this"
}

# --- sudoers ---

test_sudoers_file_is_valid() {
    command -v visudo >/dev/null || skip "no visudo on this machine"
    visudo -cf "$source_dir/packaging/sudoers.d/tiv"
}

run_test "$1"
