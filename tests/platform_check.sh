#!/usr/bin/env bash
# That the library is built on another maker's platform, alone and inside another project, and that a platform which
# differs, or is not there, is refused: platform_check.sh PROJECT_FOLDER
source "$(dirname "$0")/checks.sh"
project=$1
temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
quietly() { "$@" >"$temporary/log" 2>&1 || fail "$*: $(cat "$temporary/log")"; }
refused() { # LINE COMMAND...
    ! "${@:2}" >"$temporary/log" 2>&1 || fail "not refused: ${*:2}"
    tr '\n' ' ' <"$temporary/log" | tr -s ' ' | grep -qF -- "$1" ||
        fail "${*:2} does not say '$1': $(cat "$temporary/log")"
}

# The platform: the stand-ins, behind headers as another maker would write them. Its data plane, which says what it is
# asked for, has a version; its other libraries do not even have a SONAME.
platform="$temporary/their platform"
stand_ins=$project/platform/stand_ins
mkdir -p "$platform"/{lib,include}
for header in "$project"/platform/include/*.h; do
    sed -E 's/const (vok_|void|char)/\1/g # nothing is const
        s/^uint32_t (vok_)/int32_t \1/; s/uint32_t status\)/int32_t status)/ # statuses have a sign
        s/(vok_syshandle_get\()uint32_t first, uint32_t/\1uint64_t first, uint64_t/
        s/^uint32_t (zel_fmt_ipv)/void \1/
        s/vok_ip[a-z0-9_]*_stats \*/void */ # what a function takes has other names, or none
        s/vok_l2tpv3_ingress_interface_record \*/uint32_t */; s/vok_l2tpv3_egress_flow_record \*/uint64_t */
        s/vok_l2tpv3_ingress_flow_record/their_flow/
        s/uint8_t (src|dst)Addr\[16\]/uint32_t \1Addr[4]/; s/uint8_t reserved_08\[8\]/uint64_t others/' \
        "$header" >"$platform/include/${header##*/}"
    [[ $header == */zel_init.h ]] || ! cmp -s "$header" "$platform/include/${header##*/}" || fail "$header is theirs"
done
sed -E 's/answer\(void\)/answer(const char *operation)/; s/answer\(\)/answer(__func__)/; s/\+\+calls;/puts(operation);/
    s/\(void\)instance, \(void\)record;/printf("%#x %lu -> %#x %lu: ", record->srcFlowID, record->srcFlowHandle,\
        record->dstFlowID, record->destFlowHandle);/' "$stand_ins/null_vok_cp.c" >"$temporary/vok_cp.c"
cc=(gcc -std=c11 -shared -fPIC -include stdio.h -I"$project/platform/include" -I"$stand_ins/include")
quietly "${cc[@]}" "$temporary/vok_cp.c" -Wl,-soname,libvok_cp.so.3 -o "$platform/lib/libvok_cp.so.3.1"
ln -s libvok_cp.so.3.1 "$platform/lib/libvok_cp.so.3"
ln -s libvok_cp.so.3 "$platform/lib/libvok_cp.so"
for library in zel_init zel_core_ic kiv_util zel_fmt; do
    quietly "${cc[@]}" "$stand_ins/$library.c" -o "$platform/lib/lib$library.so"
done

# The library alone looks for nothing but the tracer.
alone=(-G Ninja -D BUILD_TESTING=OFF -D ZEL_SHELL=OFF -D ZEL_BENCH=OFF -D ZEL_STAND_INS=OFF)
installed="$temporary/installed"
quietly cmake -S "$project" -B "$temporary/build" "${alone[@]}" -D ZEL_PLATFORM="$platform" \
    --trace-expand --trace-redirect="$temporary/trace"
looked_for=$(sed -nE 's/.*\([0-9]+\):  (find_package|pkg_check_modules)\(([A-Za-z0-9_-]+) .*/\2/p' \
    "$temporary/trace" | sort -u)
[ "$looked_for" = LTTngUST ] || fail "CMake looks for more than the tracer: $looked_for"
quietly cmake --build "$temporary/build"
quietly cmake --install "$temporary/build" --prefix "$installed"
needed=$(readelf --dynamic --wide "$installed/lib/libzel-core-term.so" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort)
diff -u --label expected --label needed - <(grep -vE '^(libc|ld-linux.*)\.so' <<<"$needed") <<'LINES' ||
libkiv_util.so
libtn_zel_init.so
libtn_zel_term.so
libvok_cp.so.3
libzel_core_ic.so
libzel_fmt.so
libzel_init.so
LINES
    fail "needed libraries"
[ -z "$(find "$installed" -name '*vok_cp*' -o -name 'zel-term-shell*')" ] || fail "more than the library is installed"

# With the platform's own package, made of the installed templates, programs find both.
mkdir -p "$platform"/lib/{pkgconfig,cmake/zel-platform}
cp "$installed/share/zel-core-term/platform/zel-platform.pc" "$platform/lib/pkgconfig"
cp "$installed/share/zel-core-term/platform/zel-platform-config.cmake" "$platform/lib/cmake/zel-platform"
example=$project/examples/add_session.c
calls() { # FOLDER: how the example runs with the libraries of the folder
    diff -u --label expected --label actual - \
        <(LD_LIBRARY_PATH="$1:$platform/lib" "$temporary/example" 2>&1) <<'LINES' ||
vok_ip_ingress_association_create
vok_ip_egress_association_create
0x100001 0 -> 0 2: vok_bind
0 1 -> 0x200005 0: vok_bind
add: 0
0 1 -> 0x200005 0: vok_unbind
0x100001 0 -> 0 2: vok_unbind
vok_ip_ingress_association_delete
vok_ip_egress_association_delete
LINES
        fail "the example over another data plane"
}
export PKG_CONFIG_PATH=$installed/lib/pkgconfig:$platform/lib/pkgconfig
options=()
eval "options=($(pkg-config --cflags --libs zel-core-term))" # pkg-config quotes the blank in the path
quietly gcc -std=c11 "$example" "${options[@]}" -o "$temporary/example"
calls "$installed/lib"

program() { # FOLDER LINE...: a project that builds the example
    mkdir "$1"
    { printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(program LANGUAGES C CXX)' "${@:2}" \
        "add_executable(example [[$example]])" 'target_link_libraries(example PRIVATE zel::core-term)'
    } >"$1/CMakeLists.txt"
}
program "$temporary/finder" 'find_package(zel-core-term 1 REQUIRED)'
quietly cmake -S "$temporary/finder" -B "$temporary/finder/build" -G Ninja \
    -D zel-core-term_DIR="$installed/lib/cmake/zel-core-term" -D zel-platform_DIR="$platform/lib/cmake/zel-platform"
quietly cmake --build "$temporary/finder/build"
mv "$temporary/finder/build/example" "$temporary/example"
calls "$installed/lib"
program "$temporary/asker" 'find_package(zel-core-term REQUIRED COMPONENTS nosuch)'
refused "zel-core-term has no component nosuch" cmake -S "$temporary/asker" -B "$temporary/asker/build" \
    -D CMAKE_PREFIX_PATH="$installed;$platform"

# Inside another project there is the library and nothing else; the platform is found by its package.
program "$temporary/parent" "set(CMAKE_CXX_STANDARD 17)" "include(FetchContent)" \
    "FetchContent_Declare(zel-core-term SOURCE_DIR [[$project]])" "FetchContent_MakeAvailable(zel-core-term)"
quietly cmake -S "$temporary/parent" -B "$temporary/parent/build" -G Ninja -D ZEL_STAND_INS=OFF \
    -D CMAKE_PREFIX_PATH="$platform"
quietly cmake --build "$temporary/parent/build"
[ -z "$(find "$temporary/parent/build" -name '*vok_cp*' -o -name 'zel-term-shell*' -o -name '*tests')" ] ||
    fail "more than the library is built inside another project"
mv "$temporary/parent/build/example" "$temporary/example"
calls "$temporary/parent/build/_deps/zel-core-term-build/lib"
quietly cmake -S "$temporary/parent" -B "$temporary/parent/build" -D ZEL_STAND_INS=ON
quietly cmake --build "$temporary/parent/build"
quietly "$temporary/parent/build/example"
quietly cmake --install "$temporary/parent/build" --prefix "$temporary/parent/installed"
[ -z "$(find "$temporary/parent/installed" -name '*vok_cp*')" ] || fail "the stand-ins are installed unasked"

# A platform that differs from what the library fills and calls.
differs() { # HEADER CHANGE MESSAGE
    rm -rf "$temporary/changed"
    cp -r "$platform/include" "$temporary/changed"
    sed -i "$2" "$temporary/changed/$1"
    ! cmp -s "$temporary/changed/$1" "$platform/include/$1" || fail "'$2' changes nothing"
    refused "$3" g++ -std=c++20 -fsyntax-only -I"$temporary/changed" -I"$project/src" -I"$project/include" \
        -x c++ "$project/src/term/platform.h"
}
differs vok_cp.h '/struct vok_ip_ingress_record/,/^}/ { s/dstAddr/other/; s/srcAddr/dstAddr/; s/other/srcAddr/ }' \
    'vok_ip_ingress_record.dstAddr lies at another offset'
differs vok_cp.h 's/reserved_40\[20\]/reserved_40[16]/' 'vok_bind_record.param54 lies at another offset'
differs vok_cp.h 's/reserved_55\[91\]/reserved_55[87]/' 'vok_ipv6_ingress_record has another size'
differs vok_cp.h 's/uint16_t mtu;/uint8_t mtu, other;/' 'vok_ipv6_egress_record.mtu has another width'
differs vok_cp.h 's/vok_unbind(uint64_t /vok_unbind(uint32_t /' 'vok_unbind has other parameters or another result'
differs vok_cp.h 's/uint32_t identifier;/uint64_t identifier, more;/' \
    'vok_l2tpv3_ingress_flow_create has other parameters'
differs vok_cp.h 's/int32_t vok_bind(/int64_t vok_bind(/' 'vok_bind has other parameters or another result'
differs vok_cp.h 's/vok_bind(uint64_t instance, vok_bind/vok_bind(uint64_t instance, vok_ip_egress/' 'vok_bind has'
differs vok_cp.h '/_interface_add(/,/;/ s/uint64_t \*handle/const &/' \
    'vok_l2tpv3_ingress_interface_add has other parameters'
differs vok_cp.h 's/vok_sys_status_get(uint64_t/vok_sys_status_get(uint32_t/' 'vok_sys_status_get has other parameters'
differs zel_init.h 's/reserved_01\[9\]/reserved_01[8]/' 'zel_handles_t has another size'

# What cannot be built is refused with a line that says what to do.
configure() { refused "$1" cmake -S "$project" -B "$temporary/refused" --fresh "${@:2}"; }
configure "ZEL_SHELL is ON or OFF, not 'maybe'" -D ZEL_SHELL=maybe
configure "ZEL_SHELL needs the stand-ins: set" -D ZEL_SHELL=ON -D ZEL_STAND_INS=OFF
configure "There is no platform: set ZEL_PLATFORM to" -D ZEL_STAND_INS=OFF
configure "there is no vok_cp.h in $temporary" -D ZEL_PLATFORM="$temporary/nowhere"
rm "$platform/lib/libzel_fmt.so"
configure "there is no libzel_fmt.so in" -D ZEL_PLATFORM="$platform"
configure "MinSizeRel, not 'Relase'" -D CMAKE_BUILD_TYPE=Relase
configure "LTTng-UST 2.13 or newer is not there: install" -D CMAKE_DISABLE_FIND_PACKAGE_LTTngUST=ON
configure "The shell needs pkg-config, libcli11-dev" -D CMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -D BUILD_TESTING=OFF
configure "The tests need libgtest-dev" -D CMAKE_DISABLE_FIND_PACKAGE_GTest=ON
