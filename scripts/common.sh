# Sourced by the other scripts: answers --help, says what is done, is silent about what worked, and stops at the first
# failure.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '== %s\n' "$*"; }

# Ends the script with a reason.
failed() {
    printf '== failed: %s\n' "$*" >&2
    exit 1
}

# Runs a command whose output matters only when it fails.
quietly() {
    local log
    log=$(mktemp)
    if ! "$@" >"$log" 2>&1; then
        tail -n 100 "$log" >&2
        rm -f "$log"
        failed "$*"
    fi
    rm -f "$log"
}

# Prints the comment at the head of a script and ends it: for --help (0), or for arguments that it does not take (2).
usage() {
    sed -n "2,/^[^#]/s/^# \\{0,1\\}//p" "$0"
    exit "$1"
}
[ "${1:-}" != --help ] || usage 0

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    say "building $preset in build/$preset"
    quietly cmake --preset "$preset"
    quietly cmake --build --preset "$preset" ${@:+--target "$@"}
}
