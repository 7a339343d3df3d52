#!/usr/bin/env bash
# Programs outside the project, built against what is installed: by pkg-config in a folder that the packages are
# extracted into, and by find_package in a prefix that was moved after `cmake --install`.
# consumer_check.sh PROJECT_FOLDER BUILD_FOLDER PACKAGES_FOLDER
source "$(dirname "$0")/checks.sh"
project=$1
build=$2
packages=$3
consumers=$project/tests/consumers

temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
quietly() { "$@" >"$temporary/log" 2>&1 || fail "$*: $(cat "$temporary/log")"; }
same() { # WHAT ACTUAL; the expected lines come on standard input
    diff -u --label "expected $1" --label "actual $1" - <(echo "$2") || fail "$1"
}

extracted=$temporary/extracted
for package in "$packages"/*.deb; do
    dpkg-deb --extract "$package" "$extracted"
done
libraries=$extracted/usr/lib/$(gcc -print-multiarch)
export PKG_CONFIG_PATH=$libraries/pkgconfig PKG_CONFIG_SYSROOT_DIR=$extracted
export CPATH=$extracted/usr/include LIBRARY_PATH=$libraries LD_LIBRARY_PATH=$libraries
cflags=(-std=c11 -pedantic-errors -Wall -Wextra -Werror)
read -ra from_package < <(pkg-config --cflags zel-core-term)
read -ra libs < <(pkg-config --libs zel-core-term)
cflags+=("${from_package[@]}")
quietly gcc "${cflags[@]}" "$consumers/session.c" "${libs[@]}" -lvok_cp -o "$temporary/session"
same "the C consumer" "$("$temporary/session")" <<'LINES'
start: 0
add: 0
object 0x100000001: kind 0, bindings 1
object 0x100000002: kind 1, bindings 1
LINES

quietly gcc "${cflags[@]}" "$extracted/usr/share/doc/libzel-core-term-dev/examples/add_session.c" "${libs[@]}" \
    -o "$temporary/example"
quietly "$temporary/example"

unset CPATH LIBRARY_PATH LD_LIBRARY_PATH
prefix="$temporary/moved to here"
quietly cmake --install "$build" --prefix "$temporary/installed"
mv "$temporary/installed" "$prefix"
quietly cmake -S "$consumers" -B "$temporary/build" -G Ninja -D CMAKE_PREFIX_PATH="$prefix"
quietly cmake --build "$temporary/build"
same "the C++ consumer" "$("$temporary/build/session")" <<'LINES'
start: 0
add: 0
object 0x100000001: kind 2, bindings 1
object 0x100000002: kind 3, bindings 1
LINES
quietly "$prefix/bin/zel-term-shell" "$prefix/share/doc/zel-term-tools/examples/tour.zel"
