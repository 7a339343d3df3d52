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

PRESENT, ABSENT, UNKNOWN = "present", "absent", "unknown"
Parts = dict[str, str]  # PRESENT, ABSENT or UNKNOWN by part

WHOLE_SESSION: Parts = dict.fromkeys(kn.PARTS["session"], PRESENT)
_CONNECTION_ID = re.compile(r"tn_ovlin_session_id=(\d+)")
_SESSION_INDEX = re.compile(r"l2tp_session_table_index=(\d+)")
_SESSION_ARGUMENTS = re.compile(r"tn_ovlin_session_id_control_conn=(\d+), tn_ovlin_session_id_session=(\d+)")
_ADDRESSES = re.compile(r"ingress_association_create\(.*dstAddr=0x([0-9a-f]{8}).*srcAddr=0x([0-9a-f]{8})")
_HANDLE = re.compile(r"(?:src|dest)FlowHandle=(0x[0-9a-f]+)")


class Endpoints:
    """The L2TP connections and sessions of a process, as far as the trace shows them."""

    def __init__(self) -> None:
        self.known = False  # whether those that are not here do not exist
        self.connections: dict[int, Parts] = {}
        self.sessions: dict[int, Parts] = {}
        self.egress_handles: dict[int, str] = {}  # of connections: which share their associations
        self.kept: set[tuple[str, int]] = set()  # in use although their add failed

    def of(self, kind: str) -> dict[int, Parts]:
        return self.connections if kind == "connection" else self.sessions

    def forget(self, known: bool) -> Counter[str]:
        """Empties the tables, as a start and a stop do. @return what is in the data plane without an owner then"""
        left: Counter[str] = Counter()
        for kind in ("connection", "session"):
            for parts in self.of(kind).values():
                left.update(t.text for n, t in kn.PARTS[kind].items() if parts.get(n) == PRESENT and not t.shared)
        for _ in set(self.egress_handles.values()):
            left.update(kn.PARTS["connection"][n].text for n in ("ingress", "egress", "to interface"))
        self.__init__()
        self.known = known
        return left


@dataclass
class Outcome:
    result: str  # a code, or UNKNOWN
    step: str = ""  # the first function that failed
    cause: str = ""  # the call that failed
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


class _Endpoint:
    """The parts of one endpoint while an operation is followed."""

    def __init__(self, kind: str, parts: Parts, default: str) -> None:
        self.kind, self.parts, self.default = kind, parts, default
        self.calls = self.failures = 0
        self.doubtful: set[str] = set()  # made by a call that reported failure, if at all
        self.not_removed: set[str] = set()
        self.left: list[str] = []
        self.possibly: list[str] = []
        self.removed = False

    def state(self, part: str) -> str:
        return self.parts.get(part, self.default)

    def text(self, part: str) -> str:
        return kn.PARTS[self.kind][part].text

    def leave(self, part: str) -> None:
        """The library forgets a part that is there, or may be there."""
        state, self.parts[part] = self.state(part), ABSENT
        if state == PRESENT:
            self.left.append(self.text(part))
        elif part in self.doubtful or (state == UNKNOWN):
            self.possibly.append(self.text(part))
        self.doubtful.discard(part)

    def bindings_on(self, part: str) -> list[str]:
        return [n for n, p in kn.PARTS[self.kind].items() if part in p.on]

    def follow(self, step: kn.Step, failed: bool) -> str:
        """Takes a call into account. @return what follows from its failure"""
        part = step.part
        self.calls += 1
        self.failures += failed
        return getattr(self, "_" + step.verb)(part, failed) or ""

    def _create(self, part: str, failed: bool) -> str:
        if failed:
            if self.kind == "connection" and part in ("ingress", "egress"):
                if part in self.doubtful:
                    self.leave(part)
                self.doubtful.add(part)  # not entered, so no undo deletes it
                return f"possibly left: {self.text(part)}, if the call took effect anyway"
            return "nothing is left of it"
        if self.state(part) == PRESENT and (self.kind == "session" or part in self.not_removed):
            for old in [part, *self.bindings_on(part)]:
                self.leave(old)
        if part in self.doubtful:
            self.leave(part)
        self.parts[part] = PRESENT
        return ""

    def _bind(self, part: str, failed: bool) -> str:
        if failed:
            self.doubtful.add(part)
            return ""
        return self._create(part, False)

    def _unbind(self, part: str, failed: bool) -> str:
        if not failed:
            self.parts[part] = ABSENT
            self.doubtful.discard(part)
            return ""
        state = self.state(part)
        if state == ABSENT:
            return "it was not bound: nothing is left"
        self.not_removed.add(part)
        return ("left: " if state == PRESENT else "possibly left: ") + self.text(part)

    def _delete(self, part: str, failed: bool) -> str:
        if not failed:
            for gone in [part, *self.bindings_on(part)]:
                self.parts[gone] = ABSENT
                self.doubtful.discard(gone)
            return ""
        state = self.state(part)
        if state == ABSENT and part not in self.doubtful:
            return "it did not exist: nothing is left"
        for kept in [part, *self.bindings_on(part)]:
            self.leave(kept)
        return ("left: " if state == PRESENT else "possibly left: ") + self.text(part)

    def remove_silently(self, part: str) -> None:
        """The part was removed, or needed no removal; if others share it, they may still have it."""
        if kn.PARTS[self.kind][part].on:
            self.follow(kn.Step(self.kind, "unbind", part), False)
        elif kn.PARTS[self.kind][part].shared:
            self.calls += 1
            self.parts[part] = ABSENT
        else:
            self.follow(kn.Step(self.kind, "delete", part), False)

    def clear(self) -> None:
        """The library clears the endpoint's entry in its table."""
        for name, part in kn.PARTS[self.kind].items():
            if name in self.not_removed or name in self.doubtful or (self.state(name) == PRESENT and not part.shared):
                self.leave(name)
        self.removed = True


class _Evaluation:
    def __init__(self, name: str, recorded: list[ev.Event], endpoints: Endpoints) -> None:
        self.name, self.recorded, self.tables = name, recorded, endpoints
        self.operation = kn.OPERATIONS.get(name, kn.Operation(name))
        self.followed: dict[tuple[str, int | None], _Endpoint] = {}
        self.explicit = any(e.kind == ev.CALL for e in recorded)
        self.outcome = Outcome(kn.UNKNOWN)
        ids = [m for e in recorded if e.kind == ev.CALL and (m := _CONNECTION_ID.search(e.message))]
        self.connection_id = int(ids[0][1]) if ids else None
        arguments = [m for e in recorded if e.kind in (ev.ARGUMENTS, ev.CALL)
                     and (m := _SESSION_ARGUMENTS.search(e.message))]
        self.session_id = int(arguments[0][2]) if arguments else None
        if arguments and self.connection_id is None:
            self.connection_id = int(arguments[0][1])
        self.after = ""  # the last failed create of an association
        self.failed: list[tuple[_Endpoint | None, str]] = []  # the part that each failed call was about

    # ---- Which endpoint

    def endpoint(self, kind: str, message: str = "") -> _Endpoint:
        ident = self.connection_id
        if kind == "session":
            index = _SESSION_INDEX.search(message)
            ident = int(index[1]) + kn.FIRST_L2TP_SESSION if index else self.session_id
        elif kind == "udp":
            ident = None
        key = (kind, ident)
        if key not in self.followed:
            default = ABSENT if self.name in (kn.UDP_ADD, kn.CONNECTION_ADD) else UNKNOWN
            known = self.explicit and kind != "udp"
            parts = dict(self.tables.of(kind).get(ident, {})) if known and ident is not None else {}
            if known and self.tables.known or self.name == kn.SESSION_ADD and not parts:
                default = ABSENT
            if kind == "connection" and parts and self.name != kn.CONNECTION_ADD:
                parts.update(dict.fromkeys(("ingress", "egress", "to interface"), PRESENT))
            if not known and self.name in (kn.UDP_RELEASE, kn.CONNECTION_REMOVE, kn.CONNECTION_MODIFY):
                parts.update(dict.fromkeys(("ingress", "egress", "flow"), PRESENT))  # deleted only if the table has them
            if not known and self.name == kn.CONNECTION_MODIFY and kind == "session":
                passed = {e.function for e in self.recorded if e.kind == ev.PASSED_ON}
                if not passed & {"remove_sessions_for_modify", "add_sessions_for_modify"}:
                    parts["to egress"] = ABSENT  # the modify had unbound it, and not bound it again
            self.followed[key] = _Endpoint(kind, parts, default)
        return self.followed[key]

    # ---- The calls

    def follow_explicit(self) -> None:
        pending: tuple[kn.Step, ev.Event] | None = None
        nested = ""
        last: _Endpoint | None = None

        def settle(failure: ev.Event | None) -> None:
            nonlocal pending, last
            if pending is not None:
                step, call = pending
                last = self.endpoint(step.kind, call.message)
                verdict = last.follow(step, failure is not None)
                if failure is not None:
                    self.add_failure(failure, verdict, last, step.part)
                    if verdict.startswith("left"):
                        self.outcome.handles += _HANDLE.findall(call.message)
                    if step.verb == "create":
                        self.after = step.part
                self.notice_lost_binding(step, failure)
            elif failure is not None:
                self.add_failure(failure, "")
            pending = None

        for event in self.recorded:
            if event.kind == ev.CALL:
                settle(None)
                step = kn.step_of(event.function, event.message.rstrip("()"))
                pending = (step, event) if step else None
            elif event.kind == ev.FAILURE and ev.failed_call(event)[1]:
                settle(event)
            elif event.kind == ev.ERROR:
                settle(None)
                self.take_error(event)
            elif event.kind == ev.ENTER:
                settle(None)
                nested, last = event.function, None
            elif event.kind == ev.LEAVE:
                settle(None)
                if nested and last is not None:
                    self.clear(last)
                nested = ""
        settle(None)

    def follow_order(self) -> None:
        """Without API_CALL events: the fixed order of the calls, and those that failed."""
        failures = []
        for event in self.recorded:
            if event.kind == ev.FAILURE:
                step = kn.step_of(event.function, ev.failed_call(event)[1])
                if step is not None:
                    failures.append((step, event))
                else:
                    self.add_failure(event, "")
            elif event.kind == ev.PASSED_ON and ev.passed_on(event)[1] == kn.SESSION_TYPE_HOOK:
                failures.append((kn.STEPS[event.function], event))
        if self.operation.makes:
            self.follow_add(failures)
        else:
            self.follow_removal(failures)
        for event in self.recorded:
            if event.kind == ev.ERROR:
                self.take_error(event)

    def follow_add(self, failures: list[tuple[kn.Step, ev.Event]]) -> None:
        made = failures[0][0].part if failures and failures[0][0].verb in ("create", "bind") else ""
        endpoint = self.endpoint(self.operation.kind)
        for part in self.operation.makes[: self.operation.makes.index(made) if made in self.operation.makes else 0]:
            endpoint.parts[part] = PRESENT
        failed_undos = {s.part: (s, e) for s, e in failures[1:]}
        for step, event in failures[:1]:
            self.follow_failure(step, event)
        if self.hook_keeps() is not False:
            return
        for part in self.operation.removes:
            if part in failed_undos:
                self.follow_failure(*failed_undos[part])
            elif endpoint.kind != "udp":
                endpoint.remove_silently(part)
            elif endpoint.state(part) == PRESENT:
                verb = "unbind" if kn.PARTS["udp"][part].on else "delete"
                endpoint.follow(kn.Step("udp", verb, part), False)

    def follow_removal(self, failures: list[tuple[kn.Step, ev.Event]]) -> None:
        """Also of an operation of which only the failures are known."""
        if not failures:
            return
        failed = {s.part: (s, e) for s, e in failures if s.kind == self.operation.kind}
        for part in self.operation.removes:
            if part in failed:
                self.follow_failure(*failed[part])
            else:
                self.endpoint(self.operation.kind).remove_silently(part)
        for step, event in failures:
            if step.kind != self.operation.kind or step.part not in self.operation.removes:
                self.follow_failure(step, event)

    def follow_failure(self, step: kn.Step, event: ev.Event) -> None:
        endpoint = self.endpoint(step.kind)
        if event.kind == ev.PASSED_ON:
            return
        if self.name == kn.CONNECTION_MODIFY and step.verb == "delete":
            for part in endpoint.bindings_on(step.part):  # its unbind came before
                if step.kind == "connection" and part not in endpoint.not_removed:
                    endpoint.parts[part] = ABSENT
        if self.name == kn.CONNECTION_MODIFY and step.verb in ("create", "bind"):
            order = ("ingress", "to interface", "egress", "from ovlin")
            at = order.index(step.part) if step.part in order else len(order)
            endpoint.parts.update(dict.fromkeys(order[:at], PRESENT) | dict.fromkeys(order[at:], ABSENT))
        if step.verb == "create":
            self.after = step.part
        self.add_failure(event, endpoint.follow(step, True), endpoint, step.part)

    def add_failure(self, event: ev.Event, verdict: str, endpoint: _Endpoint | None = None, part: str = "") -> None:
        words, call = ev.failed_call(event)
        if call:
            self.outcome.failures.append((call, words, verdict))
            self.failed.append((endpoint, part))
        else:
            self.outcome.notes.append(event.text)

    def judge(self) -> None:
        """What is known of failed calls only in the end: while a binding exists, its object cannot be deleted."""
        for place, (endpoint, part) in enumerate(self.failed):
            call, words, verdict = self.outcome.failures[place]
            text = endpoint.text(part) if endpoint is not None else ""
            if endpoint is None:
                continue
            if not verdict:
                maybe = text in endpoint.possibly or part in endpoint.doubtful
                verdict = f"possibly left: {text}, if the call took effect anyway" if maybe else "nothing is left of it"
            elif self.name == kn.UDP_DISCONNECT:
                verdict = (f"{text} stays with the session, unless the unbind took effect anyway or the session was "
                           "disconnected before")
            elif verdict.startswith("left: ") and text not in endpoint.left:
                verdict = "possibly " + verdict if text in endpoint.possibly else "removed later"
            self.outcome.failures[place] = (call, words, verdict)

    def take_error(self, event: ev.Event) -> None:
        self.outcome.notes.append(event.text)
        if "Couldn't locate" not in event.message or event.message.endswith("(nil)"):
            return
        endpoint = self.endpoint("connection")
        if self.after in endpoint.doubtful:  # the create that failed gave a handle, so it took effect
            endpoint.doubtful.discard(self.after)
            endpoint.left.append(endpoint.text(self.after))
            self.outcome.handles.append(event.message.rpartition(" ")[2])

    def notice_lost_binding(self, step: kn.Step, failure: ev.Event | None) -> None:
        """An add that fails before it has requested its binding to the interface releases a request all the same."""
        if self.name == kn.CONNECTION_ADD and (step.verb, step.part) == ("unbind", "to interface") and not failure:
            if not any("l2tp_control_bind_ipv4_to_l2tp" in e.message for e in self.recorded):
                self.outcome.lost = (
                    "The undo removed the binding IPv4 ingress -> interface, which other connections between the same "
                    "addresses use: since then they receive nothing."
                )
                self.outcome.advice.append(kn.REPAIR_LOST)

    def clear(self, endpoint: _Endpoint) -> None:
        endpoint.clear()
        for key, followed in self.followed.items():
            if followed is endpoint and key[1] is not None:
                self.tables.of(key[0]).pop(key[1], None)
                self.tables.kept.discard(key)
                if key[0] == "connection":
                    self.tables.egress_handles.pop(key[1], None)

    # ---- The result

    def hook_keeps(self) -> bool | None:
        """Whether a failure of the session-type hook ends an add without undo; None if that cannot be told."""
        hook = [e for e in self.recorded if e.kind == ev.PASSED_ON and ev.passed_on(e)[1] == kn.SESSION_TYPE_HOOK]
        if not hook or not self.operation.makes:
            return False
        if self.explicit:
            undone = any(e.kind == ev.CALL and kn.step_of(e.function, "") and e.ns >= hook[0].ns
                         and kn.STEPS[e.function].verb in ("unbind", "delete") for e in self.recorded)
            return not undone
        code = kn.RESULT_TEXTS.get(ev.passed_on(hook[0])[0])
        return None if code is None else code == "3" or (code == "5" and self.name == kn.UDP_ADD)

    def find_cause(self) -> None:
        out, first = self.outcome, next(
            (e for e in self.recorded if e.kind == ev.FAILURE or e.kind == ev.PASSED_ON or e.kind == ev.ERROR), None
        )
        if first is None:
            return
        out.step = first.function
        if first.kind == ev.FAILURE:
            out.words, out.cause = ev.failed_call(first)
        elif first.kind == ev.PASSED_ON:
            out.words, out.cause = ev.passed_on(first)
        else:
            out.words = first.text

    def find_result(self) -> None:
        chain_failed = any(e.kind == ev.FAILURE and ev.failed_call(e)[1] for e in self.recorded)
        own = [ev.passed_on(e) for e in self.recorded if e.kind == ev.PASSED_ON and e.function == self.name]
        functions = {e.function for e in self.recorded if e.kind == ev.PASSED_ON}
        if self.operation.removes and not self.operation.makes:
            self.outcome.result = "0"
        elif own:
            first = next(e for e in self.recorded if e.kind in (ev.FAILURE, ev.PASSED_ON))
            is_call = first.kind == ev.FAILURE and bool(ev.failed_call(first)[1])
            code = kn.DATA_PLANE_FAILED if is_call and self.name != kn.CONNECTION_MODIFY else kn.UNKNOWN
            self.outcome.result = kn.RESULT_TEXTS.get(own[0][0], code)
        elif self.name == kn.CONNECTION_MODIFY:
            self.outcome.result = "2" if "add_control_connection_for_modify" in functions else "0"
        elif chain_failed:
            self.outcome.result = kn.DATA_PLANE_FAILED

    def find_subject(self) -> None:
        if self.operation.kind not in ("connection", "session"):
            return
        out = []
        if self.operation.kind == "session" and self.session_id is None:
            ids = [k[1] for k in self.followed if k[0] == "session" and k[1] is not None]
            self.session_id = ids[0] if ids else None
        if self.operation.kind == "session" and self.session_id is not None:
            out.append(f"L2TP session {self.session_id}")
        if self.connection_id is not None:
            out.append(f"L2TP connection {self.connection_id}")
        for event in self.recorded:
            if event.kind == ev.CALL and (found := _ADDRESSES.search(event.message)):
                local, remote = (".".join(str(b) for b in bytes.fromhex(a)) for a in found.groups())
                out.append(f"{remote} -> {local}")
                break
        self.outcome.subject = ", ".join(out)

    def finish(self, after_failed_disconnect: bool) -> Outcome:
        out = self.outcome
        if self.explicit:
            self.follow_explicit()
        else:
            self.follow_order()
        failed = bool(out.failures) or any(e.kind == ev.PASSED_ON for e in self.recorded)
        out.kept = self.hook_keeps()
        own = self.followed.get((self.operation.kind, self.session_id if self.operation.kind == "session" else
                                 self.connection_id if self.operation.kind == "connection" else None))
        if own is None and self.operation.kind == "session" and self.followed:
            own = next(iter(self.followed.values()))
        if own is not None:
            if self.operation.makes and failed and out.kept is False or self.name in (
                kn.CONNECTION_REMOVE, kn.SESSION_REMOVE, kn.UDP_RELEASE,
            ):
                self.clear(own)
            elif not failed or out.kept:
                self.keep(own, bool(out.kept))
        for (kind, ident), endpoint in self.followed.items():
            if endpoint is not own and not endpoint.removed and ident is not None:
                self.tables.of(kind)[ident] = endpoint.parts
            elif endpoint is own and self.name == kn.CONNECTION_MODIFY and not endpoint.removed and ident is not None:
                self.tables.of(kind)[ident] = endpoint.parts
            if self.name == kn.CONNECTION_MODIFY and not endpoint.removed:
                for part in sorted(endpoint.doubtful | (set() if self.explicit else endpoint.not_removed)):
                    endpoint.leave(part)
            lost = endpoint.failures == endpoint.calls >= 2 and endpoint.removed
            if endpoint.left and lost and (endpoint.kind != "udp" or after_failed_disconnect):
                endpoint.possibly, endpoint.left = endpoint.left + endpoint.possibly, []
                out.notes.append("every call of the removal failed, as after a restart of the data plane")
                out.advice.append(kn.RESTART)
            out.left += endpoint.left
            out.possibly += endpoint.possibly
        if self.name == kn.UDP_DISCONNECT and out.failures:
            out.advice.append(kn.STILL_BOUND)
        if not out.left and not out.possibly:
            out.handles.clear()
        self.judge()
        self.find_cause()
        self.find_result()
        self.find_subject()
        self.advise()
        family = "IPv6" if any("ipv6" in e.message.replace("ipv4/ipv6", "") for e in self.recorded) else (
            "IPv4" if any("vok_ip_" in e.message or "ipv4" in e.message.replace("ipv4/ipv6", "")
                          for e in self.recorded) else "IP")
        out.left = [t.replace("IP ", family + " ") for t in out.left]
        out.possibly = [t.replace("IP ", family + " ") for t in out.possibly]
        out.failures = [(c, w, v.replace("IP ", family + " ")) for c, w, v in out.failures]
        return out

    def keep(self, endpoint: _Endpoint, although_failed: bool) -> None:
        """The endpoint is in use from now on."""
        key = next(k for k, e in self.followed.items() if e is endpoint)
        if key[1] is None or not self.operation.makes:
            return
        parts = endpoint.parts
        if not although_failed:
            parts = dict.fromkeys(kn.PARTS[endpoint.kind], PRESENT)
        self.tables.of(key[0])[key[1]] = parts
        if although_failed:
            self.tables.kept.add(key)
        bound = [m for e in self.recorded if "from_ipv4" not in e.function and (m := _HANDLE.search(e.message))
                 and e.function == "l2tp_control_bind_ovlin_to_ipv4"]
        if key[0] == "connection":
            self.tables.egress_handles[key[1]] = bound[0][1] if bound else f"of connection {key[1]}"

    def advise(self) -> None:
        out = self.outcome
        advice = out.advice
        if out.left:
            advice.insert(0, kn.REMOVE_LEFT)
        if out.left and self.name == kn.SESSION_ADD and not out.failures:
            advice.append(kn.OVERWRITTEN)
        if out.possibly and kn.RESTART not in advice:
            advice.append(kn.CHECK_POSSIBLE)
        if self.name == kn.UDP_RELEASE and out.failures and kn.RESTART not in advice:
            advice.append(kn.DISCONNECT_FIRST)
        if out.kept:
            advice.append(kn.RELEASE_KEPT)
        if self.name == kn.CONNECTION_MODIFY:
            if out.result == "2" and not any(e.function == self.name for e in self.recorded if e.kind == ev.PASSED_ON):
                advice.append(kn.AFTER_FALLBACK)
            elif out.result != "0":
                advice.append(kn.AFTER_REMOVE_ALL)
        if not advice:
            advice.append(kn.NOTHING_LEFT)


def evaluate(
    name: str, recorded: list[ev.Event], endpoints: Endpoints, after_failed_disconnect: bool = False
) -> Outcome:
    """What became of an operation; takes it into account in the tables."""
    return _Evaluation(name, recorded, endpoints).finish(after_failed_disconnect)
