#!/bin/sh
# Records the CPU and counts cache events for the daemon, on top of perf. Installed as
# /var/prof_collect.sh, owned by root, mode 0755; the daemon runs it through sudo.
#
# usage: prof_collect.sh --record PATH FREQUENCY EVENTS   record until killed, into PATH.000001, ...
#        prof_collect.sh --stat PATH EVENTS INTERVAL      count until killed, into PATH
#        prof_collect.sh --script FILE                    text form of a record file on stdout
#        prof_collect.sh --kill                           end what --record and --stat started
#
# PATH and FILE lie in /var/log/npu/profiling/<digits>/. That directory may belong to the daemon's
# user, who is not to gain anything by it: root enters it and reads its owner, but every file in it
# is opened, written and renamed with the owner's rights. Recorders write below RUN_DIR, which is
# root's, and record files are read by perf as nobody.
#
# Every recorder is a shell of this script with one perf below it. It has a directory in RUN_DIR
# from before its perf starts until its last file stands under its final name:
#
#   recorder.<pid>/shell   pid and start time of the shell
#   recorder.<pid>/perf    the same of its perf
set -u
PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
LC_ALL=C
export PATH LC_ALL
unset IFS CDPATH ENV
umask 077

DATA_DIR=/var/log/npu/profiling
RUN_DIR=/run/prof_collect
SWITCH_SECONDS=2
KILL_SECONDS=10

fail() {
    echo "prof_collect: $*" >&2
    exit 1
}

# matches TEXT EXPRESSION: the whole text, of at most 512 plain characters, is what the expression
# says. A line end is no plain character: grep would look at each line alone.
matches() {
    case $1 in
        *[!A-Za-z0-9_/.,{}]*) return 1 ;;
    esac
    [ ${#1} -le 512 ] && printf '%s\n' "$1" | grep -Eqx -- "$2"
}

# --- the directory of the data ---

# Goes into the directory of $1 and leaves it to the functions below: name, owner. From here on the
# directory is ".", whatever happens to the names above it.
enter_directory() {
    directory=${1%/*}
    name=${1##*/}
    cd -P -- "$directory" 2>/dev/null || fail "no directory: path=$1"
    [ "$(pwd -P)" = "$directory" ] || fail "a link leads to the directory: path=$1"
    owner=$(stat -c %u .)
    group=$(stat -c %g .)
}

as_owner() {
    if [ "$owner" = 0 ]; then
        "$@"
    else
        setpriv --reuid="$owner" --regid="$group" --clear-groups --no-new-privs -- "$@"
    fi
}

# Standard input becomes the file $1 of the directory at once: under another name until it is whole.
# shellcheck disable=SC2016
put_file() {
    as_owner sh -c 'umask 027; part=.prof_collect_part; rm -f -- "$part"; set -C
        cat >"$part" && mv -fT -- "$part" "$1"' sh "$1"
}

# --- recorders and what is known of them ---

make_run_dir() {
    mkdir -m 0711 "$RUN_DIR" 2>/dev/null
    # Of a link stat tells the link's own type.
    [ "$(stat -c %F:%u:%a "$RUN_DIR")" = directory:0:711 ] ||
        fail "the run directory is not root's alone: path=$RUN_DIR"
}

# Start time of a process in clock ticks since boot; nothing when it is gone. Its name, which may
# hold anything, ends at the last parenthesis.
start_of() {
    sed -n 's/^.*) //p' "/proc/$1/stat" 2>/dev/null | cut -d ' ' -f 20
}

# is_alive FILE: the process that the file names still runs, and is no other one of the same number.
is_alive() {
    [ -r "$1" ] && read -r pid start <"$1" && [ -n "$start" ] && [ "$(start_of "$pid")" = "$start" ]
}

remember() {
    echo "$2 $(start_of "$2")" >"$1.new" && mv -f "$1.new" "$1"
}

# A kill that began after this process, or after the sudo in front of it, was meant for it too.
killed_already() {
    [ -r "$RUN_DIR/killed" ] || return 1
    read -r killed <"$RUN_DIR/killed"
    began=$(start_of $$)
    ancestor=$PPID
    while [ "$(cat "/proc/$ancestor/comm" 2>/dev/null)" = sudo ]; do
        began=$(start_of "$ancestor")
        ancestor=$(sed -n 's/^PPid:[[:blank:]]*//p' "/proc/$ancestor/status")
    done
    [ "$began" -le "$killed" ]
}

begin_recorder() {
    make_run_dir
    me=$RUN_DIR/recorder.$$
    rm -rf "$me"
    mkdir "$me" || fail "no place for a recorder: path=$me"
    mkfifo "$me/said" || fail "no place for a recorder: path=$me"
    stopping=0
    perf=
    trap stop_perf TERM INT HUP
    trap 'rm -rf "$me"' EXIT
    remember "$me/shell" $$
    if killed_already; then
        exit 0
    fi
}

# perf finishes its last file at an interrupt and at no other signal.
stop_perf() {
    stopping=1
    [ -z "$perf" ] || kill -INT "$perf" 2>/dev/null
}

# Starts perf with nothing of this environment and with the signals of a foreground process. What it
# says comes out of descriptor 3, up to its end. Opened for both ways the pipe blocks nobody.
start_perf() {
    exec 4<>"$me/said"
    exec 3<"$me/said"
    env -i --default-signal=INT PATH="$PATH" LC_ALL=C HOME=/ PERF_CONFIG=/dev/null \
        perf --no-pager "$@" </dev/null 2>&4 3<&- 4>&- &
    perf=$!
    exec 4>&-
    remember "$me/perf" "$perf"
    if [ "$stopping" = 1 ]; then
        stop_perf
    fi
}

# Waits for perf, however many signals come in between, and leaves its status.
await_perf() {
    while :; do
        wait "$perf"
        status=$?
        kill -0 "$perf" 2>/dev/null || break
    done
    perf=
    exec 3<&-
}

# The kernel makes the list of its symbols anew for every reader, at a cost that would show in each
# conversion: one copy serves a whole recording. Only root may know the addresses.
keep_symbols() {
    cat /proc/kallsyms >"$RUN_DIR/kallsyms.$$" && mv -f "$RUN_DIR/kallsyms.$$" "$RUN_DIR/kallsyms"
}

need_perf() {
    command -v perf >/dev/null || fail "no perf on this machine, install linux-perf"
}

# --- record ---

# Moves what perf has finished into the directory. perf names a file when it is whole.
move_finished() {
    for file in "$me"/cpu.*; do
        [ -f "$file" ] || continue
        sequence=$((sequence + 1))
        final=$(printf '%s.%06d' "$name" "$sequence")
        put_file "$final" <"$file" || echo "prof_collect: a file is lost: name=$final" >&2
        rm -f "$file"
    done
}

# record_events EVENTS: records until perf ends. perf has a line to say after each file.
record_events() {
    start_perf record -a -g -k CLOCK_MONOTONIC_RAW -F "$frequency" -e "$1" -B -N \
        -o "$me/cpu" --switch-output="${SWITCH_SECONDS}s"
    said=
    while read -r line <&3; do
        case $line in
            '[ perf record:'*) move_finished ;;
            *) said=${said:-$line} ;;
        esac
    done
    await_perf
    move_finished
}

record() {
    if ! { [ $# -eq 3 ] && matches "$1" "$DATA_DIR/[0-9]{1,10}/ai_ctrl_cpu\\.data\\.[0-9]{1,10}" &&
        matches "$2" '[0-9]{4}' &&
        matches "$3" '\{r[0-9A-Fa-f]{1,16}(,r[0-9A-Fa-f]{1,16}){0,7}\}'; }; then
        fail "--record: bad arguments"
    fi
    need_perf
    enter_directory "$1"
    frequency=$(printf '%s\n' "$2" | sed 's/^0*//')
    frequency=${frequency:-1}
    sequence=0
    begin_recorder
    keep_symbols
    record_events "$3"
    if [ "$stopping" = 0 ] && [ "$status" -ne 0 ] && [ "$sequence" -eq 0 ]; then
        echo "prof_collect: events not recorded, cpu-clock in their place: events=$3" >&2
        record_events cpu-clock
    fi
    [ "$stopping" = 1 ] || fail "perf ended by itself: status=$status, ${said:-no message}"
}

# --- stat ---

# The events for perf in known, and a line in the file for each that perf has no name for. read and
# write are the loads and stores of the last-level cache.
choose_events() {
    known=
    for event in $(printf '%s\n' "$1" | tr ',' ' '); do
        case $event in
            read) event=LLC-loads ;;
            write) event=LLC-stores ;;
        esac
        if env -i PATH="$PATH" LC_ALL=C HOME=/ PERF_CONFIG=/dev/null \
            perf stat -a -e "$event" -- true </dev/null >/dev/null 2>&1; then
            known=${known:+$known,}$event
        else
            echo "# <not supported> $event"
        fi
    done
}

count_events() {
    if ! { [ $# -eq 3 ] && matches "$1" "$DATA_DIR/[0-9]{1,10}/llc\\.data\\.[0-9]{1,10}" &&
        matches "$2" '[A-Za-z0-9_/]+(,[A-Za-z0-9_/]+)*' && matches "$3" '[1-9][0-9]{0,8}'; }; then
        fail "--stat: bad arguments"
    fi
    need_perf
    enter_directory "$1"
    begin_recorder
    choose_events "$2" >"$me/unknown"
    append_to "$name" <"$me/unknown" || fail "the file cannot be written: path=$1"
    if [ -z "$known" ]; then
        fail "perf knows none of the events: events=$2"
    fi
    [ "$stopping" = 0 ] || exit 0
    start_perf stat -a -I "$3" -e "$known"
    append_to "$name" <&3 &
    writer=$!
    await_perf
    while ! wait "$writer" && kill -0 "$writer" 2>/dev/null; do :; done
    [ "$stopping" = 1 ] || fail "perf ended by itself: status=$status"
}

# shellcheck disable=SC2016
append_to() {
    as_owner sh -c '[ ! -L "$1" ] && exec cat >>"$1"' sh "$1"
}

# --- script ---

# What perf reads here may be anybody's bytes: it runs as nobody, on a copy that it cannot change.
print_text() {
    file="$DATA_DIR/[0-9]{1,10}/ai_ctrl_cpu\\.data\\.[0-9]{1,10}\\.[0-9]{6}"
    if ! { [ $# -eq 1 ] && matches "$1" "$file"; }; then
        fail "--script: bad arguments"
    fi
    need_perf
    enter_directory "$1"
    make_run_dir
    copy=$(mktemp -d "$RUN_DIR/script.XXXXXXXX") || fail "no place for a copy: path=$RUN_DIR"
    trap 'rm -rf "$copy"' EXIT
    trap 'exit 1' TERM INT HUP
    # shellcheck disable=SC2016
    as_owner sh -c '[ -f "$1" ] && [ ! -L "$1" ] && exec cat -- "$1"' sh "$name" >"$copy/data" ||
        fail "no record file: path=$1"
    [ -f "$RUN_DIR/kallsyms" ] || keep_symbols
    cp "$RUN_DIR/kallsyms" "$copy/kallsyms"
    group=$(id -g nobody)
    chgrp -R "$group" "$copy" && chmod -R g=rX "$copy"
    cd "$copy" || fail "no place for a copy: path=$copy"
    setpriv --reuid=nobody --regid="$group" --clear-groups --inh-caps=-all --no-new-privs -- \
        env -i PATH="$PATH" LC_ALL=C HOME=/ PERF_CONFIG=/dev/null \
        perf --no-pager script --no-inline --kallsyms=kallsyms -i data </dev/null
}

# --- kill ---

# end_recorder DIRECTORY SIGNAL: TERM goes to the shell, or to its perf when the shell is gone; KILL
# goes to the perf.
end_recorder() {
    if [ "$2" = TERM ] && is_alive "$1/shell"; then
        kill -TERM "$pid" 2>/dev/null
    elif is_alive "$1/perf"; then
        kill -"$2" "$pid" 2>/dev/null
    fi
}

# Sends the signal twice a second, since a perf that is being started does not feel the first, until
# no recorder is left or the time is over.
end_recorders() {
    tries=0
    while [ "$tries" -lt $((KILL_SECONDS * 20)) ]; do
        left=0
        for recorder in "$RUN_DIR"/recorder.*; do
            if is_alive "$recorder/shell" || is_alive "$recorder/perf"; then
                left=1
                [ $((tries % 10)) -ne 0 ] || end_recorder "$recorder" "$1"
            fi
        done
        [ "$left" = 1 ] || return 0
        sleep 0.05
        tries=$((tries + 1))
    done
    return 1
}

# A recorder that has just made its directory is there by its number alone.
forget_dead_recorders() {
    for recorder in "$RUN_DIR"/recorder.*; do
        [ -d "/proc/${recorder##*.}" ] || rm -rf "$recorder"
    done
}

kill_recorders() {
    [ $# -eq 0 ] || fail "--kill: bad arguments"
    make_run_dir
    # A recorder looks at this after it has made its directory, and is looked for behind it here:
    # one of the two finds the other.
    start_of $$ >"$RUN_DIR/killed.$$" && mv -f "$RUN_DIR/killed.$$" "$RUN_DIR/killed"
    end_recorders TERM || end_recorders KILL || fail "a recorder does not end"
    forget_dead_recorders
    # The next recorder begins at a later tick than this kill.
    sleep 0.02
}

[ "$(id -u)" = 0 ] || fail "only root may do this"
[ $# -gt 0 ] || fail "no verb"
verb=$1
shift
case $verb in
    --record) record "$@" ;;
    --stat) count_events "$@" ;;
    --script) print_text "$@" ;;
    --kill) kill_recorders "$@" ;;
    *) fail "no such verb" ;;
esac
