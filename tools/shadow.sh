#!/bin/sh
# Functions for scripts in a mount namespace of their own: an entry of a directory that is private
# while everything beside it stays what it is.

# Mounts one entry of the directory that lies below the new one, which is the working directory, at
# the same place again. Made absolute, its name would lead into the new one.
keep() {
    if [ -L "$1" ]; then
        cp -P "$1" "$2/$1"
    elif [ -d "$1" ]; then
        mkdir -p "$2/$1"
        mount -c --rbind "$1" "$2/$1"
    elif [ -e "$1" ]; then
        : >"$2/$1"
        mount -c --bind "$1" "$2/$1" 2>/dev/null || rm "$2/$1"
    fi
}

# shadow PARENT CHILD: PARENT looks as before, but PARENT/CHILD is an empty directory in memory.
shadow() {
    cd "$1" || exit
    mount -t tmpfs -o mode=0755 tiv-isolated "$1"
    for entry in * .[!.]*; do
        [ "$entry" = "$2" ] || keep "$entry" "$1"
    done
    mkdir -p "$1/$2"
    cd /
}
