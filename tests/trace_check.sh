#!/usr/bin/env bash
# What the tour leaves in a trace that a session daemon of the check's own records: trace_check.sh SHELL PROJECT_FOLDER
source "$(dirname "$0")/checks.sh"
shell=$1
project=$2
expected=$project/tests/expected

# Everything runs as a user whose session daemon is not the machine's, and ends with this script.
private_tracer "$shell" "$project"
library_events='tn_zel_term:*,tn_zel_init:*'

# Sets `lost` to the tracer's count, and `losses_in_trace` to what the trace tells of lost events and packets.
end_session() {
    tracer stop "$1"
    lost=$(lost_events "$1")
    tracer destroy "$1"
    losses_in_trace=$(babeltrace2 "$home/$1" 2>&1 >/dev/null) || true
}

channel_options=(--subbuf-size 1M --num-subbuf 4)
start_session tour "$library_events"
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
channel_options=(--subbuf-size "$(getconf PAGESIZE)" --num-subbuf 2 --read-timer 500000)
start_session storm "$library_events"
printf 'start\n%.0s' {1..1000} | "${as_user[@]}" "$shell" >/dev/null
end_session storm
[[ $lost -gt 0 && -n $losses_in_trace ]] || fail "losses are not told"
