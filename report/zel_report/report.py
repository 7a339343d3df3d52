"""The report as plain data: the same for the terminal, the page and JSON."""

from __future__ import annotations

import datetime
from collections import Counter
from typing import Any

from . import events as ev
from . import knowledge as kn
from .operations import Finished, Tracker
from .reader import Reader
from .summary import Group, Summary

Data = dict[str, Any]
MOST_PROCESSES = 8  # that are named
MOST_HANDLES = 8
MOST_NUMBERS = 6  # of failures in one line
MOST_WORDS = 160  # letters of a text in the first part of the report


def time_text(ns: int, with_date: bool = True) -> str:
    when = datetime.datetime.fromtimestamp(ns // 1_000_000_000)
    return when.strftime("%Y-%m-%d %H:%M:%S" if with_date else "%H:%M:%S") + f".{ns % 1_000_000_000 // 1000:06d}"


def result_text(code: str) -> str:
    """"13 (data-plane call failed)" """
    text = kn.RESULTS.get(code, "")
    return f"{code} ({text})" if text else code


def duration_text(ns: float) -> str:
    if ns >= 120e9:
        minutes = round(ns / 60e9)
        return f"{minutes // 60} h {minutes % 60} min" if minutes >= 60 else f"{minutes} min"
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return f"{ns / size:.3g} {unit}" if ns < 1000 * size else f"{ns / size:,.0f} {unit}"
    return f"{ns:.0f} ns"


def count_text(count: int, what: str) -> str:
    """"2 IPv4 egress associations" """
    return f"{count:,} {what if count == 1 else plural(what)}"


def plural(what: str) -> str:
    if what.startswith("binding "):
        return what.replace("binding", "bindings", 1)
    return what[:-1] + "ies" if what.endswith("y") else what + "s"


def list_text(counts: Counter[str]) -> str:
    items = [count_text(n, t) for t, n in sorted(counts.items(), key=lambda i: (i[0].startswith("binding"), i[0]))]
    return ", ".join(items)


def title(name: str) -> str:
    return kn.OPERATIONS[name].title if name in kn.OPERATIONS else f"{name}() of an unknown operation"


def ladder(finished: Finished) -> list[Data]:
    rows = []
    names = {ev.ENTER: "enter", ev.LEAVE: "leave", ev.CALL: "call", ev.ARGUMENTS: "arguments", ev.FAILURE: "failed",
             ev.PASSED_ON: "passed on", ev.ERROR: "error", ev.SLOW: "slow"}
    for event in finished.events:
        rows.append({"after_us": round((event.ns - finished.begin) / 1000, 3), "kind": names[event.kind],
                     "function": event.function, "text": event.text, "location": event.location})
    return rows


def operation_data(finished: Finished) -> Data:
    out = finished.outcome
    return {
        "number": finished.number,
        "title": title(finished.name),
        "function": finished.name,
        "time": time_text(finished.begin),
        "begin_ns": finished.begin,
        "duration_ns": 0 if finished.chained else finished.end - finished.begin,
        "duration": "" if finished.chained else duration_text(finished.end - finished.begin),
        "process": str(finished.process),
        "subject": out.subject,
        "result": out.result,
        "left": out.left,
        "possibly": out.possibly,
        "handles": out.handles,
        "failures": [{"call": c, "words": w, "verdict": v} for c, w, v in out.failures],
        "notes": out.notes,
        "caller": finished.caller,
        "steps": ladder(finished),
    }


def group_data(group: Group) -> Data:
    out = group.outcome
    data = {
        "title": title(group.name),
        "function": group.name,
        "count": group.count,
        "result": out.result,
        "step": out.step,
        "cause": out.cause,
        "words": out.words,
        "failures": [{"call": c, "words": w, "verdict": v} for c, w, v in out.failures],
        "left": out.left,
        "possibly": out.possibly,
        "kept": {True: "the id stays in use", None: "the id stays in use if the hook returned 3 (UDP: also 5)"}.get(
            out.kept, ""),
        "lost": out.lost,
        "notes": list(dict.fromkeys(out.notes)),
        "advice": list(dict.fromkeys(out.advice)),
        "first": time_text(group.first),
        "last": time_text(group.last),
        "first_number": group.first_number,
        "last_number": group.last_number,
        "numbers": group.numbers,
        "examples": [operation_data(f) for f in group.examples],
    }
    if group.meaning is not None:
        data["means"] = group.meaning.means
    return data


def operation_rows(summary: Summary) -> list[Data]:
    rows = []
    names = {*summary.durations, *summary.results, *summary.refused}
    for name in sorted(names, key=lambda n: (n not in kn.OPERATIONS, list(kn.OPERATIONS).index(n)
                                             if n in kn.OPERATIONS else 0)):
        durations, results = summary.durations.get(name), summary.results.get(name, Counter())
        rows.append({
            "title": title(name),
            "function": name,
            "count": durations.count if durations else None,
            "failed": sum(results.values()),
            "results": dict(sorted(results.items())),
            "refused": summary.refused[name],
            "median": duration_text(durations.quantile(0.5)) if durations else "",
            "p99": duration_text(durations.quantile(0.99)) if durations else "",
            "worst": duration_text(durations.worst) if durations else "",
            **{key: round(durations.quantile(share)) if durations else 0
               for key, share in (("median_ns", 0.5), ("p99_ns", 0.99), ("worst_ns", 1.0))},
            "worst_number": durations.worst_number if durations else 0,
        })
    return rows


def slow_rows(summary: Summary) -> list[Data]:
    rate = summary.ticks_per_second()
    rows = []
    for call, slow in sorted(summary.slow.items(), key=lambda i: -i[1].count):
        worst = f"{slow.worst_ticks:,} ticks"
        if rate:
            worst += f", about {duration_text(slow.worst_ticks / rate * 1e9)}"
        rows.append({"call": call, "count": slow.count, "worst": worst, "worst_time": time_text(slow.worst_ns),
                     "number": slow.number, "first": time_text(slow.first), "last": time_text(slow.last)})
    return rows


def error_rows(summary: Summary) -> list[Data]:
    rows = []
    for text, error in summary.errors.items():
        means, to_do = kn.ERRORS.get(text, ("an event that this report does not know", "see docs/tracing.md"))
        rows.append({"text": text, "count": error.count, "means": means, "to_do": to_do,
                     "first": time_text(error.first), "last": time_text(error.last), "number": error.number})
    return rows


def timeline(summary: Summary, end: int) -> Data:
    bins = summary.bins
    used = bins.used(end)
    counts = {name: values[:used] for name, values in bins.bins.items()}
    return {"begin": time_text(bins.begin) if used else "", "begin_ns": bins.begin, "width": duration_text(bins.width),
            "width_ns": bins.width, "first_operation": bins.first[:used], **{
                name: counts.get(name, [0] * used) for name in ("failures", "slow calls")}}


def trend(counts: list[int]) -> str:
    """Whether it got worse: both halves of the time beside each other."""
    half = len(counts) // 2
    before, after = sum(counts[:half]), sum(counts[half:])
    if len(counts) < 8 or before + after < 8:
        return ""
    more, than = ("more", "than") if after > 1.5 * before else ("fewer", "than") if before > 1.5 * after else (
        "about as many", "as")
    return f"{more} in the second half of the time ({after:,}) {than} in the first ({before:,})"


def unknowns(reader: Reader, tracker: Tracker, damage: list[str]) -> list[str]:
    summary, names = tracker.summary, reader.names
    lines = list(damage)
    if reader.broken:
        lines.append(f"The trace cannot be read to its end: {reader.broken}. What follows is about what comes before.")
    if reader.lost_events or reader.lost_packets:
        lost = [count_text(n, w) for n, w in ((reader.lost_events, "event"), (reader.lost_packets, "packet")) if n]
        lines.append(f"The tracer lost {' and '.join(lost)}: what follows is incomplete, and what was there before a "
                     "loss is not known.")
    if summary.incomplete:
        lines.append(f"{count_text(summary.incomplete, 'operation')} without end: the trace ends within, or events are "
                     "missing.")
    missing = [n.partition(":")[2] for n in ("tn_zel_term:FN_ENTER", "tn_zel_term:API_CALL") if n not in names]
    if missing:
        lines.append(f"{' and '.join(missing)} events were not recorded: L2TP operations are seen only when they fail, "
                     "and their ids, steps and durations are not known.")
    for name in ("tn_zel_term:EXCEPTION", "tn_zel_init:EXCEPTION", "tn_zel_term:ERROR"):
        if name not in names:
            what = "errors of the bookkeeping" if "ERROR" in name else "failures"
            lines.append(f"{name} was not recorded: {what} that only it tells are not seen.")
    lines.append("UDP operations that succeed leave no event, so how many there were is not known. Failures of UDP "
                 "operations carry no id" + (": the caller's own events before them are shown instead."
                                             if reader.other_events else "; " + kn.OWN_EVENT))
    if not reader.threads_recorded:
        lines.append("Processes were not recorded: if there were several, their failures may be mixed up. "
                     "'lttng add-context --userspace --type=vpid --type=vtid --type=procname' adds them.")
    lines.append("A call can take effect although it reports failure: what is called left may be gone, and what is "
                 "called possibly left may be there. A restart of the data plane, which removes everything, leaves no "
                 "event.")
    if reader.unknown:
        lines.append(f"Events that this report does not know: {', '.join(sorted(reader.unknown))}.")
    if summary.dropped_groups:
        lines.append(f"{count_text(summary.dropped_groups, 'failure')} too different from the others are only counted.")
    if summary.udp_stops:
        lines.append(f"The library was stopped {count_text(summary.udp_stops, 'time')}: UDP sessions that were not "
                     "released before stay in the data plane without an owner, and no event tells of them.")
    return lines


def times_text(count: int) -> str:
    return "once" if count == 1 else f"{count:,} times"


def short(text: str) -> str:
    return text if len(text) <= MOST_WORDS else text[:MOST_WORDS] + " ..."


def causes(summary: Summary) -> list[str]:
    """A sentence for each: what failed at which call, and whether undos failed too."""
    merged: dict[tuple[str, str, str], list[Group]] = {}
    for group in summary.failures.values():
        merged.setdefault((title(group.name), group.outcome.cause, group.outcome.words), []).append(group)
    sentences = []
    for (what, cause, words), groups in sorted(merged.items(), key=lambda i: -sum(g.count for g in i[1])):
        part = groups[0].outcome.part
        cause, words = short(cause) + (f" ({part})" if part else ""), short(words)
        answered = f'the data plane answered "{words}" to {cause}' if cause.startswith("vok_") else (
            f'{cause}: "{words}"' if cause else f'"{words}"' if words else "it was done, but left something behind")
        text = f"{times_text(sum(g.count for g in groups)).capitalize()} {what}: {answered}."
        undos = sum(g.count for g in groups if kn.OPERATIONS.get(g.name) and kn.OPERATIONS[g.name].makes
                    and len(g.outcome.failures) > 1 and (g.outcome.left or g.outcome.possibly))
        sentences.append(text + (f" {times_text(undos).capitalize()} the undo failed too." if undos else ""))
    return sentences


def failed_sentence(summary: Summary, failed: int) -> str:
    """"3 operations failed: 2 UDP session adds, 1 of 8 L2TP session adds." """
    kinds = []
    for name, results in sorted(summary.results.items(), key=lambda i: -sum(i[1].values())):
        count, seen = sum(results.values()), summary.durations.get(name)
        of = f"{count:,} of {seen.count:,} {plural(title(name))}" if seen else count_text(count, title(name))
        kinds.append(of + (" (in part, with result 0)" if set(results) == {"0"} else ""))
    without = any(n not in summary.durations for n in summary.results)
    all_seen = sum(d.count for d in summary.durations.values())
    of = "" if without else f" of {all_seen:,}"
    return f"{failed:,}{of} operation{'s' if failed > 1 or of else ''} failed: {', '.join(kinds)}."


def what_to_do(summary: Summary, failures: list[Data], slow: int) -> list[str]:
    order = [kn.REMOVE_LEFT, kn.REPAIR_LOST, kn.REPAIR_REQUEST, kn.RESTART, kn.AFTER_REMOVE_ALL, kn.AFTER_FALLBACK,
             kn.RELEASE_KEPT]
    wanted: dict[str, list[int]] = {kn.REMOVE_LEFT: [], kn.FORGOTTEN: []} if summary.forgotten else {}
    for number, group in enumerate(failures, 1):
        for line in group["advice"]:
            if line != kn.NOTHING_LEFT:
                wanted.setdefault(line, []).append(number)
    lines = [line + failures_text(wanted[line], failures)
             for line in sorted(wanted, key=lambda line: order.index(line) if line in order else len(order))]
    by_words: dict[str, set[str]] = {}
    for group in sorted(summary.failures.values(), key=lambda g: -g.count):
        if group.outcome.cause.startswith("vok_"):
            by_words.setdefault(short(group.outcome.words), set()).add(group.outcome.cause)
    for words, calls in list(by_words.items())[:2]:
        what = short(next(iter(calls))) if len(calls) == 1 else f"{len(calls)} different calls"
        lines.append(f'Find out why the data plane answered "{words}" to {what}.')
    for group in summary.refusals.values():
        lines += [f"{text[:1].upper()}{text[1:]} ({group.outcome.words})." for text in group.outcome.advice]
    if slow:
        lines.append(kn.SLOW_CALLS)
    return list(dict.fromkeys(lines)) or ["Nothing."]


def failures_text(numbers: list[int], failures: list[Data]) -> str:
    """" (failure 2: L2TP connection 1)" """
    if not numbers:
        return ""
    subjects = {failures[n - 1]["examples"][0]["subject"] for n in numbers} - {""}
    many = "s" if len(numbers) > 1 else ""
    which = ", ".join(map(str, numbers[:MOST_NUMBERS])) + (" ..." if numbers[MOST_NUMBERS:] else "")
    return f" (failure{many} {which}" + (f": {subjects.pop()}" if len(subjects) == 1 else "") + ")"


def answer(summary: Summary, data: Data) -> Data:
    """What failed, what is left and what to do, in plain English."""
    failed = sum(sum(r.values()) for r in summary.results.values())
    refused = sum(summary.refused.values())
    slow = sum(s.count for s in summary.slow.values())
    sentences = [failed_sentence(summary, failed) if failed else
                 "No operation failed, as far as the recorded events tell."]
    all_causes = causes(summary)
    if any(kn.OPERATIONS[n].makes for n in summary.results if n in kn.OPERATIONS):
        sentences[0] += " What was not added passes no packets, unless a later try succeeded."
    sentences += all_causes[:4]
    if len(all_causes) > 4:
        sentences.append(f"... and {len(all_causes) - 4} other kinds of failure, below.")
    if summary.forgotten:
        sentences.append(f"The library was stopped or started (#{summary.forgotten_number}) while L2TP connections or "
                         "sessions were in use: what they had in the data plane has no owner since.")
    if refused:
        reasons = Counter({(g.outcome.words, g.outcome.cause): g.count for g in summary.refusals.values()})
        reason = ", ".join(f'{times_text(n)} "{t}{", " if w else ""}{w}"' for (t, w), n in reasons.most_common(3))
        sentences.append(f"{count_text(refused, 'operation')} refused because of an argument or the state, with "
                         f"nothing done: {reason}.")
    if slow:
        sentences.append(f"{count_text(slow, 'data-plane call')} too slow: " + ", ".join(
            f"{times_text(r['count'])} {r['call']} (worst {r['worst']})" for r in data["slow"][:3]) + ".")
    for what in ("failures", "slow calls"):
        text = trend(data["timeline"][what])
        if text:
            unknown = what == "failures" and any(n not in summary.durations for n in summary.results)
            sentences.append(f"{what.capitalize()}: {text}"
                             + ("; how many operations there were in each is not known." if unknown else "."))
    left = summary.left + summary.forgotten
    leaving = [i for i, g in enumerate(data["failures"], 1) if g["left"]]
    where = [f"by failure{'s' if len(leaving) > 1 else ''} {', '.join(map(str, leaving))} below"] if leaving else []
    if summary.forgotten:
        where.append(f"by the stop or start #{summary.forgotten_number}")
    handles = list(dict.fromkeys(h for g in data["failures"] if g["left"] for e in g["examples"] for h in e["handles"]))
    if handles:
        where.append(f"handles {', '.join(handles[:MOST_HANDLES])}" + (" ..." if len(handles) > MOST_HANDLES else ""))
    left_text = list_text(left) + f" (left {'; '.join(where)})" if left else "Nothing" + (
        ", as far as the events tell" if failed else "")
    clean = sum(g.count for g in summary.failures.values() if not g.outcome.left and not g.outcome.possibly)
    if left and clean:
        left_text += f"; {clean:,} of the {failed:,} failures left nothing"
    kept = [count_text(n, f"L2TP {k}") for k, n in summary.kept.items()]
    if summary.kept_udp:
        kept.append(f"{count_text(summary.kept_udp, 'UDP session')} (unless released since)")
    return {
        "failed": failed,
        "refused": refused,
        "sentences": sentences,
        "left": dict(left),
        "left_text": left_text,
        "possibly": dict(summary.possibly),
        "possibly_text": list_text(summary.possibly),
        "kept_text": ", ".join(kept),
        "lost_text": " ".join(dict.fromkeys(g["lost"] for g in data["failures"] if g["lost"])),
        "what_to_do": what_to_do(summary, data["failures"], slow),
    }


def build(reader: Reader, tracker: Tracker, traces: list[str], damage: list[str]) -> Data:
    summary = tracker.summary
    processes = [p for p in {id(t.process): t.process for t in tracker.threads}.values() if p.is_ours]
    names = [str(p) for p in processes[:MOST_PROCESSES]]
    if len(processes) > MOST_PROCESSES:
        names.append(f"{len(processes) - MOST_PROCESSES} others")
    data: Data = {
        "version": 1,
        "traces": traces,
        "begin_ns": reader.first_ns,
        "end_ns": reader.last_ns,
        "begin": time_text(reader.first_ns) if reader.first_ns else "",
        "end": time_text(reader.last_ns) if reader.last_ns else "",
        "time_zone": datetime.datetime.fromtimestamp(reader.last_ns // 1_000_000_000).astimezone().strftime("%Z"),
        "span": duration_text(reader.last_ns - reader.first_ns),
        "hosts": sorted({p.host for p in processes if p.host}),
        "processes": names,
        "events": reader.events,
        "events_of_others": reader.other_events,
        "lost_events": reader.lost_events,
        "lost_packets": reader.lost_packets,
        "recorded": sorted(n for n in reader.names if n.startswith(ev.PROVIDERS)),
        "providers": sorted({n.partition(":")[0] for n in reader.names}),
        "unknown": unknowns(reader, tracker, damage),
        "operations": operation_rows(summary),
        "failures": [group_data(g) for g in sorted(summary.failures.values(), key=lambda g: (
            not g.outcome.left, not g.outcome.possibly, -g.count, g.first))],
        "refusals": [group_data(g) for g in sorted(summary.refusals.values(), key=lambda g: (-g.count, g.first))],
        "slow": slow_rows(summary),
        "errors": error_rows(summary),
        "timeline": timeline(summary, reader.last_ns),
        "first_of_bins": [operation_data(summary.first_of_bins[n]) for n in summary.bins.first
                          if n in summary.first_of_bins],
        "forgotten": dict(summary.forgotten),
    }
    data["answer"] = answer(summary, data)
    data["shown"] = operation_data(tracker.shown) if tracker.shown is not None else None
    return data
