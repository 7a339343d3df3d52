#!/usr/bin/env bash
# What a process is promised that uses the library: process_check.sh QUIET_OPERATIONS SHELL
source "$(dirname "$0")/checks.sh"
quiet_operations=$1
shell=$2

temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
export HOME=$temporary LTTNG_HOME=$temporary # where no session daemon is

# One file a thread; the one with the markers is of the thread that runs the operations.
strace -o /dev/null true || fail "strace cannot trace a process here, so that system calls cannot be seen"
strace -ff --signal=none -o "$temporary/calls" "$quiet_operations" || fail "the operations are not quiet"
thread=$(grep -l '^write(-1, "begin", 5)' "$temporary"/calls.*) || fail "no system calls were seen"
between=$(awk '/^write\(-1, "begin", 5\)/ { within = 1; next }
               /^write\(-1, "end", 3\)/ { within = 0 } within' "$thread")
[ "$(grep -c '^write(-1, "begin", 5)' "$thread")" -eq "$(grep -c '^write(-1, "end", 3)' "$thread")" ] ||
    fail "the operations did not come to their end"
[ -z "$between" ] || fail "system calls of the operations: $(sort <<<"$between" | uniq --count)"
echo "system calls of the operations: 0"

best_us=
for _ in {1..10}; do
    begin=${EPOCHREALTIME/./}
    "$shell" </dev/null
    took_us=$((${EPOCHREALTIME/./} - begin))
    ((took_us >= ${best_us:-took_us + 1})) || best_us=$took_us
done
echo "start-up without a session daemon: $best_us us, the best of 10"
[ "$best_us" -lt 100000 ] || fail "the start-up takes 100 ms or more"
