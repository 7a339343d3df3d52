"""Fetches messages from a graph of babeltrace2 and hands events on, at a microsecond each.

The wrappers of the bt2 package take ten times as long, so what is done for every event uses the package's low-level
binding, native_bt. Everything rare uses the public interface.
"""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass, field
from typing import Any

import bt2
from bt2 import message as bt2_message
from bt2 import native_bt
from bt2 import utils as bt2_utils

from . import events as ev
from .operations import Process, Thread, Tracker

MOST_CALLERS_TEXT = 200
_STARTS = "zel_core_term_start()"  # after that a known thread's number may be another process's


@dataclass
class _Class:
    """What is to be known of an event class to read its events."""

    kind: int
    thread_field: int  # its place in the context; -1 if it was not recorded
    trace: "_Trace"
    handle: Callable[[Thread, int, str], None] | None = None


@dataclass
class _Trace:
    host: str
    fixed_pid: int | None  # of a trace with buffers for each process
    fixed_name: str
    threads: dict[int, Thread] = field(default_factory=dict)
    processes: dict[int | None, Process] = field(default_factory=dict)


class Reader:
    def __init__(self, tracker: Tracker) -> None:
        self.tracker = tracker
        tracker.caller_text = self.caller_text
        self.classes: dict[int, _Class] = {}
        self.traces: dict[str, _Trace] = {}
        self.names: set[str] = set()  # of all event classes that the trace describes
        self.events = self.other_events = 0
        self.lost_events = self.lost_packets = 0
        self.unknown: dict[str, int] = {}  # events of our providers that this report does not know
        self.first_ns = self.last_ns = 0
        self.threads_recorded = True
        self.broken = ""

    # ---- The hot path

    def consume(self, iterator: Any) -> None:
        """Takes one batch. Raises bt2.Stop at the end and bt2.TryAgain if there is nothing yet."""
        status, messages = native_bt.bt2_self_component_port_input_get_msg_range(iterator)
        if status != 0:
            bt2_utils._handle_func_status(status, "the trace cannot be read on")
        message_type = native_bt.message_get_type
        event_type = native_bt.MESSAGE_TYPE_EVENT
        event_of = native_bt.message_event_borrow_event_const
        class_of = native_bt.event_borrow_class_const
        payload_of = native_bt.event_borrow_payload_field_const
        context_of = native_bt.event_borrow_common_context_field_const
        member_of = native_bt.field_structure_borrow_member_field_by_index_const
        text_of = native_bt.field_string_get_value
        integer_of = native_bt.field_integer_signed_get_value
        clock_of = native_bt.message_event_borrow_default_clock_snapshot_const
        ns_of = native_bt.clock_snapshot_get_ns_from_origin
        release = native_bt.message_put_ref
        classes = self.classes
        ns = self.last_ns
        for message in messages:
            if message_type(message) != event_type:
                self.take_other(bt2_message._create_from_ptr(message))
                continue
            event = event_of(message)
            known = classes.get(int(class_of(event)))
            if known is None:
                known = self.learn(message)
            self.events += 1
            ns = ns_of(clock_of(message))[1]
            if not self.first_ns:
                self.first_ns = self.tracker.summary.bins.begin = ns
            number = integer_of(member_of(context_of(event), known.thread_field)) if known.thread_field >= 0 else -1
            thread = known.trace.threads.get(number)
            if thread is None:
                thread = self.new_thread(known, number, message)
            if known.kind < ev.FAILURE:
                text = text_of(member_of(payload_of(event), 2))
                if text == _STARTS:
                    thread = self.new_thread(known, number, message)
                known.handle(thread, ns, text)
                release(message)
            elif known.kind == ev.CALLER:
                self.other_events += 1
                if len(thread.caller) == thread.caller.maxlen:
                    release(thread.caller.popleft())
                thread.caller.append(message)
            else:
                payload = payload_of(event)
                self.take_failure(known.kind, thread, ns, [text_of(member_of(payload, i)) for i in range(3)])
                release(message)
        self.last_ns = ns

    # ---- What is rare

    def take_failure(self, kind: int, thread: Thread, ns: int, payload: list[str]) -> None:
        location, category, text = payload
        if kind == ev.FAILURE and category == "SESSION_API_DELAY":
            self.tracker.slow(thread, ev.Event(ns, ev.SLOW, text, location))
        elif kind == ev.ERROR:
            self.tracker.error(thread, ev.Event(ns, kind, text, location))
        else:
            self.tracker.failure(thread, ev.Event(ns, kind, text, location))

    def take_other(self, message: Any) -> None:
        if isinstance(message, bt2._StreamBeginningMessageConst):
            for stream_class in message.stream.trace.cls.values():
                self.names.update(c.name for c in stream_class.values())
        elif isinstance(message, bt2._DiscardedEventsMessageConst):
            self.lost_events += message.count or 1
            self.tracker.events_were_lost()
        elif isinstance(message, bt2._DiscardedPacketsMessageConst):
            self.lost_packets += message.count or 1
            self.tracker.events_were_lost()

    def learn(self, pointer: Any) -> _Class:
        native_bt.message_get_ref(pointer)
        event = bt2_message._create_from_ptr(pointer).event
        trace = self.trace_of(event.stream.trace)
        name = event.cls.name
        self.names.add(name)
        kind = ev.CALLER
        if name in ev.NAMES and self.has_texts(event.cls.payload_field_class):
            kind = ev.NAMES[name]
        elif name.startswith(ev.PROVIDERS):
            self.unknown[name] = 1
        context = event.cls.stream_class.event_common_context_field_class
        members = list(context) if context is not None else []
        place = next((members.index(n) for n in ("vtid", "vpid") if n in members), -1)
        self.threads_recorded &= place >= 0 or trace.fixed_pid is not None
        tracker = self.tracker
        handle = {ev.ENTER: tracker.enter, ev.LEAVE: tracker.leave, ev.CALL: tracker.call,
                  ev.ARGUMENTS: tracker.arguments}.get(kind)
        known = _Class(kind, place, trace, handle)
        event_pointer = native_bt.message_event_borrow_event_const(pointer)
        self.classes[int(native_bt.event_borrow_class_const(event_pointer))] = known
        return known

    @staticmethod
    def has_texts(payload: Any) -> bool:
        members = list(payload.values()) if payload is not None else []
        return len(members) >= 3 and all(isinstance(m.field_class, bt2._StringFieldClassConst) for m in members[:3])

    def trace_of(self, trace: Any) -> _Trace:
        key = str(trace.uuid) if trace.uuid is not None else str(trace.addr)  # the parts of one that was rotated or cut
        if key not in self.traces:
            environment = {n: trace.environment[n] for n in trace.environment}
            pid = environment.get("vpid")
            self.traces[key] = _Trace(str(environment.get("hostname", "")), None if pid is None else int(pid),
                                      str(environment.get("procname", "")))
        return self.traces[key]

    def new_thread(self, known: _Class, number: int, pointer: Any) -> Thread:
        native_bt.message_get_ref(pointer)
        context = bt2_message._create_from_ptr(pointer).event.common_context_field
        trace = known.trace
        pid, name = trace.fixed_pid, trace.fixed_name
        if context is not None and "vpid" in context:
            pid = int(context["vpid"])
        if context is not None and "procname" in context:
            name = str(context["procname"])
        process = trace.processes.setdefault(pid, Process(name, pid, trace.host))
        thread = trace.threads.get(number)
        if thread is None or thread.process is not process:
            thread = trace.threads[number] = Thread(process)
            self.tracker.threads.append(thread)
        return thread

    def caller_text(self, pointer: object) -> str:
        native_bt.message_get_ref(pointer)
        message = bt2_message._create_from_ptr(pointer)
        event = message.event
        payload = event.payload_field
        fields = ", ".join(f"{n} = {payload[n]}" for n in payload) if payload is not None else ""
        return f"{event.name}: {fields}"[:MOST_CALLERS_TEXT]

    def end(self) -> None:
        for thread in self.tracker.threads:
            for pointer in thread.caller:
                native_bt.message_put_ref(pointer)
            thread.caller.clear()
