# Sourced by the other scripts: answers --help, says what is done, is silent about what worked, stops at the first
# failure, and leaves neither files in TMPDIR nor processes, however a script ends.
set -euo pipefail
script=$(realpath "$0")
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Notes what is done from here on, and since when; not in what runs quietly, which is part of a step.
step() { printf '%s %s\n' "$EPOCHSECONDS" "$*" >"${STEP_FILE:-$TMPDIR/step}"; }

# Says it too.
say() {
    step "$*"
    printf '== %s\n' "$*"
}

# Ends the script with a reason.
failed() {
    printf '== failed: %s\n' "$*" >&2
    exit 1
}

# Runs a command whose output matters only when it fails.
quietly() {
    local log
    log=$(mktemp)
    STEP_FILE=/dev/null "$@" >"$log" 2>&1 && return
    tail -n 100 "$log" >&2
    failed "$*"
}

# Prints the comment at the head of a script and ends it: for --help (0), or for arguments that it does not take (2).
usage() {
    sed -n "2,/^[^#]/s/^# \\{0,1\\}//p" "$script"
    exit "$1"
}
[ "${1:-}" != --help ] || usage 0

# build PRESET [TARGET...]
build() {
    say "building $1 in build/$1"
    quietly cmake --preset "$1"
    quietly cmake --build --preset "$1" ${2:+--target "${@:2}"}
}

# The processes whose environment names the folder.
processes_of() { grep -lsF "$1" /proc/[0-9]*/environ | cut -d / -f 3; }

clean_up() { # FOLDER
    trap '' HUP INT TERM
    local signal=TERM attempt left
    for attempt in {1..60}; do
        mapfile -t left < <(processes_of "$1")
        [ ${#left[@]} -gt 0 ] || break
        [ "$attempt" -lt 50 ] || signal=KILL
        kill -"$signal" "${left[@]}" 2>/dev/null || true
        sleep 0.1
    done
    rm -rf "$1"
}

# The outermost script runs itself again, with a folder of its own for TMPDIR, and cleans up after that.
if [[ ${TMPDIR:-} != */zel-script.?????? ]]; then
    folder=$(mktemp -d -t zel-script.XXXXXX 2>/dev/null) ||
        failed "no file can be made in ${TMPDIR:-/tmp}: set TMPDIR to a folder that exists and can be written"
    trap 'clean_up "$folder"' EXIT
    trap 'exit 130' HUP INT TERM
    chmod 755 "$folder" # programs that run as another user have folders in it
    TMPDIR=$folder env --default-signal "$script" "$@" &
    wait $!
    exit
fi
