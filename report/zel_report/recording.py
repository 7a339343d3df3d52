"""Finds what lttng recorded, and makes readable what was cut or damaged."""

from __future__ import annotations

import os
import struct
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

_MAGIC = 0xC1FC1FC1
# The header and context that begin each packet of the tracer: magic, uuid, stream, instance, begin and end in ticks of
# the trace's clock, then the sizes of the content and of the packet in bits.
_PACKET = struct.Struct("<I16sIQQQQQ")


class NotATrace(Exception):
    """There is nothing to read; the text says why."""


@dataclass
class Recording:
    """What babeltrace2 can read, by trace: the folders of one that was rotated belong together."""

    traces: list[list[str]] = field(default_factory=list)
    damage: list[str] = field(default_factory=list)
    span_ns: int = 0  # 0: unknown
    repaired: tempfile.TemporaryDirectory[str] | None = None


@dataclass
class _Stream:
    path: Path
    whole: int  # bytes of the packets that are whole
    begin: int
    end: int

    @property
    def is_damaged(self) -> bool:
        return self.whole < self.path.stat().st_size


def _scan(path: Path) -> _Stream:
    """Goes from packet to packet."""
    size = path.stat().st_size
    whole = begin = end = 0
    with path.open("rb") as stream:
        while whole < size:
            stream.seek(whole)
            header = stream.read(_PACKET.size)
            if len(header) < _PACKET.size:
                break
            magic, _, _, _, first, last, content, packet = _PACKET.unpack(header)
            if magic != _MAGIC or content > packet or packet < _PACKET.size * 8 or whole + packet // 8 > size:
                break
            begin, end = begin or first, last
            whole += packet // 8
    return _Stream(path, whole, begin, end)


def _uuid_of(metadata: Path) -> bytes:
    """In the text, or in the header of packets of text."""
    text = metadata.read_bytes()
    found = text.partition(b'uuid = "')[2][:36]
    if not found:
        raise NotATrace(f"{metadata.parent} is not a trace, or its metadata is damaged")
    return found


def _streams_in(folder: Path) -> list[Path]:
    return sorted(p for p in folder.iterdir() if p.is_file() and p.name != "metadata" and not p.name.startswith("."))


def _repair(folder: Path, streams: list[_Stream], into: Path) -> str:
    """A folder with the whole packets of a trace; only damaged files are copied."""
    into.mkdir()
    (into / "metadata").symlink_to((folder / "metadata").resolve())
    for stream in streams:
        if not stream.is_damaged:
            (into / stream.path.name).symlink_to(stream.path.resolve())
        elif stream.whole:
            with stream.path.open("rb") as source, (into / stream.path.name).open("wb") as copy:
                at = 0
                while at < stream.whole:
                    at += os.sendfile(copy.fileno(), source.fileno(), at, stream.whole - at)
    return str(into)


def find(arguments: list[str]) -> Recording:
    recording = Recording()
    folders: list[Path] = []
    for argument in arguments:
        if argument.startswith(("net://", "net4://", "net6://")):
            recording.traces.append([argument])
            continue
        path = Path(argument)
        if not path.exists():
            raise NotATrace(f"there is no {argument}")
        found: list[Path] = []

        def cannot_read(error: OSError) -> None:
            raise NotATrace(f"{error.filename}: {error.strerror}")

        for parent, _, files in os.walk(path, onerror=cannot_read):
            if "metadata" in files:
                found.append(Path(parent))
        if not found:
            raise NotATrace(f"{argument} is not a trace: there is no file 'metadata' in it")
        folders += sorted(found)
    by_trace: dict[bytes, list[str]] = {}
    begins, ends = [], []
    for folder in folders:
        try:
            uuid = _uuid_of(folder / "metadata")
            streams = [_scan(p) for p in _streams_in(folder)]
        except OSError as error:
            raise NotATrace(f"{error.filename}: {error.strerror}") from None
        begins += [s.begin for s in streams if s.whole]
        ends += [s.end for s in streams if s.whole]
        readable = str(folder)
        damaged = [s for s in streams if s.is_damaged]
        if damaged:
            if recording.repaired is None:
                recording.repaired = tempfile.TemporaryDirectory(prefix="zel-term-report-")
            into = Path(recording.repaired.name, str(len(recording.damage)) + "-" + folder.name)
            readable = _repair(folder, streams, into)
            for stream in damaged:
                recording.damage.append(
                    f"{stream.path} is damaged or cut after {stream.whole:,} of {stream.path.stat().st_size:,} bytes: "
                    "what comes after that is not in this report.")
        by_trace.setdefault(uuid, []).append(readable)
    recording.traces += by_trace.values()
    recording.span_ns = max(ends) - min(begins) if begins else 0
    return recording
