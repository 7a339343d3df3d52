"""What the report says of the traces in a folder, beside what the shell's audit said: report_check.py REPORT FOLDER
EVENTS, the number of events in the trace that was cut."""

import json
import re
import subprocess
import sys
from collections import Counter
from pathlib import Path

REPORT, FOLDER, EVENTS = sys.argv[1], Path(sys.argv[2]), int(sys.argv[3])
wrong: list[str] = []

# How much the report calls left, and possibly left, with all events and with failures only. Everything that the first
# names must be left by the audit, and everything that is left must be named by one of them.
SCENARIOS = {
    "control-program-restart": ((0, 0), (0, 0)),
    "counters-refused": ((0, 0), (0, 0)),
    "data-plane-restart": ((0, 10), (0, 10)),
    "disturbed-neighbour": ((0, 0), (0, 0)),
    "double-fault": ((2, 0), (2, 0)),
    "effect-after-failure": ((2, 1), (2, 1)),
    "full-table": ((2, 2), (2, 2)),
    "move-falls-back": ((0, 3), (0, 3)),
    "move-removes-all": ((0, 0), (0, 1)),
    "overwritten-session": ((10, 0), (0, 0)),
    "peer-moved": ((0, 0), (0, 0)),
    "release-without-disconnect": ((2, 2), (2, 2)),
    "removal-that-fails": ((2, 0), (1, 1)),
    "session-left-out": ((3, 0), (1, 2)),
    "session-type-refused": ((0, 0), (0, 0)),
    "shared-associations": ((0, 0), (0, 0)),
    "slow-data-plane": ((0, 0), (0, 0)),
    "stopped": ((14, 0), (0, 5)),
}
# What no event of level TRACE_ERR tells of.
ONLY_WITH_ALL_EVENTS = ("overwritten-session", "stopped")


def expect(what: str, holds: bool, seen: object = "") -> None:
    if not holds:
        wrong.append(f"{what}: {seen}")


def run(*arguments: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([REPORT, *arguments], capture_output=True, text=True, timeout=60)


def report_of(name: str) -> dict:
    done = run(str(FOLDER / name), "--json", "-")
    if done.returncode:
        sys.exit(f"{name}: {done.stderr}")
    return json.loads(done.stdout)


def audit_of(name: str) -> Counter:
    """In the report's words, apart from the objects that a binding leads from and to."""
    found: Counter = Counter()
    for line in (FOLDER / f"{name}.audit").read_text().splitlines():
        if " has no owner" not in line:  # a handle that names nothing, or a lost binding
            continue
        if thing := re.match(r"(IPv[46] (?:in|e)gress|L2TPv3 (?:in|e)gress flow) ", line):
            found[thing[1] + (" association" if thing[1].startswith("IP") else "")] += 1
        elif thing := re.match(r"binding (\w+) ", line):
            found[thing[1]] += 1
        else:
            sys.exit(f"{name}: what is {line}")
    return found


def kinds(things: dict) -> Counter:
    found: Counter = Counter()
    for text, count in things.items():
        if text.startswith("binding "):
            source, target = text[len("binding "):].split(" -> ")
            text = "ID2F" if source == "ovlin flow" else "F2ID" if target == "ovlin flow" else "F2F"
        found[text] += count
    return found


for scenario, expected in SCENARIOS.items():
    audit = audit_of(scenario)
    for name, counts in zip((scenario, scenario + "-failures"), expected):
        answer = report_of(name)["answer"]
        left, possibly = kinds(answer["left"]), kinds(answer["possibly"])
        seen = (left.total(), possibly.total())
        expect(f"{name}: left, possibly left", seen == counts, f"{seen}, not {counts}")
        expect(f"{name}: not left", not left - audit, left - audit)
        if name == scenario or scenario not in ONLY_WITH_ALL_EVENTS:
            expect(f"{name}: not told", not audit - left - possibly, audit - left - possibly)
for scenario in sorted(p.stem for p in (FOLDER / "examples/scenarios").iterdir()):
    expect("a scenario without a row", scenario in SCENARIOS, scenario)

# What else is told: in plain words, of the operation itself, and of what the trace cannot tell.
double = report_of("double-fault")
sentence = double["answer"]["sentences"][0]
expect("sentence", sentence.startswith("2 operations failed: 2 UDP session adds."), sentence)
counts = [len(g["failures"]) for g in double["failures"]]
expect("what left something comes first", counts == [3, 1], counts)
removed = report_of("move-removes-all")
verdicts = [f["verdict"] for g in removed["failures"] for f in g["failures"]]
expect("what to do", "Add the connection and all its sessions" in removed["answer"]["what_to_do"][0], removed["answer"])
expect("verdicts", verdicts == ["removed later", "it was not bound: nothing is left"], verdicts)
expect("caller is advised", any("tracepoint of its own" in t for t in double["unknown"]), double["unknown"])
neighbour = report_of("disturbed-neighbour")
expect("lost binding", "they receive nothing" in neighbour["answer"]["lost_text"], neighbour["answer"])
failed = neighbour["failures"][0]["examples"][0]
expect("subject", failed["subject"] == "L2TP connection 2", failed["subject"])
ladder = run(str(FOLDER / "disturbed-neighbour"), "--operation", str(failed["number"])).stdout
expect("ladder", all(t in ladder for t in ("injected fault", "controlConnId=1002", "l2tp_control_unbind_ipv4")), ladder)
stopped = [g for g in report_of("stopped")["failures"] if g["lost"]]
expect("lost request", len(stopped) == 1 and "it will be removed while" in stopped[0]["lost"], stopped)
moved = {o["title"]: o["results"] for o in report_of("move-falls-back")["operations"]}
expect("results", moved["L2TP connection modify"] == {"13": 1, "2": 1}, moved)
moved = report_of("move-falls-back-failures")["operations"]
expect("results without steps", moved[0]["results"] == {"13": 1, "2": 1}, moved)
expect("left out", "FN_ENTER and API_CALL" in " ".join(report_of("double-fault-failures")["unknown"]))
hook = report_of("session-type-refused")
expect("kept", hook["answer"]["kept_text"] == "1 UDP session (unless released since)", hook["answer"]["kept_text"])
slow = report_of("slow-data-plane")["slow"]
expect("slow call", [(s["call"][:8], s["count"]) for s in slow] == [("vok_bind", 1)], slow)
expect("refusal", [g["result"] for g in report_of("full-table")["refusals"]] == ["10"])

both = report_of("two")
expect("two processes", len(both["processes"]) == 2, both["processes"])
by_process = {(g["title"], g["examples"][0]["process"]) for g in both["failures"]}
expect("whose failure", {t for t, _ in by_process} == {"UDP session add", "L2TP connection removal"}
       and len({p for _, p in by_process}) == 2, by_process)
left = both["answer"]["left"]
expect("both are left", left == {"binding ovlin flow -> IPv4 egress": 2, "IPv4 egress association": 2}, left)
storm = report_of("storm")
expect("lost events", storm["lost_events"] > 0 and "incomplete" in storm["unknown"][0], storm["unknown"])

# The caller's texts arrive, and neither a page nor a terminal takes them for its own.
page = FOLDER / "caller.html"
text = run(str(FOLDER / "caller"), "--html", str(page)).stdout
expect("caller's event", "<script>alert(1)</script>" in text and "\033" not in text
       and "of the next operation" not in text, text)
expect("page", "&lt;script&gt;alert(1)" in page.read_text() and "<script>alert" not in page.read_text())
linked = run(str(FOLDER / "double-fault"), "--html", "-").stdout
links = set(re.findall(r'href="#([^"]*)"', linked))
expect("links", links >= {"operation-2", "operation-3"} and all(f'id="{t}"' in linked for t in links), links)
expect("page needs nothing", not re.search(r"""(src|href)=["']?(?!#)|url\(|@import""", page.read_text()))

# Damage.
cut = report_of("cut")
expect("cut", 8 < cut["events"] < EVENTS and "cut or damaged" in cut["unknown"][0]
       and "cannot be read" not in " ".join(cut["unknown"]), (cut["events"], cut["unknown"]))
unknown = report_of("unknown")
expect("unknown event", any("tn_zel_term:NEW" in t for t in unknown["unknown"]), unknown["unknown"])
expect("all the same", unknown["answer"]["left"] == report_of("session-left-out")["answer"]["left"], unknown["answer"])
for name, reason in {"nowhere": "there is no", "empty": "not a trace", "cut-metadata": "is damaged",
                     "unreadable": "Permission denied", "other": "lttng_ust_tracef"}.items():
    done = run(str(FOLDER / name))
    expect(name, done.returncode == 1 and reason in done.stderr and done.stderr.count("\n") == 1 and not done.stdout,
           (done.returncode, done.stderr))

if wrong:
    sys.exit("\n".join(wrong))
