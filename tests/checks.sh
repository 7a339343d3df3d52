# Sourced by the checks: stops at the first failure and says what failed.
set -euo pipefail
export LC_ALL=C

fail() {
    echo "FAILED: $*"
    exit 1
}

# compare WHAT EXPECTED_FILE; the actual lines come on standard input. With ZEL_WRITE_EXPECTED in the environment the
# file is written instead, to be read before it is kept.
compare() {
    if [ -n "${ZEL_WRITE_EXPECTED:-}" ]; then
        cat >"$2"
    else
        diff -u --label "expected $1" --label "actual $1" "$2" - || fail "$1"
    fi
}
