"""The parts of one endpoint while an operation's calls are followed."""

from __future__ import annotations

from . import knowledge as kn

PRESENT, ABSENT, UNKNOWN = "present", "absent", "unknown"
Parts = dict[str, str]  # PRESENT, ABSENT or UNKNOWN by part


class Endpoint:
    def __init__(self, kind: str, parts: Parts, default: str, family: str = "IP") -> None:
        self.kind, self.parts, self.default, self.family = kind, parts, default, family
        self.calls = self.failures = 0
        self.doubtful: set[str] = set()  # made by a call that reported failure, if at all
        self.not_removed: set[str] = set()
        self.left: list[str] = []  # the library forgot it, but it is there
        self.possibly: list[str] = []
        self.cleared = False

    def state(self, part: str) -> str:
        return self.parts.get(part, self.default)

    def text(self, part: str) -> str:
        return kn.PARTS[self.kind][part].text.replace("IP ", self.family + " ")

    def bindings_on(self, part: str) -> list[str]:
        return [name for name, other in kn.PARTS[self.kind].items() if part in other.on]

    def follow(self, verb: str, part: str, failed: bool) -> str:
        """Takes a call into account. @return what follows from its failure, or "" where the end tells"""
        self.calls += 1
        self.failures += failed
        if failed:
            return {"create": self._not_created, "bind": self._not_bound, "unbind": self._not_unbound,
                    "delete": self._not_deleted}[verb](part)
        if verb in ("create", "bind"):
            self._made(part)
        else:
            for gone in [part, *self.bindings_on(part)]:  # while a binding exists, its object cannot be deleted
                self.parts[gone] = ABSENT
                self.doubtful.discard(gone)
        return ""

    def remove_silently(self, part: str) -> None:
        """No event tells of a failure: it was removed, or needed no removal. If others share it, they may have it."""
        if kn.PARTS[self.kind][part].shared and not kn.PARTS[self.kind][part].on:
            self.calls += 1
            self.parts[part] = ABSENT
        else:
            self.follow("delete", part, False)

    def leave(self, part: str) -> None:
        """The library forgets a part that is there, or may be there."""
        state, self.parts[part] = self.state(part), ABSENT
        if state == PRESENT:
            self.left.append(self.text(part))
        elif part in self.doubtful or state == UNKNOWN:
            self.possibly.append(self.text(part))
        self.doubtful.discard(part)

    def leave_doubtful(self, part: str) -> None:
        """The same of what a call made that reported failure, if it did, beside what may be there."""
        if part in self.doubtful:
            self.doubtful.discard(part)
            self.possibly.append(self.text(part))

    def clear(self) -> None:
        """The library clears the endpoint's entry in its table."""
        for name, part in kn.PARTS[self.kind].items():
            if name in self.not_removed | self.doubtful or (self.state(name) == PRESENT and not part.shared):
                self.leave(name)
        self.cleared = True

    def _made(self, part: str) -> None:
        if self.state(part) == PRESENT and (self.kind == "session" or part in self.not_removed):
            for old in [part, *self.bindings_on(part)]:  # it was there before, and is replaced in the table
                self.leave(old)
        self.leave_doubtful(part)
        self.parts[part] = PRESENT

    def _not_created(self, part: str) -> str:
        if self.kind != "connection" or part not in ("ingress", "egress"):
            return "nothing is left of it"  # with a handle it is deleted, without one it is not there
        self.leave_doubtful(part)
        self.doubtful.add(part)  # not entered, so no undo deletes it
        return f"possibly left: {self.text(part)}, if the call took effect anyway"

    def _not_bound(self, part: str) -> str:
        self.doubtful.add(part)
        return ""

    def _not_unbound(self, part: str) -> str:
        if self.state(part) == ABSENT:
            return "it was not bound: nothing is left"
        self.not_removed.add(part)
        return ("left: " if self.state(part) == PRESENT else "possibly left: ") + self.text(part)

    def _not_deleted(self, part: str) -> str:
        state = self.state(part)
        if state == ABSENT and part not in self.doubtful:
            return "it did not exist: nothing is left"
        for kept in [part, *self.bindings_on(part)]:
            self.leave(kept)
        return ("left: " if state == PRESENT else "possibly left: ") + self.text(part)
