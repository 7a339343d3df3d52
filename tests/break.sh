#!/usr/bin/env bash
# Breaks the product on purpose, one way of tests/breakages.txt after the other, in a copy of it, and prints which tests
# see each. Fails when one goes unseen.
#   scripts/test break         all of them
#   scripts/test break TEXT    the rows that contain TEXT
source "$(dirname "$0")/../scripts/common.sh"

[ $# -le 1 ] || usage 2 >&2
mapfile -t rows < <(grep -v '^#' tests/breakages.txt | grep -F -- "${1:- | }")
[ ${#rows[@]} -gt 0 ] || failed "no row of tests/breakages.txt contains $1"
short='\.|^(random|sweep)$' # GoogleTests have a dot
# What these see of what the library does, others see sooner.
slow='^(abi|consumer|documents|make_packages|package|rebuild)$'

# Replaces the one place of a text in a file, whatever the white space between its words and signs.
replace() { # FILE FROM TO
    perl -0pi -e '
        BEGIN { ($from, $to) = splice @ARGV, 0, 2; $from = join "\\s*", map quotemeta, $from =~ /\w+|[^\w\s]/g }
        $places = s/$from/$to/g;
        END { $? = $places != 1 }' "$2" "$3" "$1"
}

# Prints which tests fail, if any: random and sweep first, and no more than two by name.
seen_by() { # CTEST_OPTION REGEX TARGET...
    cmake --build --preset release --target "${@:3}" >build.log 2>&1 || { echo "the compiler"; return; }
    ctest --preset release --parallel "$(nproc)" "$1" "$2" >test.log 2>&1 || true
    sed -n 's/^.*Test *#[0-9]*: \([^ ]*\) \.*.*\*\*\*.*/\1/p' test.log | LC_ALL=C sort -u -t . -k 2 -k 1,1 |
        awk 'NR <= 2 { all = all (NR > 1 ? ", " : "") $0 }
            END { print all (NR > 2 ? " and " NR - 2 " more" : "") }'
}

scripts/setup test
copy=build/broken
say "building a copy in $copy"
mkdir -p "$copy"
git ls-files --cached --others --exclude-standard --deduplicate -z | while IFS= read -r -d '' file; do
    cmp --silent "$file" "$copy/$file" || cp --parents "$file" "$copy" # what is the same is not built again
done
sources=$PWD
cd "$copy"
quietly cmake --preset release -D CMAKE_COMPILE_WARNING_AS_ERROR=OFF # the tests are to see it
quietly cmake --build --preset release
quietly ctest --preset release --parallel "$(nproc)" --exclude-regex "$slow"

unseen=0
for row in "${rows[@]}"; do
    mapfile -t cells <<<"${row// | /$'\n'}"
    name=${cells[0]}
    file=${cells[1]}
    step "breaking: $name"
    replace "$file" "${cells[2]}" "${cells[3]}" || failed "$name: FROM is not in one place of $file"
    seen=$(seen_by --tests-regex "$short" zel-core-term-tests zel-proof)
    [ -n "$seen" ] || seen=$(seen_by --exclude-regex "$short|$slow" all)
    printf '%-52s %s\n' "$name" "${seen:-NOT SEEN}"
    [ -n "$seen" ] || unseen=$((unseen + 1))
    cp "$sources/$file" "$file"
done
[ "$unseen" -eq 0 ] || failed "$unseen unseen"
