#!/usr/bin/env bash
# What the tour leaves in a trace that a session daemon of the check's own records: trace_check.sh SHELL PROJECT_FOLDER
source "$(dirname "$0")/checks.sh"
shell=$1
project=$2
expected=$project/tests/expected

# Everything runs as a user whose session daemon is not the machine's, and ends with this script. Programs wait at their
# start until their events are enabled.
home=$(mktemp -d)
as_private_user "$home" LTTNG_UST_REGISTER_TIMEOUT=-1

# Copies, as that user may not be let into the project's folders.
mkdir "$home/bin"
cp "$shell" "$home/bin/zel-term-shell"
cp -r "$(dirname "$shell")/../lib" "$project/examples" "$home"
chmod -R a+rX "$home"/{bin,lib,examples}
shell=$home/bin/zel-term-shell

"${as_user[@]}" lttng-sessiond --no-kernel >"$home/log" 2>&1 &
daemon=$!
trap 'kill "$daemon" 2>/dev/null && wait "$daemon" || true; rm -rf "$home"' EXIT

tracer() { "${as_user[@]}" lttng --no-sessiond "$@" >>"$home/log" 2>&1 || fail "lttng $*: $(cat "$home/log")"; }

# start_session NAME CHANNEL_OPTION...
start_session() {
    tracer create "$1" --output="$home/$1"
    tracer enable-channel --userspace --session "$1" "${@:2}" all
    tracer enable-event --userspace --session "$1" --channel all 'tn_zel_term:*,tn_zel_init:*'
    tracer start "$1"
}

# The tracer's own count of the events that did not fit into the buffers.
lost_events() { "${as_user[@]}" lttng --no-sessiond list "$1" | sed -n 's/^ *Discarded events: //p'; }

# Sets `lost` to that count, and `losses_in_trace` to what the trace tells of lost events and packets.
end_session() {
    tracer stop "$1"
    lost=$(lost_events "$1")
    tracer destroy "$1"
    losses_in_trace=$(babeltrace2 "$home/$1" 2>&1 >/dev/null) || true
}

for _ in {1..300}; do
    ! "${as_user[@]}" lttng --no-sessiond list >/dev/null 2>&1 || break
    kill -0 "$daemon" 2>/dev/null || fail "no session daemon: $(cat "$home/log")"
    sleep 0.1
done
tracer list

start_session tour --subbuf-size 1M --num-subbuf 4
"${as_user[@]}" "$shell" "$home/examples/tour.zel" >/dev/null
end_session tour
[ "$lost" = 0 ] || fail "the trace lost ${lost:-an unknown number of} events"
[ -z "$losses_in_trace" ] || fail "the trace is not whole: ${losses_in_trace%%$'\n'*}"

# Without times, lines and true delay warnings.
babeltrace2 --no-delta --fields=loglevel "$home/tour" |
    sed -E '/ category = "SESSION_API_DELAY"/d; s/^\[[^]]*\] //; s/ \{ cpu_id = [0-9]+ \},//
        s/( location = "[a-z0-9_]+):[0-9]+"/\1:LINE"/' |
    compare "trace of the tour" "$expected/trace_tour.txt"
echo "events in the trace of tour: $(babeltrace2 "$home/tour" | wc -l), lost: 0"

# All events that the providers define, whether the tour fires them or not, an event a line.
babeltrace2 --output-format=ctf-metadata "$home"/tour/ust/uid/*/*-bit |
    awk 'BEGIN { RS = "" } /^event / { gsub(/[\n\t]+/, " "); sub(/ id = [0-9]+; stream_id = [0-9]+;/, ""); print }' |
    sort | compare "event definitions" "$expected/trace_events.txt"

# A session whose small buffers are emptied twice a second at the most loses some of a storm of events, and says so.
start_session storm --subbuf-size "$(getconf PAGESIZE)" --num-subbuf 2 --read-timer 500000
printf 'start\n%.0s' {1..1000} | "${as_user[@]}" "$shell" >/dev/null
end_session storm
[[ $lost -gt 0 && -n $losses_in_trace ]] || fail "losses are not told"
