#!/bin/sh
# Stands where the helper script is. It writes down how it is called and does what the files in
# /var/double.d say:
#
#   exits    a recorder ends at once with this status
#   deaf     a recorder goes on after a kill for as long as the file is there
#   loud     every call writes a megabyte to each of its outputs
#   exact    every text has so many bytes
#
# A recorder writes two files at once and a third one at its end, and ends with the status 7.
set -u
here=/var/double.d
echo "$PATH $*" >>"$here/calls"
PATH=/usr/bin:/bin
verb=$1
shift

noise() {
    head -c 1048575 /dev/zero | tr '\0' x
    echo
}

write_down_circumstances() {
    tr '\0' '\n' <"/proc/$$/environ" >"$here/environment"
    descriptors=$(ls -l "/proc/$$/fd")  # a redirection would show among them
    echo "$descriptors" >"$here/descriptors"
    cp "/proc/$$/status" "$here/status"
}

begin() {
    stopping=0
    trap 'stopping=1' TERM
    write_down_circumstances
    : >"$here/recorder.$$"
    [ ! -f "$here/exits" ] || end "$(cat "$here/exits")"
}

await_kill() {
    while [ -d "$here" ] && { [ "$stopping" = 0 ] || [ -f "$here/deaf" ]; }; do
        sleep 0.02
    done
}

end() {
    rm -f "$here/recorder.$$"
    exit "$1"
}

# put PATH NUMBER: one finished file.
put() {
    echo "part $2" >"${1%/*}/unfinished" && mv "${1%/*}/unfinished" "$1.00000$2"
}

record() {
    begin
    put "$1" 1
    put "$1" 2
    await_kill
    put "$1" 3
    end 7
}

count_events() {
    begin
    echo "counted $2" >>"$1"
    await_kill
    echo "last line" >>"$1"
    end 7
}

print_text() {
    if [ -f "$here/exact" ]; then
        head -c "$(cat "$here/exact")" /dev/zero | tr '\0' x
        return
    fi
    printf 'double 7 [000] 1.5: 1 r11: \n\tffff %s (double)\n\n' "$(cat "$1")"
}

kill_recorders() {
    for recorder in "$here"/recorder.*; do
        [ ! -f "$recorder" ] || kill -TERM "${recorder##*.}"
    done
}

if [ -f "$here/loud" ]; then
    noise
    noise >&2
fi
case $verb in
    --record) record "$@" ;;
    --stat) count_events "$@" ;;
    --script) print_text "$@" ;;
    --kill) kill_recorders ;;
esac
