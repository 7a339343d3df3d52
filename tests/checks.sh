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

# Sets `as_user`, to be put before a command that is to use a session daemon which is not the machine's: as a user
# without rights whose home is the folder given, with the folder's variables and PATH only. What it starts itself ends
# with this script.
as_private_user() { # HOME [VARIABLE=VALUE...]
    as_user=(env --ignore-environment PATH="$PATH" LC_ALL=C HOME="$1" LTTNG_HOME="$1" "${@:2}" setpriv --pdeathsig TERM)
    if [ "$(id -u)" -eq 0 ]; then
        chown 65534:65534 "$1"
        as_user+=(--reuid 65534 --regid 65534 --clear-groups)
    fi
    as_user+=(--)
}
