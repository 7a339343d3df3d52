"""The component sink.zel.report of babeltrace2."""

from __future__ import annotations

import os
import sys
import time
from typing import Any

import bt2

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True

from zel_report.deliver import deliver  # noqa: E402
from zel_report.operations import Tracker  # noqa: E402
from zel_report.reader import Reader  # noqa: E402
from zel_report.report import build  # noqa: E402
from zel_report.summary import Summary  # noqa: E402

PROGRESS_AFTER_S = 2.0
BATCHES = 100  # before the graph's turn, in which it can be interrupted


@bt2.plugin_component_class
class report(bt2._UserSinkComponent):
    """Reports what failed, what is left in the data plane, and what to do.

    Parameters: html=FILE and json=FILE write the report there too, operation=N shows that operation step by step.
    """

    def __init__(self, config: Any, params: Any, command: dict[str, Any] | None) -> None:
        """`command` is that of the program that runs the graph itself: what it knows of the trace, and where it wants
        the report."""
        if unknown := set(params) - {"html", "json", "operation"}:
            raise ValueError(f"unknown parameters: {', '.join(sorted(unknown))}")
        self.command = command
        if command is not None:
            command["component"] = self
        self.port = self._add_input_port("in")
        self.html, self.json = str(params.get("html", "")), str(params.get("json", ""))
        self.operation = int(params.get("operation", 0))
        self.tracker = Tracker(Summary(), self.operation)
        self.reader = Reader(self.tracker)
        self.finished = False
        self.started = self.shown = time.monotonic()

    def _user_graph_is_configured(self) -> None:
        self.iterator = self._create_message_iterator(self.port)

    def _user_consume(self) -> None:
        try:
            for _ in range(BATCHES):
                self.reader.consume(self.iterator._ptr)
        except bt2.Stop:
            self.finish()
            raise
        except bt2._Error as error:
            self.reader.broken = str(error).strip().splitlines()[-1].strip()
            self.finish()
            raise bt2.Stop from None
        self.show_progress()

    def _user_finalize(self) -> None:
        self.finish()  # interrupted

    def show_progress(self) -> None:
        now = time.monotonic()
        if not sys.stderr.isatty() or now - self.started < PROGRESS_AFTER_S or now - self.shown < 0.2:
            return
        self.shown = now
        span_ns = self.command["span_ns"] if self.command else 0
        share = min(1.0, (self.reader.last_ns - self.reader.first_ns) / span_ns) if span_ns else 0
        bar = f"[{'#' * int(share * 40):<40}] {share:4.0%} " if span_ns else ""
        sys.stderr.write(f"\r{bar}{self.reader.events:,} events ")
        sys.stderr.flush()

    def finish(self) -> None:
        if self.finished:
            return
        self.finished = True
        if self.shown != self.started:
            sys.stderr.write("\r\033[K")
        self.tracker.end()
        self.reader.end()
        if self.command is not None:
            self.command["data"] = build(self.reader, self.tracker, self.command["traces"], self.command["damage"])
            return
        deliver(build(self.reader, self.tracker, [], []), self.html, self.json, self.operation)


bt2.register_plugin(__name__, "zel", "reports on libzel-core-term", version=(1, 0, 0))
