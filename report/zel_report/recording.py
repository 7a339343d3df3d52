"""Finds what lttng recorded, and makes readable what was cut or damaged."""

from __future__ import annotations

import os
import re
import struct
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

_LIVE = re.compile(r"net[46]?://[^/]+/host/[^/]+/[^/]+")
_MAGIC = 0xC1FC1FC1
# The header and context that begin each packet of the tracer: magic, uuid, stream, instance, begin and end in ticks of
# the trace's clock, then the sizes of the content and of the packet in bits.
_PACKET = struct.Struct("<I16sIQQQQQ")

# The same of the metadata: magic, uuid, checksum, sizes of the content and of the packet in bits.
_METADATA_MAGIC = 0x75D11D57
_METADATA_PACKET = struct.Struct("<I16sIII")


class NotATrace(Exception):
    """There is nothing to read; the text says why."""


@dataclass
class Recording:
    """What babeltrace2 can read, by trace: the folders of one that was rotated belong together."""

    traces: list[list[str]] = field(default_factory=list)
    cut_packets: list[str] = field(default_factory=list)  # each in a folder, to be read as far as it goes
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
    """From the first of its packets. All must be whole: babeltrace2 does not end on metadata that was cut."""
    content = metadata.read_bytes()
    uuid, at = b"", 0
    while at + _METADATA_PACKET.size <= len(content):
        magic, uuid, _, _, packet = _METADATA_PACKET.unpack_from(content, at)
        if magic != _METADATA_MAGIC or packet < _METADATA_PACKET.size * 8:
            break
        at += packet // 8
    if at != len(content) or not at:
        raise NotATrace(f"{metadata} is damaged, or not of a trace that lttng recorded")
    return uuid


def _streams_in(folder: Path) -> list[Path]:
    return sorted(p for p in folder.iterdir() if p.is_file() and p.name != "metadata" and not p.name.startswith("."))


def _copy(source_path: Path, begin: int, end: int, to: Path, header: bytes = b"") -> None:
    with source_path.open("rb") as source, to.open("wb") as copy:
        copy.write(header)
        copy.flush()
        at = begin + len(header)
        while at < end and (sent := os.sendfile(copy.fileno(), source.fileno(), at, end - at)):
            at += sent


def _folder_beside(folder: Path, into: Path) -> Path:
    into.mkdir()
    (into / "metadata").symlink_to((folder / "metadata").resolve())
    return into


def _repair(folder: Path, streams: list[_Stream], recording: Recording, into: Path) -> str:
    """A folder with the whole packets of a trace, and one for each packet that was cut. Only damaged files are
    copied."""
    whole = _folder_beside(folder, Path(f"{into}-whole"))
    for number, stream in enumerate(streams):
        if not stream.is_damaged:
            (whole / stream.path.name).symlink_to(stream.path.resolve())
            continue
        size = stream.path.stat().st_size
        recording.damage.append(f"{stream.path} is cut or damaged within a packet: the rest of that packet, and what "
                                "comes after it, is missing here.")
        if stream.whole:
            _copy(stream.path, 0, stream.whole, whole / stream.path.name)
        with stream.path.open("rb") as source:
            source.seek(stream.whole)
            header = source.read(_PACKET.size)
        if len(header) == _PACKET.size and _PACKET.unpack(header)[0] == _MAGIC:
            bits = (size - stream.whole) * 8
            fields = _PACKET.unpack(header)
            cut = _folder_beside(folder, Path(f"{into}-cut-{number}"))
            _copy(stream.path, stream.whole, size, cut / stream.path.name,
                  _PACKET.pack(*fields[:6], min(bits, fields[6]), bits))
            recording.cut_packets.append(str(cut))
    return str(whole)


def find(arguments: list[str]) -> Recording:
    recording = Recording()
    folders: list[Path] = []
    for argument in arguments:
        if "://" in argument:
            if not _LIVE.fullmatch(argument):
                raise NotATrace(f"{argument} is not net://HOST/host/HOSTNAME/SESSION; 'babeltrace2 "
                                "--input-format=lttng-live net://HOST' lists the sessions")
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
        if any(s.is_damaged for s in streams):
            if recording.repaired is None:
                recording.repaired = tempfile.TemporaryDirectory(prefix="zel-term-report-")
            into = Path(recording.repaired.name, str(len(recording.damage)))
            readable = _repair(folder, streams, recording, into)
        by_trace.setdefault(uuid, []).append(readable)
    recording.traces += by_trace.values()
    recording.span_ns = max(ends) - min(begins) if begins else 0
    return recording
