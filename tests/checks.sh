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
        diff -u --label "expected $1" --label "actual $1" "$2" - ||
            fail "$1; where that is meant, ZEL_WRITE_EXPECTED=1 in the environment writes $2"
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

# Starts a session daemon that is not the machine's, which ends with this script, and copies what is recorded to where
# its user may read it. Programs wait at their start until their events are enabled. Sets `home`, `as_user`, `shell`.
private_tracer() { # SHELL PROJECT_FOLDER
    home=$(mktemp -d)
    as_private_user "$home" LTTNG_UST_REGISTER_TIMEOUT=-1
    mkdir "$home/bin"
    cp "$1" "$home/bin/zel-term-shell"
    cp -r "$(dirname "$1")/../lib" "$2/examples" "$home"
    chmod -R a+rX "$home"/{bin,lib,examples}
    # shellcheck disable=SC2034 # for the checks
    shell=$home/bin/zel-term-shell

    "${as_user[@]}" lttng-sessiond --no-kernel >"$home/log" 2>&1 &
    daemon=$!
    trap 'kill "$daemon" 2>/dev/null && wait "$daemon" || true; rm -rf "$home"' EXIT
    for _ in {1..300}; do
        ! "${as_user[@]}" lttng --no-sessiond list >/dev/null 2>&1 || break
        kill -0 "$daemon" 2>/dev/null || fail "no session daemon: $(cat "$home/log")"
        sleep 0.1
    done
    tracer list
}

tracer() { "${as_user[@]}" lttng --no-sessiond "$@" >>"$home/log" 2>&1 || fail "lttng $*: $(cat "$home/log")"; }

# start_session NAME EVENTS [EVENT_OPTION...]; `channel_options` and `context` are options of the commands of that name.
channel_options=()
context=()
start_session() {
    tracer create "$1" --output="$home/$1"
    tracer enable-channel --userspace --session "$1" "${channel_options[@]}" all
    tracer enable-event --userspace --session "$1" --channel all "${@:2}"
    [ ${#context[@]} -eq 0 ] || tracer add-context --userspace --session "$1" --channel all "${context[@]}"
    tracer start "$1"
}

# The tracer's own count of the events that did not fit into the buffers.
lost_events() { "${as_user[@]}" lttng --no-sessiond list "$1" | sed -n 's/^ *Discarded events: //p'; }

# A document without its fenced blocks.
prose() { awk '/^ *```/ { fenced = !fenced; next } !fenced' "$1"; }
anchors() { prose "$1" | sed -n 's/^#\{1,6\} //p' | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'; }

# That the links of documents lead to files and headings.
check_links() { # DOCUMENT...
    local document target path links=0
    for document; do
        while read -r target; do
            path=$document
            [ -z "${target%%#*}" ] || path=$(dirname "$document")/${target%%#*}
            [ -e "$path" ] || fail "$document leads to $target: there is no such file"
            [[ $target != *'#'* ]] || grep -qxF -- "${target#*#}" < <(anchors "$path") ||
                fail "$document leads to $target: $path has no such heading"
            links=$((links + 1))
        done < <(prose "$document" | grep -oE '\]\([^)]+\)' | sed 's/^](//; s/)$//' | grep -v '^https\?:' | sort -u)
    done
    [ "$links" -gt 0 ] || fail "no links were seen"
}

# Prints a document with blocks as their commands print them now. Before a block stands one of
#   <!-- made by: COMMAND -->      prints the same wherever it runs
#   <!-- measured by: COMMAND -->  differs from run to run
# What a command says of its progress is no part of the block.
with_blocks() { # KINDS DOCUMENT
    local line
    while IFS= read -r line; do
        printf '%s\n' "$line"
        [[ $line =~ ^'<!-- '($1)' by: '(.*)' -->'$ ]] || continue
        printf '```\n'
        PATH=$PWD/build/release/bin:$PATH bash -euo pipefail -c "${BASH_REMATCH[2]}" </dev/null | sed '/^== /d' ||
            fail "${BASH_REMATCH[2]}" >&2
        printf '```\n'
        read -r # the opening fence
        while IFS= read -r line && [ "$line" != '```' ]; do :; done
    done <"$2"
}

# Writes all blocks of a document anew.
write_blocks() { # DOCUMENT
    local renewed
    renewed=$(mktemp)
    with_blocks 'made|measured' "$1" >"$renewed"
    cp "$renewed" "$1"
    rm "$renewed"
}
