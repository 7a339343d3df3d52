#!/usr/bin/env bash
# That the records and functions of the library's interface are those of tests/expected/libzel-core-term.abi:
# abi_check.sh LIBRARY PROJECT_FOLDER [OBJECT...]
# With the library's objects, also that the check sees what it is there for. With ZEL_WRITE_EXPECTED in the environment
# the interface as it is becomes the expected one.
source "$(dirname "$0")/checks.sh"
library=$1
project=$2
shift 2
baseline=$project/tests/expected/libzel-core-term.abi

# Says what has changed. Without debug information there would be nothing that records could be compared by, and
# abidiff would find no difference; it also finds none when it is told the headers of a baseline without places.
same_interface() {
    readelf --sections --wide "$1" | grep -q ' \.debug_info ' || { echo "$1 has no debug information"; return 1; }
    abidiff --exported-interfaces-only --no-show-locs "$baseline" "$1"
}

if [ -n "${ZEL_WRITE_EXPECTED:-}" ]; then
    abidw --exported-interfaces-only --drop-undefined-syms --no-show-locs --no-corpus-path --no-comp-dir-path \
        --no-elf-needed --type-id-style hash "$library" >"$baseline"
fi
same_interface "$library" || fail "the interface has changed"
[ $# -gt 0 ] || exit 0

# The check sees what it is there for: a record whose fields change places, and a library that it cannot compare.
temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
cp -r "$project/include" "$temporary"
sed -i '/^ZEL_LAYOUT_FIELD/d; s/src_flow_id;/SRC;/; s/dst_flow_id;/src_flow_id;/; s/SRC;/dst_flow_id;/' \
    "$temporary/include/zel_core_term/zel_l2tp_session.h"
g++ -std=c++20 -g -fPIC -I"$temporary/include" -I"$project"/{platform/include,src,trace} \
    -c "$project/src/l2tp/zel_l2tp_session.cpp" -o "$temporary/changed.o"
others=()
for object; do
    [[ $object == */zel_l2tp_session.cpp.o ]] || others+=("$object")
done
g++ -shared -Wl,-soname,libzel-core-term.so.1 -Wl,--version-script="$project/src/libzel-core-term.map" \
    "$temporary/changed.o" "${others[@]}" -o "$temporary/changed.so"
seen=$(same_interface "$temporary/changed.so") && fail "a changed record is not seen"
grep -q "'uint32_t src_flow_id' offset changed from 64 to 96" <<<"$seen" || fail "the change is not told: $seen"

strip --strip-debug "$library" -o "$temporary/stripped.so"
seen=$(same_interface "$temporary/stripped.so") && fail "a library without debug information passes"
[[ $seen == *"has no debug information" ]] || fail "a library without debug information gives: $seen"
