#!/usr/bin/env bash
# The shell as its users meet it: shell_check.sh SHELL PROJECT_FOLDER
set -euo pipefail
shell=$(realpath "$1")
project=$2
failures=0

fail() { # to be called by the script itself: what a part of a pipeline counts is lost
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}

# What the tours show: events, tables, packets that arrive, leave and are dropped, and counters.
tours=$("$shell" "$project/examples/tour.zel" && "$shell" "$project/examples/l2tp-tour.zel") || fail "a tour ends with $?"
while IFS= read -r line; do
    grep -qE -- "^$line\$" <<<"$tours" || fail "no tour shows: $line"
done <<'LINES'
  tn_zel_term:FN_ENTER  zel_term:[0-9]+  GENERAL  zel_core_term_start\(\)
2   \[2001:db8::1\]:2152  \[2001:db8:7::7\]:2152  0    1400      0 \(128 in force\)
packet leaves through 0x100000004 as \[2001:db8::1\]:2152 -> \[2001:db8:7::7\]:2152, UDP, hop limit 7, path mtu 1280, vrf 0, dscp 26
IPv4 ingress: 1 packets, 200 octets
packet dropped: 0x100000001 matches it, but no binding leads on to a flow
packet dropped: the flow is not bound to an egress association
packet dropped: no ingress association matches it
F2F      INGRESS    0x100000002                           0x100000001
2   192.0.2.1 - 198.51.100.7  0    48    32 \(64 in force\)  0x100000005  0x100000002  0x100000004
101  1           ovlin 0x300065  ovlin 0x300066  26    0x100000008   0x100000009
packet ends at ovlin 0x003000c9 \(pcep 3, session 201\) through 0x100000002
packet leaves through 0x10000000d as 192.0.2.1 -> 203.0.113.9, L2TPv3, ttl 64, vrf 0, dscp 40
l2tp connection modify 1: 2 \(fell back to the old peer and DSCP\)
LINES

# Bad lines: the message, with where the line stands, and the exit status. Nothing after a bad line is carried out.
while IFS='|' read -r line message; do
    got=$(printf '# comment\n\n%s\nstart\n' "$line" | "$shell" 2>&1 >/dev/null) && fail "'$line' is accepted"
    [ "$got" = "standard input:3: $message" ] || fail "'$line' says: $got"
    got=$(printf '%s\nstart\n' "$line" | "$shell" 2>/dev/null) || true
    [[ $got != *"start: 0"* ]] || fail "'$line' does not stop the shell"
done <<'ROWS'
fly|unknown command 'fly'; expected start, stop, restart-data-plane, udp, l2tp, packet, send, fault, faults, objects, audit, calls, graph, ladder, trace, mark, expect, save, help, quit
udp|a command is missing; expected add, modify, disconnect, release, stats, free-id, show, fill, clear
udp fly 1|unknown command 'fly'; expected add, modify, disconnect, release, stats, free-id, show, fill, clear
help udp fly|unknown command 'fly'; expected add, modify, disconnect, release, stats, free-id, show, fill, clear
help udp add more|not expected: more
fly --help|unknown command 'fly'; expected start, stop, restart-data-plane, udp, l2tp, packet, send, fault, faults, objects, audit, calls, graph, ladder, trace, mark, expect, save, help, quit
start right now|not expected: right
udp modify 1 --ttl=7 --help|not expected: --help; expected --pmtu, --ttl
trace maybe|SWITCH: 'maybe' is none of on, exceptions, off
udp add|ID is required: udp_session_id, 1 to 70000; also the uplink flow's ovlin session id
udp modify 1 --mtu 1280|not expected: --mtu; expected --pmtu, --ttl
udp release one|ID: 'one' is not a number from 0 to 4294967295
udp modify 1 --ttl 256|--ttl: '256' is not a number from 0 to 255
udp modify 1 --ttl -1|--ttl: '-1' is not a number from 0 to 255
packet udp --to 192.0.2.1:1 --from 192.0.2.1|--from: '192.0.2.1' is not ADDRESS:PORT (IPv6: [ADDRESS]:PORT)
packet udp --to 192.0.2.1:1 --from 192.0.2.256:1|--from: '192.0.2.256' is not an IPv4 address
packet udp --to 192.0.2.1:1 --from [2001:db8::g]:1|--from: '2001:db8::g' is not an IPv6 address
packet udp --to 192.0.2.1:1 --from 2001:db8::1:2152|--from: '2001:db8::1:2152' is not ADDRESS:PORT (IPv6: [ADDRESS]:PORT)
packet udp --to 192.0.2.1:1 --from 192.0.2.1:65536|--from: '65536' is not a port from 0 to 65535
udp add 1 --local 192.0.2.1:1 --remote [::1]:1 --uplink-pcep 1 --downlink-pcep 1 --rat-session 1|--local is IPv4 and --remote is IPv6
udp modify 1|--pmtu or --ttl is required
udp release|ID is required: the session
l2tp connection|a command is missing; expected add, remove, modify, show
l2tp connection modify 1 --remote 192.0.2.300|--remote: '192.0.2.300' is not an IPv4 address
l2tp connection remove 1 --pcep 3|control connection 1 was not added here; --pcep and --rat-session are required
l2tp session remove 100|session 100 was not added here; --connection is required
l2tp connection modify 1 --remote 192.0.2.2|control connection 1 was not added here
packet l2tp --from 192.0.2.1 --to 192.0.2.2|--session or --connection is required, and not both
packet udp --from 192.0.2.1:1 --to [::1]:1|--from is IPv4 and --to is IPv6
fault vok_bind --nth 0|--nth: the next call is 1
fault vok_bind --status 0|--status: 0 is success
fault zel_ovlin_session_handler_set_session_type --ticks 5|the session-type hook takes --status, --nth and --every only
expect|expected a result code, or one of empty, only-interface, objects, bindings, audit, unchanged, shown, event
expect thirteen|expected a result code, or one of empty, only-interface, objects, bindings, audit, unchanged, shown, event
expect 0|there was no operation yet
expect shown "1 session|a quote is not closed: 1 session
expect unchanged|there is no mark to compare with; 'mark' makes one
expect event EXCEPTION|NAME: 'EXCEPTION' is none of tn_zel_init:EXCEPTION, tn_zel_term:API_CALL, tn_zel_term:ERROR, tn_zel_term:EXCEPTION, tn_zel_term:FN_ENTER, tn_zel_term:FN_EXIT, tn_zel_term:LAB
calls|there was no operation yet
udp fill 70001|COUNT: '70001' is not a number from 0 to 70000
save /nowhere/scenario.zel|/nowhere/scenario.zel: cannot be written: No such file or directory
objects nobody|WHAT: 'nobody' is neither a handle, as 0x100000001, nor an address
send 4096/1|FLOW: '4096/1' is not an ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)
ROWS

# How a scenario that does not go as written ends: "LINE: message", and lines below it. `|` parts the lines.
session='udp add 010 --local 192.0.2.1:1 --remote 192.0.2.2:1 --uplink-pcep 1 --downlink-pcep 1 --rat-session 1'
while IFS=@ read -r lines message; do
    got=$(tr '|' '\n' <<<"start|${lines//ADD/$session}" | "$shell" 2>&1 >/dev/null) &&
        fail "'$lines' passes"
    [ "$(tr '\n' '|' <<<"$got")" = "standard input:$message|" ] || fail "'$lines' says: $got"
done <<'ROWS'
ADD|expect empty@3: expected empty, and the data plane holds 2 objects, 2 bindings
ADD|expect only-interface@3: expected only-interface, and the data plane holds 2 objects, 2 bindings
ADD|expect objects 3@3: expected objects 3, and there are 2
ADD|expect bindings 3@3: expected bindings 3, and there are 2
ADD|expect audit 1@3: expected audit 1, and there are 0
ADD|expect 13@3: expected 13, came 0 (success) of udp add 10 in line 2
mark|ADD|udp disconnect 10|udp release 10|expect unchanged|ADD|udp disconnect 10|expect unchanged@9: expected the data plane unchanged since the mark, and it is not:|  new: IPv4 ingress 0x100000003 (192.0.2.2:1 -> 192.0.2.1:1), UDP|  new: IPv4 egress 0x100000004 (192.0.2.1:1 -> 192.0.2.2:1), UDP
fault vok_bind|ADD|objects@3: udp add 10 gave 13 (data-plane call failed), and no 'expect 13' follows it
fault vok_bind|ADD|objects|udp free-id|expect 13@3: udp add 10 gave 13 (data-plane call failed), and no 'expect 13' follows it
fault vok_bind --nth 3|ADD@2: the fault on vok_bind never fired: there were 2 calls
udp release 5|expect 4|expect event tn_zel_init:EXCEPTION "add"@4: expected an event tn_zel_init:EXCEPTION with "add" of udp release 5 in line 2, which fired:|  tn_zel_init:EXCEPTION  zel_core_term_udp_session_release(): session is free, (udp_session_id)
udp fill 2|fault vok_unbind --every|udp clear|expect shown "2 sessions released, 8 data-plane calls failed"|expect shown "udp clear"|audit|expect shown "line 4: udp clear"|expect 1@9: expected 1, came 0 (success) of udp release 2 in line 4
ADD|expect event tn_zel_term:ERROR@3: expected an event tn_zel_term:ERROR of udp add 10 in line 2, which fired none
udp release 7|expect 4|expect shown "as expected"@4: expected "as expected", and what was shown is|udp release 7: 4 (session is free)
udp add 1 --local 192.0.2.1:0 --remote 192.0.2.2:0 --vrf 5 --uplink-pcep 1 --downlink-pcep 2 --rat-session 1|packet udp --from 192.0.2.2:1 --to 192.0.2.1:2 --vrf 5|expect shown "ends at ovlin 0x00200001"|udp disconnect 1|packet udp --from 192.0.2.2:1 --to 192.0.2.1:2 --vrf 5|expect shown "no binding leads on"|udp stats 1|expect shown "ingress: 1 packets"|packet udp --from 192.0.2.2:1 --to 192.0.2.1:2|expect shown "ends"@11: expected "ends", and what was shown is|packet dropped: no ingress association matches it
ADD|fault vok_unbind --nth 2 --status 5 --ticks 30000000|fault vok_unbind --nth 2 --every --status 6|udp disconnect 10|expect event tn_zel_term:EXCEPTION "too large VOK"|calls|expect shown "undo"@8: expected "undo", and what was shown is|udp disconnect 10: 0 (success), 2 calls|       call        of                                                                answer|       vok_unbind  F2ID EGRESS 0x100000001 -> ovlin 0x00100001 (pcep 1, session 1)   ok|fault  vok_unbind  ID2F EGRESS ovlin 0x0010000a (pcep 1, session 10) -> 0x100000002  5, unknown status
ADD|restart-data-plane|start|ADD|send 1/10|expect shown "0x100000002"@7: expected "0x100000002", and what was shown is|packet leaves through 0x100000004 as 192.0.2.1:1 -> 192.0.2.2:1, UDP, vrf 0, dscp 0
l2tp connection add 1 --local 192.0.2.1 --remote 192.0.2.2 --connection-id 7 --pcep 3 --rat-session 11|l2tp connection add 2 --local 192.0.2.1 --remote 192.0.2.2 --connection-id 8 --pcep 3 --rat-session 12|packet l2tp --from 192.0.2.2 --to 192.0.2.1 --connection 8|expect shown "(pcep 3, session 12)"|l2tp connection remove 1 --pcep 4|l2tp connection add 1 --local 192.0.2.1 --remote 192.0.2.2 --connection-id 7 --pcep 5 --rat-session 11|expect audit 0@8: expected audit 0, and there are 3
l2tp connection add 1 --local 192.0.2.1 --remote 192.0.2.2 --connection-id 1 --pcep 3 --rat-session 1|l2tp session add 100 --connection 1 --local-session-id 5 --pcep 3 --rat-session 2|l2tp session remove 100|l2tp session remove 100@5: session 100 was not added here; --connection is required
ADD|udp show 10|expect shown "192.0.2.2:1"|udp show 9|expect shown "9 is not in use"|objects 192.0.2.2|expect shown "2 objects, 2 bindings"|objects udp 10|expect shown "10: 2 objects, 2 bindings"|objects 2001:db8::1|expect shown "nothing"|objects udp 9|expect shown "nothing"|objects 0x3|expect shown "nothing"|objects 0x100000002|expect shown "IPv6"@18: expected "IPv6", and what was shown is|0x100000002: 1 object, 1 binding|handle       object       vrf  from -> to                  header  owner|0x100000002  IPv4 egress  0    192.0.2.1:1 -> 192.0.2.2:1  UDP     UDP session 10|binding  direction  from                                   to           dscp|ID2F     EGRESS     ovlin 0x0010000a (pcep 1, session 10)  0x100000002  0
l2tp connection add 1 --local 192.0.2.1 --remote 192.0.2.2 --connection-id 7 --pcep 3 --rat-session 11|l2tp connection add 2 --local 192.0.2.1 --remote 192.0.2.2 --connection-id 8 --pcep 3 --rat-session 12|objects l2tp connection 2|expect shown "L2TP connection 2: 3 objects, 4 bindings"|expect shown "L2TP connection 1, L2TP connection 2"|objects l2tp session 100|expect shown "objects"@8: expected "objects", and what was shown is|L2TP session 100: nothing in the data plane
send 1/1|expect shown "leaves"@3: expected "leaves", and what was shown is|packet dropped: the flow is not bound to an egress association
ROWS
printf 'start\n%s\nudp show\n' "$session" | "$shell" | grep -q '^10 ' || fail "010 is not ten"

# Each scenario goes as written, and says at its head what it teaches.
for scenario in "$project"/examples/scenarios/*.zel; do
    grep -q '^# Teaches: ' "$scenario" || fail "$scenario does not say what it teaches"
    got=$("$shell" "$scenario" 2>&1) || fail "$scenario: $got"
done

# Every data-plane call can be made to fail, and every command's example can be carried out.
got=$(sed -nE '/vok_sys/d; s/.*\b(vok_[a-z0-9_]+)\(.*/fault \1/p; $s/.*/faults clear/p' "$project/platform/include/vok_cp.h" |
    "$shell" 2>&1 >/dev/null) || fail "cannot be made to fail: $got"
temporary=$(mktemp -d)
trap 'rm -rf "$temporary"' EXIT
cd "$temporary"
printf 'help\n' | "$shell" | sed '1,2d; s/   *.*//' >commands
while read -r command; do
    example=$(printf 'help %s\n' "$command" | "$shell" | sed -n 's/^example: //p')
    [[ ${example:=$command} == "$command"* ]] || fail "help $command shows the example '$example'"
    echo "$example"
done <commands >examples
grep -vE '^(start|stop|restart-data-plane|expect .*|faults? .*|udp (fill|clear|release|disconnect) .*|l2tp .* remove .*|quit|udp modify .*)$' examples |
    { echo start; cat; } | "$shell" >said 2>&1 || fail "an example: $(tail -n 3 said)"

# What a person tried comes back as a scenario that goes as written.
export ZEL_TERM_SHELL_HISTORY=$temporary/history
# shellcheck disable=SC2016 # the shell that `script` runs replaces $program, whatever characters the path has
typed() { program=$shell script --quiet --return --command 'exec "$program"' /dev/null; }
printf '%s\n' start $'fault vok_b\t' "$session" 'udp free-id' fly 'udp modify 1' 'expect shown "lowest free id: 1"' \
    'save tried.zel' quit | typed >said ||
    fail "the conversation ends with $?"
grep -q 'vok_bind: call number 1 fails' said || fail "a function's name is not completed: $(cat said)"
grep -q "unknown command 'fly'" said || fail "a conversation ends with a bad line: $(cat said)"
diff - <(sed 's/ $//' tried.zel) <<<"start
fault vok_bind
$session
expect 13
udp free-id
expect shown \"lowest free id: 1\"" || fail "another scenario was saved"
"$shell" tried.zel >said 2>&1 || fail "the saved scenario: $(tail -n 3 said)"
grep -qx 'udp free-id' history || fail "no history is kept"
seen() { for _ in {1..100}; do grep -qF -- "$1" said && return; sleep 0.1; done; echo "FAILED: no '$1' is seen" >&2; false; }
true >said
{ seen 'zel>' && printf 'udp add 1\001' && seen 'udp add 1' && printf '\003' && seen '^C' && printf 'start\nquit\n'; } |
    typed >said || fail "a conversation with ^C ends with $?"
grep -q 'start: 0' said || fail "^C does not take back a line: $(cat said)"
! grep -q $'[\r\b]^C' said || fail "^C overprints the line: $(cat -v said)"
true >said
{ seen 'zel>' && printf '%s\n' start 'fault vok_bind --every --ticks 1000000' 'udp fill 70000' && seen ' of 70000' &&
    printf '\003' && seen ' in use' && printf '%s\n' 'udp free-id' 'save part.zel' quit; } | typed >said
{ grep -q 'udp free-id: 0' said && "$shell" part.zel >said 2>&1; } || fail "a fill that ^C stopped: $(tail -n 3 said)"
true >'my picture.svg'
printf '%s\n' start "$session" $'udp release 1\t' $'help udp rel\t' $'fault --every vok_unb\t' $'graph my\t' 'save later.zel' quit | typed >said
for text in 'udp release 10: 0' 'example: udp release 1' 'vok_unbind: every call fails' 'wrote my picture.svg' \
    'it will fail: the fault on vok_unbind never fired'; do
    grep -q "$text" said || fail "what is completed does not come to '$text': $(cat said)"
done

# Long work shows how far it is on a terminal, and nothing of the kind in a file.
printf 'start\nudp fill 70000\nquit\n' | typed >said
grep -q ' of 70000 (' said || fail "no progress is shown on a terminal"
printf 'start\nudp fill 70000\n' | "$shell" >said
{ [ "$(wc -l <said)" -eq 4 ] && ! grep -q $'\r' said; } || fail "progress is shown in a file"

# What was not run, or whose output is lost, does not pass. $1: what it must say; the rest: the shell's arguments.
refuses() {
    local said
    said=$("$shell" "${@:2}" 2>&1 >/dev/null) && fail "'${*:2}' passes"
    [[ $said == *"$1"* ]] || fail "'${*:2}' says: $said"
}
refuses "/nowhere: cannot be read: No such file" /nowhere
refuses "cannot be read: No such file" ""
refuses "cannot be read: Is a directory" "$temporary"
refuses "standard input: cannot be read: Is a directory" <"$temporary"
for arguments in "$project/examples/tour.zel" --help --version; do
    "$shell" "$arguments" >/dev/full 2>&1 && fail "output of $arguments that is lost is no failure"
done
refuses "standard input:2: the line holds a NUL byte" < <(printf 'start\nsave b\0c.zel\n')
refuses "standard input:1: " <<<"udp stats 1 --fields=no"
refuses "standard input:2: udp release 7 gave 4" < <(printf 'start\nudp release 7\nsave unstated.zel\n')
grep -qx 'expect 4' unstated.zel || fail "a saved scenario does not state a result"
refuses "0: cannot be written: File name too long" < <(printf 'save %0300d\n' 0)

# Files are written as a whole or not at all, and nothing else is touched.
echo mine >picture.svg.part
mkdir links && ln -s ../picture.svg links/picture.svg && ln -s nothing links/dangling.zel
printf '%s\n' start 'graph links/picture.svg' | "$shell" >said || fail "a picture through a link: $(cat said)"
{ [ -L links/picture.svg ] && grep -q '<svg' picture.svg && grep -qx mine picture.svg.part; } ||
    fail "a picture replaces a link, or writes elsewhere"
refuses "links/dangling.zel exists already" <<<"save links/dangling.zel"
refuses "picture.svg exists already" <<<"save picture.svg"
(
    mkdir small && cd small && trap '' XFSZ && ulimit -f 0
    printf 'start\nsave full.zel\n' | "$shell" 2>&1 || true
) | grep -q 'full.zel: cannot be written: File too large' || fail "a file that cannot be written whole is no failure"
[ -z "$(ls -A small)" ] || fail "a part of a file is left: $(ls -A small)"

# A line costs what it does, however many sessions there are.
session='udp add & --local 192.0.2.1:1 --remote 192.0.2.2:& --uplink-pcep 1 --downlink-pcep 1 --rat-session 1'
seq 20000 | sed "s|.*|$session\nobjects udp &|" | { echo start && cat; } >many.zel
timeout 60 "$shell" many.zel >/dev/null || fail "20,000 sessions, a line each: $?"

echo "the shell: $failures failures"
[ "$failures" -eq 0 ]
