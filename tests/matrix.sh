#!/usr/bin/env bash
# Builds and tests the project in ways that its presets do not: other compilers, build types, flags and places. Every
# warning is an error, and the interface is compared with the one in tests/expected.
#   scripts/test matrix          every row
#   scripts/test matrix ROW...   these
source "$(dirname "$0")/../scripts/common.sh"

# What CMake is told in a row, and what is in its environment.
describe() { # ROW
    options=() environment=()
    local version
    version=$(tr -dc 0-9 <<<"$1")
    case $1 in
    release) options=(-D CMAKE_BUILD_TYPE=Release) ;;
    none) options=(-D CMAKE_BUILD_TYPE=None) ;;
    default) ;;
    debug) options=(-D CMAKE_BUILD_TYPE=Debug) ;;
    minsizerel) options=(-D CMAKE_BUILD_TYPE=MinSizeRel) ;;
    lto) options=(-D CMAKE_INTERPROCEDURAL_OPTIMIZATION=ON) ;;
    unity) options=(-D CMAKE_UNITY_BUILD=ON) ;;
    c++23) options=(-D CMAKE_CXX_STANDARD=23 -D CMAKE_C_STANDARD=17) ;;
    assertions) environment=(CXXFLAGS=-D_GLIBCXX_ASSERTIONS) ;;
    fortify)
        options=(-D CMAKE_BUILD_TYPE=Release)
        environment=(CFLAGS=-D_FORTIFY_SOURCE=3 CXXFLAGS=-D_FORTIFY_SOURCE=3)
        ;;
    static-runtime) environment=(LDFLAGS="-static-libstdc++ -static-libgcc") ;;
    debian)
        options=(-D CMAKE_BUILD_TYPE=None)
        mapfile -t environment < <(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags)
        ;;
    tarball) ;;
    gcc-*) options=(-D CMAKE_BUILD_TYPE=Release) environment=(CC="$1" CXX="g++-$version") ;;
    clang-*-lto)
        options=(-D CMAKE_INTERPROCEDURAL_OPTIMIZATION=ON)
        environment=(CC="clang-$version" CXX="clang++-$version" LDFLAGS=-fuse-ld=lld)
        ;;
    clang-*) options=(-D CMAKE_BUILD_TYPE=Release) environment=(CC="$1" CXX="clang++-$version") ;;
    *) usage 2 >&2 ;;
    esac
}

run_row() { # ROW
    local source=$PWD build=$PWD/build/matrix/$1
    rm -rf "$build" # what an earlier run built would hide what this one cannot build
    if [ "$1" = tarball ]; then # without git, not to be written, and in a place that asks for quotes
        umask 077
        build="$PWD/build/matrix/tär [b] (all)"
        source=$build/source
        rm -rf "$build"
        mkdir -p "$source"
        git archive HEAD | tar -x -C "$source"
        chmod -R a-w "$source"
        build=$build/build
    fi
    quietly env "${environment[@]}" cmake --fresh -S "$source" -B "$build" -G Ninja \
        -D CMAKE_COMPILE_WARNING_AS_ERROR=ON -D CMAKE_CXX_FLAGS_INIT=-g "${options[@]}" # -g: to compare records
    quietly without_warning cmake --build "$build"
    quietly ctest --test-dir "$build" --parallel "$(nproc)" --output-on-failure --no-tests=error
    quietly tests/abi_check.sh "$(find "$build/lib" -maxdepth 2 -name libzel-core-term.so)" "$PWD"
    [ "$1" != tarball ] || [ -z "$(find "$source" -newer "$build/build.ninja")" ] || failed "the sources were written"
}

# The linker warns too, and is not told that its warnings are errors.
without_warning() {
    "$@" 2>&1 | tee build/matrix.log || return 1
    ! grep --quiet 'warning:' build/matrix.log
}

rows=("$@")
[ $# -gt 0 ] || rows=(release none default debug minsizerel lto unity c++23 assertions fortify static-runtime
    debian tarball gcc-11 clang-14 clang-15 clang-16 clang-19 clang-19-lto)
for row in "${rows[@]}"; do
    describe "$row"
done
case "${rows[*]}" in
*gcc* | *clang*) scripts/setup matrix ;;
*) scripts/setup test ;;
esac
for row in "${rows[@]}"; do
    describe "$row"
    say "$row: ${options[*]} ${environment[*]:0:3}"
    (run_row "$row")
done
