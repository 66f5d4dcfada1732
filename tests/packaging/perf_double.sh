#!/bin/sh
# Stands where perf is: keeps a record of how it was called and does what the files beside it say.
#
#   unknown   one event name per line that it knows nothing of
#   files     number of finished files that a recording leaves at once (2)
#   deaf      it takes no notice of an interrupt
#   dies      it ends by itself
#
# In symbols it leaves the number of kernel symbols that a conversion was given.
here=/usr/local/sbin/perf.d
line="$*"
echo "$(id -un) $line" >>"$here/calls"
env >"$here/environment"

has_unknown_event() {
    [ -f "$here/unknown" ] && grep -qFf "$here/unknown" <<EOF
$line
EOF
}

option() {
    printf '%s\n' "$line" | sed -n "s/.* $1 \\([^ ]*\\).*/\\1/p"
}

wait_for_the_end() {
    if [ -f "$here/deaf" ]; then
        trap '' INT
    else
        trap 'leave' INT
    fi
    : >"$here/ready"
    while :; do
        sleep 0.05
    done
}

record() {
    out=$(option -o)
    count=$(cat "$here/files" 2>/dev/null || echo 2)
    number=0
    while [ "$number" -lt "$count" ]; do
        number=$((number + 1))
        echo "part $number" >"$out"
        mv "$out" "$out.$((20260000 + number))"
        echo "[ perf record: Dump $out.$number ]" >&2
    done
    echo unfinished >"$out"
}

leave() {
    if [ -n "$out" ]; then
        echo "last part" >"$out"
        mv "$out" "$out.20269999"
    else
        echo "last line" >&2
    fi
    exit 130
}

[ "$1" = --no-pager ] && shift
if has_unknown_event; then
    echo "no such event" >&2
    exit 255
fi
out=
case $1 in
    record)
        record
        [ ! -f "$here/dies" ] || exit 7
        wait_for_the_end
        ;;
    stat)
        case $line in
            *' true') exit 0 ;;
        esac
        echo "counted $(option -e)" >&2
        wait_for_the_end
        ;;
    script)
        wc -l <kallsyms >"$here/symbols"
        sed 's/^/text of /' "$(option -i)"
        ;;
esac
