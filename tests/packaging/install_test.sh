#!/bin/sh
# Installs into a directory of its own and looks at what is there.
#
# usage: install_test.sh CMAKE BUILD_DIRECTORY PREFIX
set -u
cmake=$1
build=$2
prefix=$3
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

die() {
    echo "FAILED: $*" >&2
    exit 1
}

expect() {
    [ "$1" = "$2" ] || die "$3: expected <$2>, got <$1>"
}

# A file with its mode.
expect_same() {
    cmp "$source_dir/packaging/$1" "$root$2" || die "$2 is not packaging/$1"
    expect "$(stat -c %a "$root$2")" "$3" "mode of $2"
}

(umask 077 && DESTDIR=$root "$cmake" --install "$build") >"$root/log" 2>&1 || die "$(cat "$root/log")"
rm "$root/log"

expect_same prof_collect.sh /var/prof_collect.sh 755
expect_same sudoers.d/tiv /etc/sudoers.d/tiv 440
expect "$(cd "$root" && find . -type f ! -path ".$prefix/*" | sort)" "./etc/sudoers.d/tiv
./var/prof_collect.sh" "files outside the prefix"
for program in tiv tivctl; do
    expect "$(stat -c %a "$root$prefix/bin/$program")" 755 "mode of $program"
done
version=$("$root$prefix/bin/tivctl" --version) || die "the installed tivctl does not run"
expect "$version" "$("$build/src/host/tivctl" --version)" "version of the installed tivctl"
library=$(find "$root$prefix" -name libtiv_driver.so)
if ldd "$build/src/host/tivctl" | grep -q libtiv_driver.so; then
    expect "$(ldd "$root$prefix/bin/tiv" | awk '$1 == "libtiv_driver.so" { print $3 }' | xargs realpath)" \
        "$(realpath "$library")" "driver library of the installed tiv"
fi

DESTDIR=$root/script "$cmake" --install "$build" --component control_cpu >/dev/null || die "component"
expect "$(cd "$root/script" && find . -type f | sort)" "./etc/sudoers.d/tiv
./var/prof_collect.sh" "files of the script alone"
