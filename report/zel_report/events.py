"""Events as the report keeps them, and what their messages say."""

from __future__ import annotations

import re
from typing import NamedTuple

ENTER, LEAVE, CALL, ARGUMENTS, FAILURE, PASSED_ON, ERROR, SLOW, CALLER = range(9)
NAMES = {
    "tn_zel_term:FN_ENTER": ENTER,
    "tn_zel_term:FN_EXIT": LEAVE,
    "tn_zel_term:API_CALL": CALL,
    "tn_zel_term:LAB": ARGUMENTS,
    "tn_zel_term:EXCEPTION": FAILURE,  # or SLOW, as the category says
    "tn_zel_init:EXCEPTION": PASSED_ON,
    "tn_zel_term:ERROR": ERROR,
}
PROVIDERS = ("tn_zel_term:", "tn_zel_init:")


class Event(NamedTuple):
    ns: int  # since the epoch
    kind: int
    message: str
    location: str = ""  # of failures

    @property
    def function(self) -> str:
        return self.message.partition("()")[0]

    @property
    def text(self) -> str:
        """Without the function's name."""
        return self.message.partition("(): ")[2]


def failed_call(event: Event) -> tuple[str, str]:
    """The data plane's words and the call of a FAILURE; the call is empty if the event is about something else."""
    words, separator, call = event.text.rpartition(", vok_")
    return (words, "vok_" + call) if separator else (event.text, "")


def passed_on(event: Event) -> tuple[str, str]:
    """The result's text, and the argument or step that it concerns, of a PASSED_ON."""
    text, _, what = event.text.rpartition(", ")
    return text, what


_SLOW = re.compile(r"delay=(\d+),start_time=(\d+), end_time=\d+, detected for (.*), continue normal processing\.$")


def slow_call(event: Event) -> tuple[str, int, int] | None:
    """The call, and its delay and begin in ticks, of a SLOW."""
    found = _SLOW.search(event.message)
    return (found[3], int(found[1]), int(found[2])) if found else None
