"""Puts events together to operations, process by process and thread by thread.

An L2TP operation, a start or a stop lasts from FN_ENTER to FN_EXIT. A UDP operation is seen only when something in it
fails, and so is every operation if FN_ENTER was not recorded: then the failures tell. A failed call fires one event,
and each function that passes the failure on another one: such a chain names the operation, or belongs to its undo.
"""

from __future__ import annotations

from collections import Counter, deque
from collections.abc import Callable
from dataclasses import dataclass, field

from . import knowledge as kn
from .effects import WHOLE_SESSION, Outcome, Tables, evaluate
from .events import ARGUMENTS, CALL, ENTER, ERROR, FAILURE, LEAVE, PASSED_ON, Event, failed_call, passed_on
from .summary import Summary

SAME_OPERATION_NS = 1_000_000_000  # failures further apart are of different operations
MOST_EVENTS = 20_000  # of an operation, that are kept
CALLER_EVENTS = 3  # before an operation, that are shown


@dataclass
class Process:
    name: str = ""
    pid: int | None = None
    host: str = ""
    is_ours: bool = False  # an event of the library was seen in it
    tables: Tables = field(default_factory=Tables)

    def __str__(self) -> str:
        who = self.name or "process"
        return f"{who} ({self.pid})" if self.pid is not None else f"{who} (id not recorded)"


class Running:
    """An operation that has begun."""

    __slots__ = ("name", "number", "begin", "events", "failed", "depth", "chained", "last_ns", "position",
                 "caller")

    def __init__(self, name: str, number: int, begin: int, caller: list[str] | None = None) -> None:
        self.name, self.number, self.begin, self.last_ns = name, number, begin, begin
        self.events: list[Event] = []
        self.failed = False
        self.depth = 1
        self.chained = caller is not None  # put together from chains of failures
        self.caller = caller  # the caller's events before it
        self.position = 0  # in the undo


class Thread:
    __slots__ = ("process", "running", "chain", "caller", "before_chain", "last_disconnect")

    def __init__(self, process: Process) -> None:
        self.process = process
        self.running: Running | None = None
        self.chain: list[Event] = []
        self.before_chain: list[str] = []  # the caller's events
        self.caller: deque[object] = deque(maxlen=CALLER_EVENTS)
        self.last_disconnect = 0  # when a disconnect failed on both sides


@dataclass
class Finished:
    """An operation of which something is to be told."""

    number: int
    name: str
    begin: int
    end: int
    process: Process
    events: list[Event]
    outcome: Outcome
    caller: list[str]
    chained: bool  # when it began and ended is not known


class Tracker:
    """Takes events in the order of time and tells the summary what they amount to."""

    def __init__(self, summary: Summary, wanted: int = 0, caller_text: Callable[[object], str] = str) -> None:
        self.summary = summary
        self.wanted = wanted  # the number of the operation to be shown
        self.shown: Finished | None = None
        self.caller_text = caller_text
        self.numbers = 0
        self.threads: list[Thread] = []

    # ---- The hot path: a call for each event

    def enter(self, thread: Thread, ns: int, message: str) -> None:
        running = thread.running
        name = message[:-2]
        if running is not None and not running.chained:
            if name in kn.NESTED.get(running.name, ()):
                running.depth += 1
                running.events.append((ns, ENTER, message, ""))
                return
            self.abandon(thread)
        elif running is not None or thread.chain:
            self.end_chains(thread)
        self.numbers += 1
        thread.process.is_ours = True
        thread.running = Running(name, self.numbers, ns)

    def call(self, thread: Thread, ns: int, message: str) -> None:
        running = thread.running
        if running is not None and len(running.events) < MOST_EVENTS:
            running.events.append((ns, CALL, message, ""))

    def arguments(self, thread: Thread, ns: int, message: str) -> None:
        if thread.running is not None:
            thread.running.events.append((ns, ARGUMENTS, message, ""))

    def leave(self, thread: Thread, ns: int, message: str) -> None:
        running = thread.running
        if running is None or running.chained:
            self.end_chains(thread)
            return
        running.depth -= 1
        name = message[:-2]
        if running.depth:
            running.events.append((ns, LEAVE, message, ""))
            return
        thread.running = None
        if name != running.name:
            self.summary.incomplete += 1
            thread.process.tables = Tables()
            return
        self.summary.add_duration(name, ns, ns - running.begin, running.number)
        if running.failed or running.number == self.wanted or not self.is_plain_success(thread, running):
            self.finish(thread, running, ns)

    def is_plain_success(self, thread: Thread, running: Running) -> bool:
        """Takes the successes that are frequent, and change nothing but one entry, into account at once."""
        tables = thread.process.tables
        events = running.events
        last_number = events[0][2].rpartition("=")[2] if events else ""
        if not last_number.isdigit():
            return False
        if running.name == kn.SESSION_ADD and events[0][1] == ARGUMENTS:
            session = int(last_number)
            if session in tables.sessions:
                return False
            tables.sessions[session] = WHOLE_SESSION
            return True
        if running.name == kn.SESSION_REMOVE:
            tables.remove("session", int(last_number) + kn.FIRST_L2TP_SESSION)
            return True
        return False

    # ---- Failures

    def failure(self, thread: Thread, event: Event) -> None:
        thread.process.is_ours = True
        if thread.running is not None and not thread.running.chained:
            thread.running.failed = True
            thread.running.events.append(event)
            return
        if event.kind == ERROR:
            self.end_chain(thread)
            if thread.running is not None and event.ns - thread.running.last_ns < SAME_OPERATION_NS:
                thread.running.events.append(event)
            return
        chain = thread.chain
        if event.kind == PASSED_ON and chain and passed_on(event)[1] == chain[-1].function:
            chain.append(event)
            return
        self.end_chain(thread)
        thread.chain = [event]
        thread.before_chain = self.callers(thread)

    def slow(self, thread: Thread, event: Event) -> None:
        thread.process.is_ours = True
        running = thread.running if thread.running is not None and not thread.running.chained else None
        self.summary.add_slow(event, running.number if running is not None else 0, str(thread.process))
        if running is not None:
            running.events.append(event)

    def error(self, thread: Thread, event: Event) -> None:
        is_inside = thread.running is not None and not thread.running.chained
        self.summary.add_error(event, thread.running.number if is_inside else 0)
        self.failure(thread, event)

    def end_chain(self, thread: Thread) -> None:
        """A chain of failures is complete: it continues the operation that is being put together, or begins one."""
        chain, thread.chain = thread.chain, []
        if not chain:
            return
        first, top = chain[0], chain[-1].function
        if len(chain) == 1 and first.kind == PASSED_ON and top in kn.OPERATIONS:
            text, what = passed_on(first)
            refusal = kn.refusal_of(what)
            if refusal is not None:
                self.end_running(thread)
                self.numbers += 1
                self.refuse(thread, Running(top, self.numbers, first.ns, thread.before_chain), text, what, chain)
                return
        step = kn.step_of(first.function, failed_call(first)[1] if first.kind == FAILURE else "")
        name = top if top in kn.OPERATIONS else kn.CONNECTION_MODIFY if top in kn.MODIFY_FUNCTIONS else ""
        running = thread.running
        if running is None or not self.continues(running, name, top, step, first):
            self.end_running(thread)
            self.numbers += 1
            running = thread.running = Running(name or first.function, self.numbers, first.ns,
                                               thread.before_chain)
            running.position = self.position(running.name, step)
        running.events += chain
        running.last_ns = chain[-1].ns

    @staticmethod
    def position(name: str, step: kn.Step | None) -> int:
        removes = kn.OPERATIONS[name].removes if name in kn.OPERATIONS else ()
        if step is None or step.verb not in ("delete", "unbind") or step.part not in removes:
            return 0
        return removes.index(step.part) + 1

    def continues(self, running: Running, name: str, top: str, step: kn.Step | None, first: Event) -> bool:
        if first.ns - running.last_ns > SAME_OPERATION_NS:
            return False
        if running.name == kn.CONNECTION_MODIFY:
            passed = {e.function for e in running.events if e.kind == PASSED_ON}
            ended = running.name in passed
            if name in kn.NESTED[running.name]:
                return ended
            begins = top == "remove_sessions_for_modify" or (
                top == "add_control_connection_for_modify" and top in passed)
            return not ended and not begins and name in ("", running.name)
        if name == running.name == kn.START:
            return True
        if name not in ("", running.name):
            return False
        position = self.position(running.name, step)
        if step is None or step.kind != kn.OPERATIONS.get(running.name, kn.OPERATIONS[kn.START]).kind:
            return False
        if position > running.position:
            running.position = position
            return True
        return False

    def end_running(self, thread: Thread) -> None:
        running, thread.running = thread.running, None
        if running is not None:
            self.finish(thread, running, running.last_ns)

    def end_chains(self, thread: Thread) -> None:
        self.end_chain(thread)
        self.end_running(thread)

    def abandon(self, thread: Thread) -> None:
        """An operation without end: events were lost, or the trace ends."""
        running, thread.running = thread.running, None
        if running is not None:
            self.summary.incomplete += 1
            thread.process.tables = Tables()
            if running.failed or running.number == self.wanted:
                self.finish(thread, running, running.begin)

    # ---- Ends

    def finish(self, thread: Thread, running: Running, end: int) -> None:
        name, process = running.name, thread.process
        recorded = [Event(*e) for e in running.events]
        reported = [e for e in recorded if e.kind in (FAILURE, PASSED_ON)]
        if len(reported) == 1 and reported[0].kind == PASSED_ON and reported[0].function == name:
            text, what = passed_on(reported[0])
            if kn.refusal_of(what) is not None and not any(e.kind == CALL and kn.step_of(e.function, "")
                                                           for e in recorded):
                self.refuse(thread, running, text, what, recorded)
                return
        if name in kn.FORGETS_L2TP or name == kn.START:
            self.summary.add_forgotten(process.tables.all_parts(), running.number, end)
            process.tables = Tables(known=True)
        if name in kn.FORGETS_UDP:
            self.summary.udp_stops += name == "zel_udp_session_stop"
        after = end - thread.last_disconnect < SAME_OPERATION_NS
        outcome = evaluate(name, recorded, process.tables, after)
        if name == kn.UDP_DISCONNECT and len(outcome.failures) == 2:
            thread.last_disconnect = end
        elif name != kn.UDP_RELEASE:
            thread.last_disconnect = 0
        told = bool(reported) or bool(outcome.left) or bool(outcome.possibly)
        if not told and running.number != self.wanted:
            return
        caller = self.callers(thread) if running.caller is None else running.caller
        finished = Finished(running.number, name, running.begin, end, process, recorded, outcome, caller,
                            running.chained)
        if running.number == self.wanted:
            self.shown = finished
        if told:
            self.summary.add_failure(finished)

    def refuse(self, thread: Thread, running: Running, text: str, what: str, recorded: list[Event]) -> None:
        refusal = kn.refusal_of(what)
        assert refusal is not None
        result = refusal.result or kn.RESULT_TEXTS.get(text, kn.UNKNOWN)
        returned = "0" if running.name in (kn.SESSION_REMOVE, kn.CONNECTION_REMOVE) else result
        caller = self.callers(thread) if running.caller is None else running.caller
        finished = Finished(running.number, running.name, running.begin, recorded[-1].ns, thread.process, recorded,
                            Outcome(returned, running.name, what, text, advice=[refusal.to_do]), caller,
                            running.chained)
        self.summary.add_refusal(finished, refusal)
        if running.number == self.wanted:
            self.shown = finished

    def callers(self, thread: Thread) -> list[str]:
        return [self.caller_text(event) for event in thread.caller]

    def events_were_lost(self) -> None:
        """What was there before is not known any more."""
        for thread in self.threads:
            thread.process.tables = Tables()

    def end(self) -> None:
        for thread in self.threads:
            if thread.running is not None and not thread.running.chained:
                self.abandon(thread)
            else:
                self.end_chains(thread)
        self.summary.kept = Counter()
        for process in {id(t.process): t.process for t in self.threads}.values():
            self.summary.kept.update(kind for kind, _ in process.tables.kept)
