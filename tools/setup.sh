#!/bin/sh
# Installs what the build, the tests and the checks need from Debian 12, as far as it is missing.
#
# usage: tools/setup.sh [--list]      --list prints the packages that are missing and installs none
#
# Root installs directly, others through sudo. Where neither works, the one command that root has to
# run is printed and the status is 1. Nothing is started and nothing outside the packages changes.
set -eu

packages='
    g++ cmake ninja-build ccache git
    clang-14 clang-tidy-14 clang-format-14 libclang-rt-14-dev
    libprotobuf-dev protobuf-compiler libfmt-dev libcli11-dev nlohmann-json3-dev
    libsqlite3-dev zlib1g-dev libjs-dygraphs
    libgtest-dev libgmock-dev libbenchmark-dev
    python3 chromium-headless-shell fonts-dejavu-core shellcheck linux-perf util-linux mount procps'

installed() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing_packages() {
    for package in $packages; do
        installed "$package" || printf '%s ' "$package"
    done
}

# as_root COMMAND...: runs it as root, or fails when there is no way to.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif ! command -v sudo >/dev/null 2>&1; then
        return 1
    elif [ -t 0 ]; then
        sudo "$@"
    else
        sudo -n "$@"
    fi
}

install_packages() {
    # An update that fails leaves the lists of the last one, which mostly do.
    as_root apt-get update -qq >&2 || true
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        -o DPkg::Lock::Timeout=300 "$@" >&2
}

if ! command -v dpkg-query >/dev/null 2>&1; then
    echo "setup: this is no Debian system; the build needs these packages or their like:$packages" >&2
    exit 1
fi

missing=$(missing_packages)
if [ "${1:-}" = --list ]; then
    echo "$missing"
    exit 0
fi
[ -n "$missing" ] || exit 0

echo "setup: installing $missing" >&2
# Words are meant to split. The status of apt says nothing: any half-configured package of the
# machine makes it fail. What counts is what is there afterwards.
# shellcheck disable=SC2086
install_packages $missing || true
missing=$(missing_packages)
[ -n "$missing" ] || exit 0

echo "setup: still missing: $missing" >&2
echo "setup: run this as root, then try again:" >&2
echo "    apt-get update && apt-get install -y --no-install-recommends $missing" >&2
exit 1
