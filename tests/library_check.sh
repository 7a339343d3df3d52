#!/usr/bin/env bash
# What the built library promises to its loader, and to the stack of its caller:
# library_check.sh LIBRARY PROJECT_FOLDER OBJECT...
source "$(dirname "$0")/checks.sh"
library=$1
project=$2
shift 2

require() { # WHAT PATTERN TEXT
    grep -qE "$2" <<<"$3" || fail "$1: nothing matches '$2' in $library"
}
refuse() { # WHAT PATTERN TEXT
    ! grep -E "$2" <<<"$3" || fail "$1: '$2' matches in $library"
}

dynamic=$(readelf --dynamic --wide "$library")
segments=$(readelf --program-headers --wide "$library")
symbols=$(nm --dynamic "$library")

exports=$(nm --dynamic --defined-only "$library" | awk '{print $3}' | sort)
diff -u --label debian/libzel-core-term1.symbols --label "$library" \
    <(sed -n 's/^ \(.*\)@Base .*/\1/p' "$project/debian/libzel-core-term1.symbols") - <<<"$exports" || fail "exports"
diff -u --label "include/zel_core_term, src/ovlin_handler" --label "$library" \
    <(sed '/^#/d' "$project"/include/zel_core_term/*.h "$project"/src/ovlin_handler/*.cpp | tr '\n' ' ' |
        grep -o 'ZEL_CORE_TERM_API [^([;]*' | sed 's/.*[ *]//' | sort) - <<<"$exports" ||
    fail "what the headers declare is not what is exported"
# AArch64 has the loader itself among them, for the guard of the stack protection.
sed -n '/\[ld-linux-aarch64/d; s/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" | sort |
    compare "needed libraries" "$project/tests/expected/needed.txt"
require "name" 'SONAME.*\[libzel-core-term\.so\.1\]' "$dynamic"
require "immediate binding" 'FLAGS.*BIND_NOW' "$dynamic"
# shellcheck disable=SC2016 # the loader replaces $ORIGIN
require "a run path that moves with it" 'RUNPATH.*\[\$ORIGIN\]$' "$dynamic"
refuse "text relocations" 'TEXTREL' "$dynamic"
refuse "symbolic binding" 'SYMBOLIC' "$dynamic"
require "read-only relocations" 'GNU_RELRO' "$segments"
require "a stack that is not executable" 'GNU_STACK.* RW ' "$segments"
require "stack protection" ' U __stack_chk_fail' "$symbols"
require "fortified formatting" ' U __vsnprintf_chk' "$symbols"
refuse "allocation, threads or locks" ' U (malloc|calloc|realloc|free|_Zn[wa]|_Zd[la]|pthread_|__cxa_guard)' "$symbols"

# The compiler leaves the frame of each function beside the object: place, bytes and kind, of which "dynamic" has no
# bound.
frames=$(cat "${@/%.o/.su}" 2>&1) || {
    object=$(readelf --sections --wide "$1" 2>&1) || true
    grep -q 'LLVM bitcode\| \.gnu\.lto_' <<<"$object" || fail "no stack frames are told: $frames"
    echo "largest stack frame: not told, as the objects hold no machine code before they are linked"
    exit
}
refuse "a stack frame without bound" $'\tdynamic$' "$frames"
IFS=$'\t' read -r place bytes _ < <(sort --field-separator=$'\t' --key=2,2nr <<<"$frames")
function=$(sed -E 's/^[^:]*(:[0-9]+)+://; s/\(.*//; s/.* //' <<<"$place")
[ "$bytes" -lt 2048 ] || fail "a stack frame of $bytes bytes: $function"
echo "largest stack frame: $bytes bytes ($function)"
