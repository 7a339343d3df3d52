"""What an operation that failed leaves in the data plane.

The parts of each endpoint are followed through the calls of an operation, in the order in which they were made. The
API_CALL events tell the calls; where they were not recorded, and for UDP operations, which have none, the fixed order
of the calls does, together with the failures. What was there before an operation is known from earlier operations of
the same process if the trace shows them from the start of the library on; otherwise it is unknown.
"""

from __future__ import annotations

import re
from collections import Counter
from dataclasses import dataclass, field

from . import events as ev
from . import knowledge as kn
from .endpoint import ABSENT, PRESENT, UNKNOWN, Endpoint, Parts

WHOLE_SESSION: Parts = dict.fromkeys(kn.PARTS["session"], PRESENT)
_CONNECTION_ID = re.compile(r"tn_ovlin_session_id(?:_control_conn)?=(\d+)")
_SESSION_ID = re.compile(r"tn_ovlin_session_id_session=(\d+)")
_SESSION_INDEX = re.compile(r"l2tp_session_table_index=(\d+)")
_ADDRESSES = re.compile(r"ingress_association_create\(.*dstAddr=0x([0-9a-f]{8}).*srcAddr=0x([0-9a-f]{8})")
_HANDLE = re.compile(r"(?:src|dest)FlowHandle=(0x[0-9a-f]+)")
_OBJECTS = {"udp": ("ingress", "egress"), "connection": ("ingress", "egress", "flow"), "session": ()}
_MODIFY_MAKES = ("ingress", "to interface", "egress", "from ovlin")


class Tables:
    """The L2TP connections and sessions of a process, as far as the trace shows them."""

    def __init__(self, known: bool = False) -> None:
        self.known = known  # whether those that are not here do not exist
        self.connections: dict[int, Parts] = {}
        self.sessions: dict[int, Parts] = {}
        self.associations: dict[int, str] = {}  # of connections, by the handle of the egress one: several may share it
        self.kept: set[tuple[str, int]] = set()  # in use although their add failed

    def of(self, kind: str) -> dict[int, Parts]:
        return self.connections if kind == "connection" else self.sessions

    def remove(self, kind: str, ident: int) -> None:
        self.of(kind).pop(ident, None)
        self.kept.discard((kind, ident))
        if kind == "connection":
            self.associations.pop(ident, None)

    def all_parts(self) -> Counter[str]:
        """What is in the data plane without an owner once the library forgets the tables."""
        left: Counter[str] = Counter()
        for kind in ("connection", "session"):
            for parts in self.of(kind).values():
                left.update(t.text for n, t in kn.PARTS[kind].items() if parts.get(n) == PRESENT and not t.shared)
        for _ in set(self.associations.values()):
            left.update(kn.PARTS["connection"][n].text for n in ("ingress", "egress", "to interface"))
        return left


@dataclass
class Outcome:
    result: str = kn.UNKNOWN  # or a code
    step: str = ""  # the first function that failed
    cause: str = ""  # the call that failed
    part: str = ""  # what it was to make or to remove
    words: str = ""  # the data plane's, or the text of the result
    subject: str = ""  # ids and addresses
    failures: list[tuple[str, str, str]] = field(default_factory=list)  # call, words, what follows from it
    left: list[str] = field(default_factory=list)
    possibly: list[str] = field(default_factory=list)
    handles: list[str] = field(default_factory=list)  # of what is left
    lost: str = ""  # what others need and have no more
    kept: bool | None = False  # whether an add's id stays in use; None: unknown
    notes: list[str] = field(default_factory=list)
    advice: list[str] = field(default_factory=list)


def _first(pattern: re.Pattern[str], recorded: list[ev.Event]) -> int | None:
    return next((int(m[1]) for e in recorded if e.kind in (ev.CALL, ev.ARGUMENTS) and (m := pattern.search(e.message))),
                None)


class _Evaluation:
    def __init__(self, name: str, recorded: list[ev.Event], tables: Tables) -> None:
        self.name, self.recorded, self.tables = name, recorded, tables
        self.operation = kn.OPERATIONS.get(name, kn.Operation(name))
        self.explicit = any(e.kind == ev.CALL for e in recorded)
        self.passed = [e for e in recorded if e.kind == ev.PASSED_ON]
        self.hook = next((e for e in self.passed if ev.passed_on(e)[1] == kn.SESSION_TYPE_HOOK), None)
        self.followed: dict[tuple[str, int | None], Endpoint] = {}
        self.failed: list[tuple[Endpoint | None, str]] = []  # the part that each failed call was about
        self.last_create = ""  # that failed
        self.delete_failed = False
        self.out = Outcome()
        self.connection_id = _first(_CONNECTION_ID, recorded)
        self.session_id = _first(_SESSION_ID, recorded)
        if self.session_id is None and (index := _first(_SESSION_INDEX, recorded)) is not None:
            self.session_id = index + kn.FIRST_L2TP_SESSION
        texts = " ".join(e.message.replace("ipv4/ipv6", "") for e in recorded)
        self.family = "IPv6" if "ipv6" in texts else "IPv4" if "vok_ip_" in texts or "ipv4" in texts else "IP"

    def passed_through(self, function: str) -> bool:
        return any(e.function == function for e in self.passed)

    # ---- Endpoints

    def key(self, kind: str, message: str = "") -> tuple[str, int | None]:
        if kind != "session":
            return kind, self.connection_id if kind == "connection" else None
        index = _SESSION_INDEX.search(message)
        return kind, int(index[1]) + kn.FIRST_L2TP_SESSION if index else self.session_id

    def endpoint(self, kind: str, message: str = "") -> Endpoint:
        key = self.key(kind, message)
        if key not in self.followed:
            parts = self.parts_before(*key)
            known = self.operation.makes or (self.explicit and self.tables.known)
            self.followed[key] = Endpoint(kind, parts, ABSENT if known else UNKNOWN, self.family)
        return self.followed[key]

    def parts_before(self, kind: str, ident: int | None) -> Parts:
        if self.explicit and kind != "udp":
            parts = dict(self.tables.of(kind).get(ident, {})) if ident is not None else {}
            if kind == "connection" and parts:
                parts.update(dict.fromkeys(("ingress", "egress", "to interface"), PRESENT))
            return parts
        if self.name in (kn.UDP_RELEASE, kn.CONNECTION_REMOVE, kn.CONNECTION_MODIFY):
            rebound = self.passed_through("add_sessions_for_modify")
            if kind == "session" and not rebound and not self.passed_through("remove_sessions_for_modify"):
                return {"to egress": ABSENT}  # the modify had unbound it, and not bound it again
            return dict.fromkeys(_OBJECTS[kind], PRESENT)  # deleted only if the table has them
        return {}

    # ---- Calls that the events tell

    def follow_explicit(self) -> None:
        pending: tuple[kn.Step, ev.Event] | None = None  # a call whose outcome the next event tells
        last: Endpoint | None = None
        is_nested = False
        for event in [*self.recorded, ev.Event(0, ev.LEAVE, "")]:
            failure = event if event.kind == ev.FAILURE and ev.failed_call(event)[1] else None
            if failure is None and event.kind in (ev.FAILURE, ev.PASSED_ON, ev.SLOW):
                continue
            if pending is not None:
                last = self.take_call(*pending, failure)
            elif failure is not None:
                self.add_failure(failure, "")
            pending = None
            if event.kind == ev.CALL:
                step = kn.step_of(event.function, event.message.rstrip("()"))
                pending = (step, event) if step is not None else None
            elif event.kind == ev.ERROR:
                self.take_error(event)
            elif event.kind == ev.ENTER:
                is_nested, last = True, None
            elif event.kind == ev.LEAVE and is_nested and last is not None:
                self.clear(last)
                is_nested = False

    def take_call(self, step: kn.Step, call: ev.Event, failure: ev.Event | None) -> Endpoint:
        endpoint = self.endpoint(step.kind, call.message)
        verdict = endpoint.follow(step.verb, step.part, failure is not None)
        if failure is not None:
            self.add_failure(failure, verdict, endpoint, step.part)
            if verdict.startswith("left"):
                self.out.handles += _HANDLE.findall(call.message)
            if step.verb == "create":
                self.last_create = step.part
        elif step.verb == "unbind" and step.part == "to interface" and self.gave_back_a_request():
            self.out.lost = kn.LOST_BINDING
        return endpoint

    def gave_back_a_request(self) -> bool:
        """Whether an add that shares its ingress association failed before it requested the binding of that."""
        functions = {e.function for e in self.recorded if e.kind == ev.CALL}
        return (self.name == kn.CONNECTION_ADD and "l2tp_control_create_l2tp_ingress_flow" in functions
                and bool(self.out.failures) and not functions & {"l2tp_control_create_ipv4_ingress_association",
                                                                 "l2tp_control_bind_ipv4_to_l2tp"})

    # ---- Calls that only their fixed order and the failures tell

    def follow_order(self) -> None:
        failures = []
        for event in self.recorded:
            if event.kind == ev.FAILURE:
                step = kn.step_of(event.function, ev.failed_call(event)[1])
                if step is not None:
                    failures.append((step, event))
                else:
                    self.add_failure(event, "")
        if self.operation.makes:
            self.follow_add(failures)
        else:
            self.follow_removal(failures)
        for event in self.recorded:
            if event.kind == ev.ERROR:
                self.take_error(event)

    def follow_add(self, failures: list[tuple[kn.Step, ev.Event]]) -> None:
        endpoint = self.endpoint(self.operation.kind)
        hooked = kn.STEPS.get(self.hook.function) if self.hook else None
        made = hooked.part if hooked else failures[0][0].part if failures else ""
        if made in self.operation.makes:
            endpoint.parts.update(dict.fromkeys(self.operation.makes[: self.operation.makes.index(made)], PRESENT))
        undos = {s.part: (s, e) for s, e in failures if s.verb in ("unbind", "delete")}
        for step, event in failures:
            if step.verb in ("create", "bind"):
                self.follow_failure(step, event)
        if self.hook_keeps() is not False:
            return
        for part in self.operation.removes:
            if part in undos:
                self.follow_failure(*undos[part])
            elif endpoint.kind != "udp" or endpoint.state(part) == PRESENT:
                endpoint.remove_silently(part)

    def follow_removal(self, failures: list[tuple[kn.Step, ev.Event]]) -> None:
        """Also of an operation of which only the failures are known."""
        failed = {s.part: (s, e) for s, e in failures if s.kind == self.operation.kind}
        for part in self.operation.removes if failures else ():
            if part in failed:
                self.follow_failure(*failed[part])
            else:
                self.endpoint(self.operation.kind).remove_silently(part)
        for step, event in failures:
            if step.kind != self.operation.kind or step.part not in self.operation.removes:
                self.follow_failure(step, event)

    def follow_failure(self, step: kn.Step, event: ev.Event) -> None:
        endpoint = self.endpoint(step.kind)
        if self.name == kn.CONNECTION_MODIFY and step.kind == "connection":
            if step.verb == "delete":  # what is bound to it was unbound before
                silent = set(endpoint.bindings_on(step.part)) - endpoint.not_removed
                endpoint.parts.update(dict.fromkeys(silent, ABSENT))
            elif step.verb in ("create", "bind") and step.part in _MODIFY_MAKES:
                at = _MODIFY_MAKES.index(step.part)
                endpoint.parts.update(dict.fromkeys(_MODIFY_MAKES[:at], PRESENT))
                endpoint.parts.update(dict.fromkeys(_MODIFY_MAKES[at:], ABSENT))
        if step.verb == "create":
            self.last_create = step.part
        self.add_failure(event, endpoint.follow(step.verb, step.part, True), endpoint, step.part)

    # ---- What both have in common

    def add_failure(self, event: ev.Event, verdict: str, endpoint: Endpoint | None = None, part: str = "") -> None:
        words, call = ev.failed_call(event)
        self.delete_failed |= call.endswith("_delete")
        if call:
            self.out.failures.append((call, words, verdict))
            self.failed.append((endpoint, part))
        else:
            self.out.notes.append(event.text)

    def take_error(self, event: ev.Event) -> None:
        self.out.notes.append(event.text)
        endpoint = self.followed.get(self.key("connection"))
        if "Couldn't locate" in event.message and not event.message.endswith("(nil)") and endpoint is not None:
            # It gave a handle, so it took effect; unless that is the handle of one that could not be deleted before.
            if self.last_create in endpoint.doubtful and not self.delete_failed:
                endpoint.parts[self.last_create] = PRESENT
                endpoint.leave(self.last_create)
                self.out.handles.append(event.message.rpartition(" ")[2])

    def clear(self, endpoint: Endpoint) -> None:
        endpoint.clear()
        for (kind, ident), followed in self.followed.items():
            if followed is endpoint and ident is not None:
                self.tables.remove(kind, ident)

    def keep(self, endpoint: Endpoint, ident: int | None) -> None:
        """The endpoint that was added is in use from now on, whole or with what its add had made."""
        if ident is None or not self.operation.makes:
            return
        whole = dict.fromkeys(kn.PARTS[endpoint.kind], PRESENT)
        self.tables.of(endpoint.kind)[ident] = endpoint.parts if self.out.kept else whole
        if self.out.kept:
            self.tables.kept.add((endpoint.kind, ident))
        if endpoint.kind == "connection":
            handles = [_HANDLE.search(e.message) for e in self.recorded
                       if e.kind == ev.CALL and e.function == "l2tp_control_bind_ovlin_to_ipv4"]
            self.tables.associations[ident] = handles[0][1] if handles and handles[0] else f"of connection {ident}"

    def judge(self, place: int) -> str:
        """What follows from a failed call, now that the whole operation is known."""
        endpoint, part = self.failed[place]
        verdict = self.out.failures[place][2]
        if endpoint is None:
            return verdict
        text = endpoint.text(part)
        if not verdict:
            maybe = text in endpoint.possibly or part in endpoint.doubtful
            return f"possibly left: {text}, if the call took effect anyway" if maybe else "nothing is left of it"
        if self.name == kn.UDP_DISCONNECT:
            return (f"{text} stays with the session, unless the unbind took effect anyway or the session was "
                    "disconnected before")
        if verdict.startswith("left: ") and text not in endpoint.left:
            return f"possibly {verdict}" if text in endpoint.possibly else "removed later"
        return verdict

    # ---- The result

    def hook_keeps(self) -> bool | None:
        """Whether a failure of the session-type hook ends an add without undo; None if that cannot be told."""
        if self.hook is None or not self.operation.makes:
            return False
        if self.explicit:
            later = [kn.STEPS.get(e.function) for e in self.recorded if e.kind == ev.CALL and e.ns >= self.hook.ns]
            return not any(s is not None and s.verb in ("unbind", "delete") for s in later)
        code = kn.RESULT_TEXTS.get(ev.passed_on(self.hook)[0])
        return None if code is None else code == "3" or (code == "5" and self.name == kn.UDP_ADD)

    def find_cause(self) -> None:
        for event in self.recorded:
            if event.kind in (ev.FAILURE, ev.PASSED_ON, ev.ERROR):
                self.out.step = event.function
                self.out.words, self.out.cause = (
                    ev.failed_call(event) if event.kind == ev.FAILURE else
                    ev.passed_on(event) if event.kind == ev.PASSED_ON else (event.text, ""))
                return

    def find_result(self) -> str:
        own = [ev.passed_on(e)[0] for e in self.passed if e.function == self.name]
        if not self.out.failures and not self.passed:
            return "0"
        by_call = self.out.cause.startswith("vok_")
        if self.operation.removes and not self.operation.makes:
            return "0"
        if self.name == kn.CONNECTION_MODIFY and not own:
            return "2" if self.passed_through("add_control_connection_for_modify") else "0"
        if own and own[0] in kn.RESULT_TEXTS:
            return kn.RESULT_TEXTS[own[0]]
        return kn.DATA_PLANE_FAILED if by_call and self.name != kn.CONNECTION_MODIFY else kn.UNKNOWN

    def find_subject(self) -> str:
        out = []
        if self.operation.kind == "session" and self.session_id is not None:
            out.append(f"L2TP session {self.session_id}")
        if self.operation.kind in ("session", "connection") and self.connection_id is not None:
            out.append(f"L2TP connection {self.connection_id}")
        if addresses := next((m for e in self.recorded if (m := _ADDRESSES.search(e.message))), None):
            local, remote = (".".join(str(b) for b in bytes.fromhex(a)) for a in addresses.groups())
            out.append(f"{remote} -> {local}")
        return ", ".join(out)

    def end_endpoint(self, key: tuple[str, int | None], endpoint: Endpoint, after_failed_disconnect: bool) -> None:
        """Takes over what the operation leaves of one endpoint."""
        is_own = key == self.key(self.operation.kind)
        failed = bool(self.out.failures or self.passed)
        if is_own and self.operation.removes and self.name != kn.UDP_DISCONNECT and (
                not self.operation.makes or (failed and self.out.kept is False)):
            self.clear(endpoint)
        elif is_own and self.operation.makes:
            self.keep(endpoint, key[1])
        elif not endpoint.cleared and key[1] is not None:
            self.tables.of(key[0])[key[1]] = endpoint.parts
        if self.name == kn.CONNECTION_MODIFY and not endpoint.cleared:
            for part in sorted(endpoint.doubtful):
                endpoint.leave_doubtful(part)
            for part in () if self.explicit else sorted(endpoint.not_removed):
                endpoint.leave(part)
        all_failed = endpoint.cleared and endpoint.failures == endpoint.calls >= 2
        if endpoint.left and all_failed and (endpoint.kind != "udp" or after_failed_disconnect):
            endpoint.possibly, endpoint.left = endpoint.left + endpoint.possibly, []
            self.out.notes.append("every call of the removal failed, as after a restart of the data plane")
            self.out.advice.append(kn.RESTART)
        self.out.left += endpoint.left
        self.out.possibly += endpoint.possibly

    def finish(self, after_failed_disconnect: bool) -> Outcome:
        out = self.out
        out.kept = self.hook_keeps()
        if self.explicit:
            self.follow_explicit()
        else:
            self.follow_order()
        for key, endpoint in self.followed.items():
            self.end_endpoint(key, endpoint, after_failed_disconnect)
        out.failures = [(call, words, self.judge(i)) for i, (call, words, _) in enumerate(out.failures)]
        if not out.left and not out.possibly:
            out.handles.clear()
        self.find_cause()
        if self.failed and self.failed[0][0] is not None and out.failures[0][0] == out.cause:
            out.part = self.failed[0][0].text(self.failed[0][1])
        if not out.lost and self.gave_back_a_request():
            out.lost = kn.LOST_REQUEST
        out.result = self.find_result()
        out.subject = self.find_subject()
        self.advise()
        return out

    def advise(self) -> None:
        out, moved = self.out, self.name == kn.CONNECTION_MODIFY
        named = self.passed_through(self.name)
        rules = [
            (bool(out.left), kn.REMOVE_LEFT),
            (self.name == kn.SESSION_ADD and bool(out.left) and not out.failures, kn.OVERWRITTEN),
            (bool(out.possibly) and kn.RESTART not in out.advice, kn.CHECK_POSSIBLE),
            (self.name == kn.UDP_RELEASE and bool(out.failures) and kn.RESTART not in out.advice, kn.DISCONNECT_FIRST),
            (self.name == kn.UDP_DISCONNECT and bool(out.failures), kn.STILL_BOUND),
            (out.kept is True, kn.RELEASE_KEPT),
            (out.lost == kn.LOST_BINDING, kn.REPAIR_LOST),
            (out.lost == kn.LOST_REQUEST, kn.REPAIR_REQUEST),
            (moved and out.result == "2" and not named, kn.AFTER_FALLBACK),
            (moved and named, kn.AFTER_REMOVE_ALL),
        ]
        out.advice += [advice for holds, advice in rules if holds]
        if not out.advice:
            out.advice.append(kn.NOTHING_LEFT)


def evaluate(name: str, recorded: list[ev.Event], tables: Tables, after_failed_disconnect: bool = False) -> Outcome:
    """What became of an operation; takes it into account in the tables."""
    return _Evaluation(name, recorded, tables).finish(after_failed_disconnect)
