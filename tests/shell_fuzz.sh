#!/usr/bin/env bash
# Lines of the examples, changed at random, one after the other: the shell ends with 0 or 1, and with 1 whenever a line
# fails: shell_fuzz.sh SHELL PROJECT_FOLDER [LINES [SEED]]
set -euo pipefail
export LC_ALL=C # bytes of any kind
shell=$1
lines=${3:-300}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cat "$2"/examples/*.zel "$2"/examples/scenarios/*.zel >"$folder/lines"
cd "$folder"

# A word is dropped, doubled, exchanged or spoilt, and now and then a line comes as it is.
awk -v count="$lines" -v seed="${4:-1}" '
    BEGIN { srand(seed); split("0 -1 4294967296 0x 1/ \" [ :: -- - # \001 \377 %s x.svg --help", odd, " ") }
    { all[NR] = $0 }
    function any(n) { return 1 + int(n * rand()) }
    END {
        while (count-- > 0) {
            words = split(all[any(NR)], word, " ")
            at = any(words)
            change = any(6)
            if (change == 1) word[at] = ""
            else if (change == 2) word[at] = word[at] " " word[at]
            else if (change == 3) word[at] = word[any(words)]
            else if (change == 4) word[at] = odd[any(16)]
            else if (change == 5) word[at] = substr(word[at], 1, any(length(word[at]))) odd[any(16)]
            line = ""
            for (i = 1; i <= words; i++) line = line " " word[i]
            print line
        }
    }' lines | grep -avE '^ *(quit|udp fill|#)' >changed

failed=0
while [ -s changed ]; do
    status=0
    "$shell" changed >said 2>wrong || status=$?
    number=$(sed -nE '1s/^changed:([0-9]+): .*/\1/p' wrong)
    if [ "$status" -gt 1 ] || [ "$status" -ne "$(wc -l <wrong | sed 's/^[1-9].*/1/')" ]; then
        echo "FAILED: status $status:" >&2
        cat wrong >&2
        head -n "${number:-1}" changed | tail -n 3 >&2
        exit 1
    fi
    [ "$status" -eq 1 ] || break
    sed -i "1,${number}d" changed
    failed=$((failed + 1))
done
echo "$lines changed lines of the examples: $failed failed, as they should"
[ "$failed" -gt 0 ]
