#!/usr/bin/env bash
# That programs compile against the headers without a warning, in every standard, and need no header of the stand-ins:
# interface_check.sh PROJECT_FOLDER
source "$(dirname "$0")/checks.sh"
project=$1
temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
cp "$project"/platform/include/{zel_init,zel_core_ic}.h "$temporary" # no other header of a platform is asked for
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Werror -fsyntax-only -I"$project/include" -I"$temporary")
c_warnings=("${warnings[@]}" -Wstrict-prototypes)
cxx_warnings=("${warnings[@]}" -Wold-style-cast -Wzero-as-null-pointer-constant -x c++)
consumer=$project/tests/consumers/signatures.c

for compiler in gcc clang; do
    for standard in c11 c17 c2x; do
        $compiler -std=$standard "${c_warnings[@]}" "$consumer" || fail "$compiler -std=$standard"
    done
    for standard in c++11 c++14 c++17 c++20 c++2b; do
        $compiler -std=$standard "${cxx_warnings[@]}" "$consumer" || fail "$compiler -std=$standard"
    done
    for header in "$project"/include/zel_core_term/*.h "$project"/platform/include/*.h; do # each by itself
        echo "#include \"$header\"" | $compiler -std=c11 "${c_warnings[@]}" -x c - || fail "$header in C"
        echo "#include \"$header\"" | $compiler -std=c++11 "${cxx_warnings[@]}" - || fail "$header in C++"
    done
done
