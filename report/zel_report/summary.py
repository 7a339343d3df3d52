"""What the report keeps of all events: groups of equal failures, durations, and failures over time. Its memory is
bounded, however long the trace."""

from __future__ import annotations

import math
from collections import Counter
from dataclasses import dataclass, field
from typing import TYPE_CHECKING

from . import knowledge as kn
from .events import Event, slow_call

if TYPE_CHECKING:
    from .effects import Outcome
    from .operations import Finished

MOST_GROUPS = 500
EXAMPLES = 2  # operations of a group that are kept with their events
EXAMPLE_EVENTS = 200
MOST_NUMBERS = 1000  # of a group's operations, that are kept


class Durations:
    """In logarithmic buckets, eight for each factor of two."""

    __slots__ = ("count", "buckets", "worst", "worst_number")

    def __init__(self) -> None:
        self.count = self.worst = self.worst_number = 0
        self.buckets: dict[int, int] = {}

    def add(self, ns: int, number: int) -> None:
        self.count += 1
        bucket = int(math.log2(ns) * 8) if ns > 0 else 0
        self.buckets[bucket] = self.buckets.get(bucket, 0) + 1
        if ns > self.worst:
            self.worst, self.worst_number = ns, number

    def quantile(self, share: float) -> float:
        """In ns, to within 5 %."""
        if self.count == 1 or share == 1:
            return self.worst
        rank, seen = share * self.count, 0
        for bucket in sorted(self.buckets):
            seen += self.buckets[bucket]
            if seen >= rank:
                return min(2 ** ((bucket + 0.5) / 8), self.worst)
        return 0.0


class TimeBins:
    """Counts over time in a fixed number of bins, which double their width as time goes on."""

    COUNT = 64

    def __init__(self) -> None:
        self.begin = 0  # of the trace
        self.width = 1000
        self.bins: dict[str, list[int]] = {}
        self.first: list[int] = [0] * self.COUNT  # the first operation of a bin that failed or was slow

    def add(self, what: str, ns: int, number: int = 0) -> None:
        place = max(0, (ns - self.begin) // self.width)
        while place >= self.COUNT:
            self.width *= 2
            place = (ns - self.begin) // self.width
            for name, old in self.bins.items():
                self.bins[name] = [a + b for a, b in zip(old[::2], old[1::2])] + [0] * (self.COUNT // 2)
            self.first = [a or b for a, b in zip(self.first[::2], self.first[1::2])] + [0] * (self.COUNT // 2)
        self.bins.setdefault(what, [0] * self.COUNT)[place] += 1
        if number and not self.first[place]:
            self.first[place] = number

    def used(self, end: int) -> int:
        return min(self.COUNT, max(1, (end - self.begin) // self.width + 1)) if self.begin else 0


@dataclass
class Group:
    """Equal failures."""

    name: str
    outcome: "Outcome"
    count: int = 0
    first: int = 0
    last: int = 0
    first_number: int = 0
    last_number: int = 0
    numbers: list[int] = field(default_factory=list)
    examples: list["Finished"] = field(default_factory=list)
    meaning: kn.Refusal | None = None

    def add(self, finished: "Finished") -> None:
        if not self.count:
            self.first, self.first_number = finished.begin, finished.number
        self.count += 1
        self.last, self.last_number = finished.begin, finished.number
        if len(self.numbers) < MOST_NUMBERS:
            self.numbers.append(finished.number)
        if len(self.examples) < EXAMPLES:
            self.examples.append(finished)


@dataclass
class Slow:
    count: int = 0
    worst_ticks: int = 0
    worst_ns: int = 0  # when
    number: int = 0
    first: int = 0
    last: int = 0


@dataclass
class Summary:
    durations: dict[str, Durations] = field(default_factory=dict)
    results: dict[str, Counter[str]] = field(default_factory=dict)
    refused: Counter[str] = field(default_factory=Counter)
    failures: dict[tuple[object, ...], Group] = field(default_factory=dict)
    refusals: dict[tuple[object, ...], Group] = field(default_factory=dict)
    dropped_groups: int = 0
    left: Counter[str] = field(default_factory=Counter)
    possibly: Counter[str] = field(default_factory=Counter)
    forgotten: Counter[str] = field(default_factory=Counter)
    forgotten_number: int = 0
    kept: Counter[str] = field(default_factory=Counter)
    kept_udp: int = 0
    udp_stops: int = 0
    slow: dict[str, Slow] = field(default_factory=dict)
    ticks: list[tuple[str, int, int]] = field(default_factory=list)  # process, ticks, ns: the first and the last
    errors: dict[str, Slow] = field(default_factory=dict)
    bins: TimeBins = field(default_factory=TimeBins)
    first_of_bins: dict[int, "Finished"] = field(default_factory=dict)  # by number
    incomplete: int = 0  # operations without end

    def add_duration(self, name: str, ns: int, duration: int, number: int) -> None:
        durations = self.durations.get(name)
        if durations is None:
            durations = self.durations[name] = Durations()
        durations.add(duration, number)

    def group(self, groups: dict[tuple[object, ...], Group], key: tuple[object, ...], finished: "Finished") -> Group:
        if key not in groups and len(groups) >= MOST_GROUPS:
            self.dropped_groups += 1
            return Group(finished.name, finished.outcome)
        return groups.setdefault(key, Group(finished.name, finished.outcome))

    def add_failure(self, finished: "Finished") -> None:
        name, outcome = finished.name, finished.outcome
        self.results.setdefault(name, Counter())[outcome.result] += 1
        self.left.update(outcome.left)
        self.possibly.update(outcome.possibly)
        self.kept_udp += bool(outcome.kept) and kn.OPERATIONS[name].kind == "udp"
        del finished.events[EXAMPLE_EVENTS:]
        self.bins.add("failures", finished.begin, finished.number)
        if finished.number in self.bins.first:
            self.first_of_bins[finished.number] = finished
            if len(self.first_of_bins) > 2 * TimeBins.COUNT:
                self.first_of_bins = {n: f for n, f in self.first_of_bins.items() if n in self.bins.first}
        key = (name, outcome.result, outcome.step, outcome.cause, outcome.words, tuple(outcome.failures),
               tuple(outcome.left), tuple(outcome.possibly), outcome.kept)
        self.group(self.failures, key, finished).add(finished)

    def add_refusal(self, finished: "Finished", meaning: kn.Refusal) -> None:
        self.refused[finished.name] += 1
        key = (finished.name, finished.outcome.cause, finished.outcome.words)
        group = self.group(self.refusals, key, finished)
        group.meaning = meaning
        group.add(finished)

    def add_forgotten(self, what: Counter[str], number: int, ns: int) -> None:
        if what:
            self.forgotten.update(what)
            self.forgotten_number = number
            self.bins.add("failures", ns, number)

    def add_slow(self, event: Event, number: int, process: str) -> None:
        found = slow_call(event)
        if found is None:
            return
        call, ticks, start = found
        self.note(self.slow, call, event.ns, number, ticks)
        self.bins.add("slow calls", event.ns, number)
        at = (process, start + ticks, event.ns)
        self.ticks = [self.ticks[0] if self.ticks else at, at]

    def add_error(self, event: Event, number: int) -> None:
        text = event.text
        self.note(self.errors, next((t for t in kn.ERRORS if text.startswith(t)), text), event.ns, number, 0)

    @staticmethod
    def note(rows: dict[str, Slow], what: str, ns: int, number: int, ticks: int) -> None:
        if what not in rows and len(rows) >= MOST_GROUPS:
            return
        row = rows.setdefault(what, Slow(first=ns))
        row.count += 1
        row.last = ns
        if not row.number or ticks > row.worst_ticks:
            row.worst_ticks, row.worst_ns, row.number = ticks, ns, number

    def ticks_per_second(self) -> float:
        """As two slow calls of one process tell, if they are far enough apart; otherwise 0."""
        if len(self.ticks) == 2 and self.ticks[0][0] == self.ticks[1][0]:
            (_, ticks, ns), (_, later_ticks, later_ns) = self.ticks
            if later_ns - ns > 10_000_000 and later_ticks > ticks:
                return (later_ticks - ticks) / (later_ns - ns) * 1e9
        return 0.0
