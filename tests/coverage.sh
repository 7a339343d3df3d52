#!/usr/bin/env bash
# Runs the tests in a build that counts what runs, and prints how much of src/ that is. Fails when a line has not run
# that tests/expected/uncovered.txt does not give a reason for, or when less than 95 % of the branches were taken.
source "$(dirname "$0")/../scripts/common.sh"

[ $# -eq 0 ] || usage 2 >&2

report() { gcovr --root . --filter src/ build/coverage "$1" -; }

# "FILE: TEXT" of each line that has not run.
not_run() {
    report --sonarqube | tr '<' '\n' |
        awk -F '"' '/^file / { file = $2 } /covered="false"/ { print file, $2 }' |
        while read -r file number; do
            echo "$file: $(sed -n "${number}s/^ *//p" "$file")"
        done
}

scripts/setup test
build coverage
say "testing coverage"
find build/coverage -name '*.gcda' -delete
quietly ctest --preset coverage --parallel "$(nproc)" --output-on-failure --no-tests=error

report --csv | awk -F, '
    NR == 1 { printf "%-50s %14s %14s\n", "source", "lines", "branches"; next }
    { printf "%-50s %7d of %4d %7d of %4d\n", $1, $3, $2, $6, $5
      lines += $2; lines_run += $3; branches += $5; branches_taken += $6 }
    END { printf "%-50s %12.1f %% %12.1f %%\n", "all", 100 * lines_run / lines, 100 * branches_taken / branches
          exit branches_taken < 0.95 * branches }' || failed "less than 95 % of the branches were taken"
echo
echo "lines that no test runs:"
cat tests/expected/uncovered.txt
diff --label "allowed not to run" --label "not run" -u <(grep -v '^#' tests/expected/uncovered.txt) <(not_run) >&2 ||
    failed "not the lines of tests/expected/uncovered.txt"
