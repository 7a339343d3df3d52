"""The report as one page that needs nothing else."""

from __future__ import annotations

from html import escape
from pathlib import Path
from typing import Any

from .report import Data, result_text, times_text

HERE = Path(__file__).parent


def items(lines: list[str], tag: str = "ul") -> str:
    return f"<{tag}>" + "".join(f"<li>{escape(t)}</li>" for t in lines) + f"</{tag}>" if lines else ""


def code(text: str) -> str:
    return f"<code>{escape(text)}</code>"


def table(columns: list[str], rows: list[list[str]]) -> str:
    """Of cells that are HTML already; on a narrow screen each row becomes a block with its columns' names."""
    if not rows:
        return ""
    head = "".join(f"<th>{escape(c)}</th>" for c in columns)
    body = "".join("<tr>" + "".join(f'<td{f" data-is={chr(34)}{escape(c)}{chr(34)}" if i else ""}>{cell}</td>'
                                    for i, (c, cell) in enumerate(zip(columns, row))) + "</tr>" for row in rows)
    return f'<div class="scroll"><table class="stack"><thead><tr>{head}</tr></thead><tbody>{body}</tbody></table></div>'


def link(number: int, shown: set[int]) -> str:
    return f'<a href="#operation-{number}">#{number}</a>' if number in shown else f"#{number}" if number else ""


def timeline(data: Data, shown: set[int]) -> str:
    """A click on a bar leads to its first operation."""
    line = data["timeline"]
    parts = []
    for what, style in (("failures", "f"), ("slow calls", "s")):
        counts = line[what]
        if not sum(counts):
            continue
        most, width = max(counts), 960 / len(counts)
        head = f"{what}, at most {most:,} in {escape(line['width'])}; a bar leads to its first operation"
        bars = []
        for place, count in enumerate(counts):
            if count:
                height = max(3, 70 * count / most)
                bar = (f'<rect class="{style}" x="{place * width:.1f}" y="{100 - height:.1f}" '
                       f'width="{width * 0.9:.1f}" height="{height:.1f}"><title>{count:,} {what}</title></rect>')
                number = line["first_operation"][place]
                bars.append(f'<a href="#operation-{number}">{bar}</a>' if number in shown else bar)
        parts.append(f'<p class="dim">{head}</p><svg viewBox="0 0 960 102" '
                     f'preserveAspectRatio="none" role="img" aria-label="{what} over time"><path class="axis" '
                     f'd="M0 101H960"/>{"".join(bars)}</svg><p class="dim ends"><span>{escape(data["begin"])}</span>'
                     f'<span>{escape(data["end"])}</span></p>')
    return "<h2>Over time</h2>" + "".join(parts) if parts else ""


def ladder(steps: list[Data]) -> str:
    rows, depth = [], 0
    for step in steps:
        depth -= step["kind"] == "leave"
        text = code(f"{step['function']}() {step['text']}")
        rows.append(f'<tr class="{step["kind"].split()[0]}"><td class="number"><small>{step["after_us"]:,.1f} us'
                    f'</small></td><td>{step["kind"]}</td><td style="padding-left:{depth}rem">'
                    f'{text} <small>{escape(step["location"])}</small></td></tr>')
        depth += step["kind"] == "enter"
    return f'<div class="scroll"><table class="ladder"><tbody>{"".join(rows)}</tbody></table></div>'


def left(what: Data) -> str:
    out = f'<p class="bad">Left: {escape(", ".join(what["left"]))}</p>' if what["left"] else "<p>Left: nothing</p>"
    if what["possibly"]:
        out += f'<p class="warn">Possibly left: {escape(", ".join(what["possibly"]))}</p>'
    return out


def operation(data: Data, is_open: bool = False) -> str:
    caller = "".join(f"<p class=dim>before it: {code(c)}</p>" for c in data["caller"])
    took = f", took {data['duration']}" if data["duration"] else ""
    handles = f', handles {", ".join(dict.fromkeys(data["handles"]))}' if data["handles"] else ""
    return (f'<details id="operation-{data["number"]}"{" open" if is_open else ""}><summary>#{data["number"]}, '
            f'{escape(data["time"])}: {escape((data["subject"] or "id not recorded") + handles)}, '
            f'{escape(data["process"])}{escape(took)}</summary>'
            f'{caller}{ladder(data["steps"])}{items(data["notes"])}</details>')


def group(data: Data, name: str) -> str:
    when = data["first"] if data["count"] == 1 else f"first {data['first']}, last {data['last']}"
    times = times_text(data["count"])
    anchor = name.lower().replace(" ", "-")
    out = [f'<div class="card"><h3 id="{anchor}">{name}: {escape(data["title"])}, {times}</h3>'
           f'<p class="dim">{escape(when)}, result {escape(result_text(data["result"]))}</p>']
    if "means" in data:
        out.append(f'<p class="warn">"{escape(data["words"])}", {code(data["cause"])}: {escape(data["means"])}; '
                   "nothing was done.</p>")
    else:
        out.append(f'<p class="bad">Failed at {code(data["step"] + "()")}: {code(data["cause"])}: '
                   f'"{escape(data["words"])}"</p>')
        out.append("<ol>" + "".join(f'<li>{code(f["call"])}: "{escape(f["words"])}"; {escape(f["verdict"])}</li>'
                                    for f in data["failures"]) + "</ol>" if len(data["failures"]) > 1 else "")
        out.append(left(data))
    if data["lost"]:
        out.append(f'<p class="bad">{escape(data["lost"])}</p>')
    if data["kept"]:
        out.append(f'<p class="warn">{escape(data["kept"])}</p>')
    out.append(items(data["notes"]))
    out += [f"<p><b>To do:</b> {escape(a)}</p>" for a in data["advice"]]
    out += [operation(e) for e in data["examples"]]
    return "".join(out) + "</div>"


def page(data: Data) -> str:
    answer: dict[str, Any] = data["answer"]
    groups = data["failures"] + data["refusals"]
    examples = {e["number"] for g in groups for e in g["examples"]}
    of_bars = [o for o in data["first_of_bins"] if o["number"] not in examples]
    shown = examples | {o["number"] for o in of_bars}
    title = ("Failures in " if answer["failed"] else "Report on ") + escape(", ".join(data["traces"]))
    parts = [
        "<!doctype html><html lang=en><head><meta charset=utf-8><meta name=viewport content='width=device-width, "
        f"initial-scale=1'><title>{title}</title><style>{(HERE / 'page.css').read_text()}</style></head><body>"
        f"<h1>{title}</h1>",
        f"<p class=dim>{escape(', '.join(data['traces']))}: {escape(data['begin'])} to {escape(data['end'])} "
        f"{data['time_zone']} ({escape(data['span'])}), {data['events']:,} events of "
        f"{escape(', '.join(data['processes']))}"
        f"{escape(' on ' + ', '.join(data['hosts'])) if data['hosts'] else ''}</p>",
        f"<div class='answer{' failed' if answer['failed'] or answer['left'] else ''}'><h2>What failed</h2>",
        "".join(f"<p{' class=bad' if i == 0 and answer['failed'] else ''}>{escape(s)}</p>"
                for i, s in enumerate(answer["sentences"])),
        f"<h2>What is left in the data plane without an owner</h2><p{' class=bad' if answer['left'] else ''}>"
        f"{escape(answer['left_text'])}.</p>",
        f"<p class=warn>Possibly left: {escape(answer['possibly_text'])}.</p>" if answer["possibly_text"] else "",
        f"<p class=warn>In use although their add failed: {escape(answer['kept_text'])}.</p>"
        if answer["kept_text"] else "",
        f"<p class=bad>{escape(answer['lost_text'])}</p>" if answer["lost_text"] else "",
        f"<h2>What to do, unless it was done since</h2>{items(answer['what_to_do'])}</div>",
        timeline(data, shown),
        f"<h2>What this trace cannot tell</h2>{items(data['unknown'])}",
        "<h2>Operations</h2>" + table(
            ["operation", "seen", "failed", "with result", "refused", "median", "99 %", "worst", "of"],
            [[escape(o["title"]), f"{o['count']:,}" if o["count"] is not None else "failures only", f"{o['failed']:,}",
              escape(", ".join(f"{r}: {n:,}" for r, n in o["results"].items())), f"{o['refused']:,}", o["median"],
              o["p99"], o["worst"], link(o["worst_number"], shown)] for o in data["operations"]])
        if data["operations"] else "",
        "<h2>Failures</h2>" if data["failures"] else "",
        *(group(g, f"Failure {i}") for i, g in enumerate(data["failures"], 1)),
        "<h2>The first failure of each bar</h2>" + "".join(operation(o) for o in of_bars) if of_bars else "",
        "<h2>Refused</h2>" + "".join(group(g, "Refused") for g in data["refusals"]) if data["refusals"] else "",
        "<h2>Slow data-plane calls</h2>" + table(
            ["call", "count", "worst", "at", "of", "first", "last"],
            [[code(s["call"]), f"{s['count']:,}", escape(s["worst"]), s["worst_time"], link(s["number"], shown),
              s["first"], s["last"]] for s in data["slow"]]) if data["slow"] else "",
        "<h2>Errors of the bookkeeping</h2>" + "".join(
            f"<div class=card><h3>{escape(e['text'])}, {escape(times_text(e['count']))}</h3>"
            f"<p>Means: {escape(e['means'])}.</p>"
            f"<p><b>To do:</b> {escape(e['to_do'])}.</p><p class=dim>first {e['first']}, last {e['last']}</p></div>"
            for e in data["errors"]) if data["errors"] else "",
        f"<script>{(HERE / 'page.js').read_text()}</script></body></html>\n",
    ]
    return "".join(parts)
