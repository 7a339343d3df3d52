"""A filter for babeltrace2 that ends where its source cannot read on: in the middle of a packet that was cut."""

from __future__ import annotations

from typing import Any

import bt2


class _Iterator(bt2._UserMessageIterator):
    def __init__(self, config: Any, port: Any) -> None:
        self.messages = self._create_message_iterator(self._component._input_ports["in"])
        self.packet: Any = None
        self.stream: Any = None
        self.ended = False

    def __next__(self) -> Any:
        if not self.ended:
            try:
                message = next(self.messages)
            except bt2._Error:
                self.ended = True
            else:
                if isinstance(message, bt2._StreamBeginningMessageConst):
                    self.stream = message.stream
                elif isinstance(message, bt2._PacketBeginningMessageConst):
                    self.packet = message.packet
                    self.clock = message.default_clock_snapshot.value
                elif isinstance(message, bt2._PacketEndMessageConst):
                    self.packet = None
                elif isinstance(message, bt2._StreamEndMessageConst):
                    self.stream = None
                elif isinstance(message, bt2._EventMessageConst):
                    self.clock = message.default_clock_snapshot.value
                return message
        packet, self.packet = self.packet, None
        if packet is not None:
            return self._create_packet_end_message(packet, self.clock)
        stream, self.stream = self.stream, None
        if stream is not None:
            return self._create_stream_end_message(stream)
        raise bt2.Stop


class UntilError(bt2._UserFilterComponent, message_iterator_class=_Iterator):
    def __init__(self, config: Any, params: Any, data: Any) -> None:
        self._add_input_port("in")
        self._add_output_port("out")
