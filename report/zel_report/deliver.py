"""Writes a report where it is wanted."""

from __future__ import annotations

import json
import os
import shutil
import sys

from .page import page
from .report import Data
from .terminal import Terminal


class NoReport(Exception):
    """The text says why there is none."""


def _write(name: str, text: str) -> None:
    try:
        with open(name, "w", encoding="utf-8", errors="backslashreplace") as out:
            out.write(text)
    except OSError as error:
        raise NoReport(f"{name} cannot be written: {error.strerror}") from None


def deliver(data: Data, html: str, json_name: str, operation: int) -> None:
    """To the terminal unless it goes to the standard output as JSON."""
    if data["events"] == data["events_of_others"] and not data["recorded"]:
        providers = ", ".join(data["providers"]) or "none"
        raise NoReport(f"no event of libzel-core-term in {', '.join(data['traces']) or 'the trace'} "
                       f"(providers in it: {providers})")
    if operation and data["shown"] is None:
        raise NoReport(f"the trace has no operation number {operation}")
    if html == "-":
        sys.stdout.write(page(data))
        return
    if html:
        _write(html, page(data))
    as_json = json.dumps(data, indent=1) + "\n" if json_name else ""
    if json_name == "-":
        sys.stdout.write(as_json)
        return
    if json_name:
        _write(json_name, as_json)
    sys.stdout.reconfigure(errors="replace")
    on_terminal = sys.stdout.isatty()
    coloured = on_terminal and not os.environ.get("NO_COLOR") and os.environ.get("TERM") != "dumb"
    terminal = Terminal(sys.stdout, coloured, shutil.get_terminal_size().columns if on_terminal else 120)
    if operation:
        terminal.show_operation(data["shown"])
    else:
        terminal.show(data)
