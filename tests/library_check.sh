#!/usr/bin/env bash
# What the built library promises to its loader: library_check.sh LIBRARY EXPECTED_FOLDER
set -euo pipefail
library=$1
expected=$2

compare() { # WHAT EXPECTED_FILE; the actual list comes on standard input
    diff -u --label "expected $1" --label "actual $1" "$2" - || { echo "FAILED: $1 of $library"; exit 1; }
}
require() { # WHAT PATTERN TEXT
    grep -qE "$2" <<<"$3" || { echo "FAILED: $1: nothing matches '$2' in $library"; exit 1; }
}
refuse() { # WHAT PATTERN TEXT
    ! grep -E "$2" <<<"$3" || { echo "FAILED: $1: '$2' matches in $library"; exit 1; }
}

dynamic=$(readelf --dynamic --wide "$library")
segments=$(readelf --program-headers --wide "$library")
symbols=$(nm --dynamic "$library")

nm --dynamic --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort | compare exports "$expected/exports.txt"
sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" | LC_ALL=C sort | compare "needed libraries" "$expected/needed.txt"
require "name" 'SONAME.*\[libzel-core-term\.so\.1\]' "$dynamic"
require "immediate binding" 'FLAGS.*BIND_NOW' "$dynamic"
refuse "text relocations" 'TEXTREL' "$dynamic"
refuse "symbolic binding" 'SYMBOLIC' "$dynamic"
require "read-only relocations" 'GNU_RELRO' "$segments"
require "a stack that is not executable" 'GNU_STACK.* RW ' "$segments"
require "stack protection" ' U __stack_chk_fail' "$symbols"
require "fortified formatting" ' U __vsnprintf_chk' "$symbols"
refuse "allocation, threads or locks" ' U (malloc|calloc|realloc|free|_Zn[wa]|_Zd[la]|pthread_|__cxa_guard)' "$symbols"
