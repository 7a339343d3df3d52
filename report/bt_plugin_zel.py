"""The component sink.zel.report of babeltrace2."""

from __future__ import annotations

import json
import os
import shutil
import sys
import time
from typing import Any

import bt2

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from zel_report.operations import Tracker  # noqa: E402
from zel_report.reader import Reader  # noqa: E402
from zel_report.page import page  # noqa: E402
from zel_report.report import build  # noqa: E402
from zel_report.summary import Summary  # noqa: E402
from zel_report.terminal import Terminal  # noqa: E402

PROGRESS_AFTER_S = 2.0


@bt2.plugin_component_class
class report(bt2._UserSinkComponent):
    """Reports what failed, what is left in the data plane, and what to do.

    Parameters: html=FILE and json=FILE write the report there, operation=N shows that operation step by step.
    """

    def __init__(self, config: Any, params: Any, options: Any) -> None:
        options = options or {}
        self.port = self._add_input_port("in")
        self.html = str(params.get("html", ""))
        self.json = str(params.get("json", ""))
        self.operation = int(params.get("operation", 0))
        self.traces: list[str] = options.get("traces", [])
        self.damage: list[str] = options.get("damage", [])
        self.span_ns: int = options.get("span_ns", 0)
        self.status = options.get("status", {})
        self.tracker = Tracker(Summary(), self.operation)
        self.reader = Reader(self.tracker)
        self.finished = False
        self.started = self.shown = time.monotonic()

    def _user_graph_is_configured(self) -> None:
        self.iterator = self._create_message_iterator(self.port)

    def _user_consume(self) -> None:
        try:
            for _ in range(100):
                self.reader.consume(self.iterator._ptr)
            self.show_progress()
        except bt2.TryAgain:
            raise
        except bt2.Stop:
            self.finish()
            raise
        except bt2._Error as error:
            self.reader.broken = str(error).strip().splitlines()[-1].strip()
            self.finish()
            raise bt2.Stop from None

    def _user_finalize(self) -> None:
        self.finish()  # interrupted

    def show_progress(self) -> None:
        now = time.monotonic()
        if not sys.stderr.isatty() or now - self.started < PROGRESS_AFTER_S or now - self.shown < 0.2:
            return
        self.shown = now
        share = (self.reader.last_ns - self.reader.first_ns) / self.span_ns if self.span_ns else 0
        bar = f"[{'#' * int(share * 40):<40}] {share:4.0%} " if self.span_ns else ""
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
        data = build(self.reader, self.tracker, self.traces, self.damage)
        if not self.reader.events - self.reader.other_events:
            providers = ", ".join(data["providers"]) or "none"
            print(f"no event of libzel-core-term in the trace (its providers: {providers})", file=sys.stderr)
            self.status["failed"] = True
            return
        if self.json:
            with (open(self.json, "w", encoding="utf-8") if self.json != "-" else os.fdopen(os.dup(1), "w")) as out:
                json.dump(data, out, indent=1)
                out.write("\n")
        if self.html:
            with open(self.html, "w", encoding="utf-8", errors="backslashreplace") as out:
                out.write(page(data))
        if self.json == "-":
            return
        coloured = sys.stdout.isatty() and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"
        terminal = Terminal(sys.stdout, coloured, shutil.get_terminal_size().columns if sys.stdout.isatty() else 120)
        if self.operation:
            if data["shown"] is None:
                print(f"the trace has no operation number {self.operation}", file=sys.stderr)
                self.status["failed"] = True
                return
            terminal.show_operation(data["shown"])
        else:
            terminal.show(data)


bt2.register_plugin(__name__, "zel", "reports on libzel-core-term", version=(1, 0, 0))
