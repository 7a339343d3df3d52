"""The report as text."""

from __future__ import annotations

import textwrap
from collections.abc import Iterable
from typing import TextIO

from .report import Data, result_text, times_text

COLOURS = {"bad": "31", "warn": "33", "head": "1", "dim": "2"}
BARS = " ▁▂▃▄▅▆▇█"
ASCII_BARS = " .:-=+*#"
MOST_NUMBERS = 12  # of a group's operations, that are shown


class Terminal:
    def __init__(self, out: TextIO, coloured: bool, width: int) -> None:
        self.out, self.coloured, self.width = out, coloured, max(width, 40)
        self.bars = BARS if (out.encoding or "").lower().startswith("utf") else ASCII_BARS

    def paint(self, text: str, colour: str) -> str:
        return f"\033[{COLOURS[colour]}m{text}\033[0m" if self.coloured and text else text

    def line(self, text: str = "", colour: str = "", indent: str = "", hanging: str = "") -> None:
        # What comes from a trace may have characters that would move the cursor or change the terminal.
        text = "".join(c if c.isprintable() else "?" for c in text)
        for row in textwrap.wrap(text, self.width, initial_indent=indent, subsequent_indent=hanging or indent,
                                 break_long_words=False, break_on_hyphens=False) or [""]:
            self.out.write((self.paint(row, colour) if colour else row) + "\n")

    def head(self, text: str) -> None:
        self.line()
        self.line(text.upper(), "head")

    def items(self, lines: Iterable[str], colour: str = "") -> None:
        for text in lines:
            self.line(text, colour, "  - ", "    ")

    def table(self, columns: list[str], rows: list[list[str]]) -> None:
        if not rows:
            return
        widths = [max(len(r[i]) for r in [columns, *rows]) for i in range(len(columns))]
        numeric = [all(r[i][:1].isdigit() or not r[i] for r in rows) for i in range(len(columns))]
        for number, row in enumerate([columns, *rows]):
            cells = [c.rjust(w) if n else c.ljust(w) for c, w, n in zip(row, widths, numeric)]
            text = ("  " + "  ".join(cells)).rstrip()
            self.out.write((self.paint(text, "dim") if number == 0 else text) + "\n")

    # ---- The parts of the report

    def show(self, data: Data) -> None:
        self.line(f"{', '.join(data['traces']) or 'trace'}: {data['begin']} to {data['end'][11:]} {data['time_zone']} "
                  f"({data['span']}), "
                  f"{data['events']:,} events of {', '.join(data['processes'])}"
                  + (f" on {', '.join(data['hosts'])}" if data["hosts"] else ""), hanging="  ")
        answer = data["answer"]
        self.head("What failed")
        for number, sentence in enumerate(answer["sentences"]):
            self.line(sentence, "bad" if number == 0 and answer["failed"] else "", "  ", "    ")
        self.head("What is left in the data plane without an owner")
        self.line(answer["left_text"] + ".", "bad" if answer["left"] else "", "  ")
        if answer["possibly_text"]:
            self.line(f"Possibly left: {answer['possibly_text']}.", "warn", "  ", "    ")
        if answer["kept_text"]:
            self.line(f"In use although their add failed: {answer['kept_text']}.", "warn", "  ", "    ")
        if answer["lost_text"]:
            self.line(answer["lost_text"], "bad", "  ")
        self.head("What to do, unless it was done since")
        self.items(answer["what_to_do"])
        self.head("What this trace cannot tell")
        self.items(data["unknown"])
        self.operations(data)
        for number, group in enumerate(data["failures"], 1):
            self.group(group, f"Failure {number}")
        for group in data["refusals"]:
            self.group(group, "Refused")
        self.slow(data)
        for error in data["errors"]:
            self.head(f"Error, {times_text(error['count'])}")
            self.line(error["text"], "warn", "  ")
            self.line(f"Means: {error['means']}. To do: {error['to_do']}.", "", "  ")
            self.line(f"First {error['first']}, last {error['last']}.", "", "  ")
        self.over_time(data)

    def operations(self, data: Data) -> None:
        if not data["operations"]:
            return
        self.head("Operations")
        self.table(
            ["operation", "seen", "failed", "with result", "refused", "median", "99 %", "worst", "of"],
            [[o["title"], f"{o['count']:,}" if o["count"] is not None else "failures only", f"{o['failed']:,}",
              ", ".join(f"{r}: {n:,}" for r, n in o["results"].items()), f"{o['refused']:,}", o["median"], o["p99"],
              o["worst"], f"#{o['worst_number']}" if o["worst_number"] else ""] for o in data["operations"]])

    def group(self, group: Data, name: str) -> None:
        numbers = f"operation #{group['first_number']}"
        if group["count"] > 1:
            numbers = f"operations #{group['first_number']} to #{group['last_number']}"
            if group["left"] or group["possibly"]:
                numbers = "operations " + ", ".join(f"#{n}" for n in group["numbers"][:MOST_NUMBERS])
                numbers += ", ..." if group["count"] > MOST_NUMBERS else ""
        self.head(f"{name}: {group['title']}, {times_text(group['count'])} ({numbers})")
        times = group["first"] if group["count"] == 1 else f"first {group['first']}, last {group['last']}"
        self.line(f"{times}; result {result_text(group['result'])}", "", "  ")
        if "means" in group:
            self.line(f"\"{group['words']}\", {group['cause']}: {group['means']}; nothing was done.", "", "  ", "    ")
        else:
            self.line(f"failed at {group['step']}(): {group['cause']}: \"{group['words']}\"", "bad", "  ", "    ")
        leaves_nothing = not group["left"] and not group["possibly"]
        for failure in group["failures"]:
            if len(group["failures"]) > 1 or (failure["verdict"] and not leaves_nothing):
                self.line(f"{failure['call']}: \"{failure['words']}\"; {failure['verdict']}", "", "  - ",
                          "    ")
        if "means" not in group:
            self.line("left: " + (", ".join(group["left"]) or "nothing"), "bad" if group["left"] else "", "  ")
        if group["possibly"]:
            self.line("possibly left: " + ", ".join(group["possibly"]), "warn", "  ")
        if group["kept"]:
            self.line(group["kept"], "warn", "  ")
        if group["lost"]:
            self.line(group["lost"], "bad", "  ")
        self.items(group["notes"])
        for line in group["advice"]:
            self.line("To do: " + line, "", "  ", "    ")
        for example in group["examples"]:
            handles = ", handles " + ", ".join(dict.fromkeys(example["handles"])) if example["handles"] else ""
            subject = example["subject"] or "id not recorded"
            self.line(f"#{example['number']}, {example['time'][11:]}: {subject}{handles}, {example['process']}", "dim",
                      "  ", "    ")
            for caller in example["caller"]:
                self.line("before it: " + caller, "dim", "    ", "      ")

    def slow(self, data: Data) -> None:
        if not data["slow"]:
            return
        self.head("Slow data-plane calls")
        self.table(["call", "count", "worst", "at", "of", "first", "last"],
                   [[s["call"], f"{s['count']:,}", s["worst"], s["worst_time"][11:],
                     f"#{s['number']}" if s["number"] else "", s["first"][11:], s["last"][11:]] for s in data["slow"]])

    def over_time(self, data: Data) -> None:
        line = data["timeline"]
        for what in ("failures", "slow calls"):
            counts = line[what]
            if sum(counts) > 1:
                most = max(counts)
                bars = "".join(self.bars[-(-c * (len(self.bars) - 1) // most)] for c in counts)
                self.head(f"{what} over time")
                self.line(f"from {line['begin']}, {line['width']} a bar, at most {most:,}", "", "  ")
                self.out.write("  " + bars + "|\n")

    def show_operation(self, operation: Data) -> None:
        took = f", took {operation['duration']}" if operation["duration"] else ""
        self.line(f"Operation #{operation['number']}: {operation['title']}, {operation['time']}{took}, "
                  f"result {result_text(operation['result'])}", "head")
        self.line(", ".join(t for t in (operation["subject"], operation["process"]) if t), "", "  ")
        for caller in operation["caller"]:
            self.line("before it: " + caller, "dim", "  ", "    ")
        depth = 0
        for step in operation["steps"]:
            depth -= step["kind"] == "leave"
            colour = {"failed": "bad", "passed on": "warn", "error": "warn", "slow": "warn"}.get(step["kind"], "")
            where = f"  [{step['location']}]" if step["location"] else ""
            start = f"{step['after_us']:>12,.1f} us  {step['kind']:<10} " + "  " * depth
            self.line(f"{step['function']}() {step['text']}{where}", colour, start, " " * (len(start) + 4))
            depth += step["kind"] == "enter"
        for failure in operation["failures"]:
            if failure["verdict"]:
                self.line(f"{failure['call']}: {failure['verdict']}", "", "  - ", "    ")
        self.line("left: " + (", ".join(operation["left"]) or "nothing"), "bad" if operation["left"] else "", "  ")
        if operation["possibly"]:
            self.line("possibly left: " + ", ".join(operation["possibly"]), "warn", "  ")
        self.items(operation["notes"])
