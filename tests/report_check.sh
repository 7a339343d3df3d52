#!/usr/bin/env bash
# What zel-term-report tells of traces that a session daemon of the check's own records:
# report_check.sh SHELL PROJECT_FOLDER CALLER
source "$(dirname "$0")/checks.sh"
project=$2
private_tracer "$1" "$2"
cp "$3" "$home/bin/caller"
report=$project/report/zel-term-report

channel_options=(--subbuf-size 64K --num-subbuf 8)
context=(--type=vpid --type=vtid --type=procname)
run() { "${as_user[@]}" "$@"; }
end_sessions() {
    local name
    for name; do tracer destroy "$name"; done
}

# Each scenario, with all events and with failures only, and what its audit finds in the end. Of our own: what a stop
# leaves, after the removal of a session that never was and an add that takes a request from those that it shares with.
cat >"$home/stopped.zel" <<'LINES'
start
l2tp connection add 1 --local 192.0.2.1 --remote 198.51.100.7 --connection-id 1001 --pcep 3 --rat-session 11
l2tp connection add 2 --local 192.0.2.1 --remote 198.51.100.7 --connection-id 1002 --pcep 3 --rat-session 12
l2tp session remove 150 --connection 1
fault vok_l2tpv3_ingress_flow_create
l2tp connection add 3 --local 192.0.2.1 --remote 198.51.100.7 --connection-id 1003 --pcep 3 --rat-session 13
expect 13
l2tp session add 100 --connection 1 --local-session-id 50001 --pcep 3 --rat-session 101
stop
LINES
for scenario in "$home"/examples/scenarios/*.zel "$home/stopped.zel"; do
    name=$(basename "$scenario" .zel)
    start_session "$name" 'tn_zel_*'
    start_session "$name-failures" 'tn_zel_*' --loglevel=TRACE_ERR
    { cat "$scenario" && echo audit; } | run "$shell" | tac | sed '/^> audit/q' >"$home/$name.audit"
    end_sessions "$name" "$name-failures"
done

# Two processes at once, a caller's own events, a program that is not ours, and more events than there is room for.
start_session two 'tn_zel_*'
{ echo start && sleep 1 && sed '1,/^start$/d' "$home/examples/scenarios/double-fault.zel"; } | run "$shell" >/dev/null &
sleep 0.5 # the second one begins and ends while the first one waits
run "$shell" "$home/examples/scenarios/removal-that-fails.zel" >/dev/null
wait $!
end_sessions two
start_session caller 'tn_zel_*,lttng_ust_tracef:*'
run "$home/bin/caller"
start_session other 'lttng_ust_tracef:*'
run "$home/bin/caller" only
channel_options=(--subbuf-size "$(getconf PAGESIZE)" --num-subbuf 2 --read-timer 500000)
start_session storm 'tn_zel_*'
printf 'start\n%.0s' {1..1000} | run "$shell" >/dev/null
end_sessions caller other storm

# Damage of many kinds.
largest() { find "$1" -type f -name 'all_*' ! -name '*.idx' -printf '%s %p\n' | sort -n | sed -n '$s/^[0-9]* //p'; }
damaged() { cp -r "$home/session-left-out" "$home/$1"; }
metadata() { find "$home/$1" -name metadata; }
damaged cut
size=$(babeltrace2 "$home/cut" | wc -l)
file=$(largest "$home/cut")
truncate --size=6000 "$file"
damaged cut-metadata
truncate --size=3000 "$(metadata cut-metadata)"
mkdir "$home/empty"
damaged unknown
sed -i 's/tn_zel_term:LAB/tn_zel_term:NEW/' "$(metadata unknown)"
damaged unreadable
chmod -R a+rX "$home"
chmod -R a-r "$home/unreadable"

run /usr/bin/python3 "$project/tests/report_check.py" "$report" "$home" "$size" || fail "the report"

# As a component of babeltrace2 it says the same.
body() { sed '1,/^$/d; $d'; } # without what the trace is called, and the bars, which depend on the locale
babeltrace2 --plugin-path="$project/report" "$home/session-left-out" --component=sink.zel.report | body |
    diff - <("$report" "$home/session-left-out" | body) || fail "the component and the command differ"
