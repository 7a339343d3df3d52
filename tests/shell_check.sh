#!/usr/bin/env bash
# The shell as its users meet it: shell_check.sh SHELL PROJECT_FOLDER
set -euo pipefail
shell=$1
project=$2
failures=0

fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# The tours are what the README shows, the lines of its trace locations and true delay warnings aside.
without_lines() { sed -E '/  SESSION_API_DELAY  /d; s/^(  tn_zel_[a-z]+:[A-Z_]+  [a-z0-9_]+):[0-9]+ /\1 /'; }
readme_block() { sed -n "/^== zel-term-shell examples\/$1\$/,/^\(== .*\|\`\`\`\)\$/p" "$project/README.md" | sed '1d;$d'; }
for tour in tour.zel l2tp-tour.zel; do
    diff -u --label README.md --label "$tour" <(readme_block "$tour" | without_lines) \
        <("$shell" "$project/examples/$tour" | without_lines) || fail "the README shows another $tour"
done

# Bad lines: the message, with where the line stands, and the exit status. Nothing after a bad line is carried out.
while IFS='|' read -r line message; do
    got=$(printf '# comment\n\n%s\nstart\n' "$line" | "$shell" 2>&1 >/dev/null) && fail "'$line' is accepted"
    [ "$got" = "standard input:3: $message" ] || fail "'$line' says: $got"
    got=$(printf '%s\nstart\n' "$line" | "$shell" 2>/dev/null) || true
    [[ $got != *"start: 0"* ]] || fail "'$line' does not stop the shell"
done <<'ROWS'
fly|unknown command 'fly'; expected start, stop, udp, l2tp, packet, send, objects, expect, trace, help
udp|a command is missing; expected add, modify, disconnect, release, stats, free-id, show
udp fly 1|unknown command 'fly'; expected add, modify, disconnect, release, stats, free-id, show
help udp fly|unknown command 'fly'; expected add, modify, disconnect, release, stats, free-id, show
help udp add more|not expected: more
fly --help|unknown command 'fly'; expected start, stop, udp, l2tp, packet, send, objects, expect, trace, help
start right now|not expected: right now
trace maybe|SWITCH: maybe not in {on,exceptions,off}
udp add|ID is required
udp add one|ID: 'one' is not a number from 0 to 4294967295
udp add 4294967296|ID: '4294967296' is not a number from 0 to 4294967295
udp add 1 --dscp 256|--dscp: '256' is not a number from 0 to 255
udp add 1 --ttl -1|--ttl: '-1' is not a number from 0 to 255
udp add 1 --local 192.0.2.1|--local: '192.0.2.1' is not ADDRESS:PORT (IPv6: [ADDRESS]:PORT)
udp add 1 --local 192.0.2.256:1|--local: '192.0.2.256' is not an IPv4 address
udp add 1 --local [2001:db8::g]:1|--local: '2001:db8::g' is not an IPv6 address
udp add 1 --local 2001:db8::1:2152|--local: '2001:db8::1:2152' is not ADDRESS:PORT (IPv6: [ADDRESS]:PORT)
udp add 1 --local 192.0.2.1:65536|--local: '65536' is not a port from 0 to 65535
udp add 1 --local 192.0.2.1:1 --remote [::1]:1 --uplink-pcep 1 --downlink-pcep 1 --rat-session 1|--local is IPv4 and --remote is IPv6
udp modify 1|--pmtu or --ttl is required
udp release|ID is required
l2tp connection|a command is missing; expected add, remove, modify, show
l2tp connection add 1 --local 192.0.2.300|--local: '192.0.2.300' is not an IPv4 address
l2tp connection modify 1 --remote 192.0.2.2|control connection 1 was not added here
packet l2tp --from 192.0.2.1 --to 192.0.2.2|--session or --connection is required, and not both
packet udp --from 192.0.2.1:1 --to [::1]:1|--from is IPv4 and --to is IPv6
send 4096/1|FLOW: '4096/1' is not an ovlin flow ID, as 0x00100005 or 1/5 (PCEP/SESSION)
ROWS

# What is left behind ends a scenario with a failure.
add='udp add 010 --local 192.0.2.1:1 --remote 192.0.2.2:1 --uplink-pcep 1 --downlink-pcep 1 --rat-session 1'
got=$(printf 'start\n%s\nexpect empty\n' "$add" | "$shell" 2>&1 >/dev/null) && fail "an owner of objects passes as empty"
[ "$got" = "standard input:3: expected empty, and the data plane holds 2 objects, 2 bindings" ] || fail "says: $got"
printf 'start\n%s\nudp show\n' "$add" | "$shell" | grep -q '^10 ' || fail "010 is not ten"

got=$("$shell" /nowhere 2>&1) && fail "a file that does not exist is accepted"
[[ $got == *"/nowhere"* ]] || fail "a file that does not exist gives: $got"

echo "the shell: $failures failures"
[ "$failures" -eq 0 ]
