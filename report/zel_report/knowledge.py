"""What the library's functions, calls and events mean, in the words of docs/tracing.md and docs/operations.md."""

from __future__ import annotations

from dataclasses import dataclass

# ---- What an endpoint has in the data plane


@dataclass(frozen=True)
class Part:
    """An object or a binding of an endpoint."""

    text: str
    on: tuple[str, ...] = ()  # of a binding: the objects that cannot be deleted while it exists
    shared: bool = False  # others may use it: not left behind merely because nobody tried to remove it


PARTS = {
    "udp": {
        "ingress": Part("IP ingress association"),
        "egress": Part("IP egress association"),
        "uplink": Part("binding ovlin flow -> IP egress", ("egress",)),
        "downlink": Part("binding IP ingress -> ovlin flow", ("ingress",)),
    },
    "connection": {
        "interface": Part("L2TPv3 ingress interface", shared=True),
        "ingress": Part("IPv4 ingress association", shared=True),
        "egress": Part("IPv4 egress association", shared=True),
        "flow": Part("L2TPv3 ingress flow"),
        "to interface": Part("binding IPv4 ingress -> interface", ("ingress",), shared=True),
        "to ovlin": Part("binding L2TPv3 ingress flow -> ovlin flow", ("flow",)),
        "from ovlin": Part("binding ovlin flow -> IPv4 egress", ("egress",)),
    },
    "session": {
        "ingress": Part("L2TPv3 ingress flow"),
        "egress": Part("L2TPv3 egress flow"),
        "to ovlin": Part("binding L2TPv3 ingress flow -> ovlin flow", ("ingress",)),
        "from ovlin": Part("binding ovlin flow -> L2TPv3 egress flow", ("egress",)),
        "to egress": Part("binding L2TPv3 egress flow -> IPv4 egress", ("egress",)),
    },
}


@dataclass(frozen=True)
class Step:
    """A function of the library that makes one data-plane call."""

    kind: str  # of endpoint: a key of PARTS
    verb: str  # create, delete, bind, unbind
    part: str


def _steps(kind: str, **functions: str) -> dict[str, Step]:
    return {name: Step(kind, *what.split(maxsplit=1)) for name, what in functions.items()}


STEPS = {
    **_steps(
        "udp",
        create_ingress_udp_association_ipv4="create ingress",
        create_egress_udp_association_ipv4="create egress",
        create_ingress_udp_association_ipv6="create ingress",
        create_egress_udp_association_ipv6="create egress",
        udp_session_connect_ul="bind uplink",
        udp_session_connect_dl="bind downlink",
        udp_session_disconnect_ul="unbind uplink",
        udp_session_disconnect_dl="unbind downlink",
    ),
    **_steps(
        "connection",
        l2tp_control_add_l2tp_ingress_interface="create interface",
        l2tp_control_create_ipv4_ingress_association="create ingress",
        l2tp_control_create_l2tp_ingress_flow="create flow",
        l2tp_control_bind_ipv4_to_l2tp="bind to interface",
        l2tp_control_bind_l2tp_to_ovlin="bind to ovlin",
        l2tp_control_create_ipv4_egress_association="create egress",
        l2tp_control_bind_ovlin_to_ipv4="bind from ovlin",
        l2tp_control_unbind_ovlin_from_ipv4="unbind from ovlin",
        l2tp_control_delete_ipv4_egress_association="delete egress",
        l2tp_control_unbind_l2tp_from_ovlin="unbind to ovlin",
        l2tp_control_unbind_ipv4_from_l2tp="unbind to interface",
        l2tp_control_delete_l2tp_ingress_flow="delete flow",
        l2tp_control_delete_ipv4_ingress_association="delete ingress",
    ),
    **_steps(
        "session",
        l2tp_session_create_ingress_flow="create ingress",
        l2tp_session_bind_l2tp_to_ovlin="bind to ovlin",
        l2tp_session_create_egress_flow="create egress",
        l2tp_session_bind_ovlin_to_l2tp="bind from ovlin",
        l2tp_session_bind_l2tp_to_ipv4="bind to egress",
        l2tp_session_unbind_l2tp_from_ipv4="unbind to egress",
        l2tp_session_unbind_ovlin_from_l2tp="unbind from ovlin",
        l2tp_session_delete_egress_flow="delete egress",
        l2tp_session_unbind_l2tp_from_ovlin="unbind to ovlin",
        l2tp_session_delete_ingress_flow="delete ingress",
    ),
}


def step_of(function: str, call: str) -> Step | None:
    """The step that made a call. UDP operations delete their associations themselves, and a full table of shared
    associations has a new one deleted."""
    if function in STEPS:
        return STEPS[function]
    if not call.endswith("_association_delete"):
        return None
    kind = "connection" if function == "track_association" else "udp"
    return Step(kind, "delete", "ingress" if "_ingress_" in call else "egress")


# ---- Operations


@dataclass(frozen=True)
class Operation:
    title: str
    kind: str = ""  # of endpoint
    makes: tuple[str, ...] = ()  # an add's parts in the order in which it makes them
    removes: tuple[str, ...] = ()  # the parts in the order in which its undo, or the removal, removes them


_UDP_MADE = ("ingress", "egress", "uplink", "downlink")
_UDP_UNDONE = ("downlink", "uplink", "ingress", "egress")
_CONNECTION_MADE = ("interface", "ingress", "flow", "to interface", "to ovlin", "egress", "from ovlin")
_CONNECTION_UNDONE = ("from ovlin", "egress", "to ovlin", "flow", "to interface", "ingress")
_CONNECTION_REMOVED = ("from ovlin", "egress", "to ovlin", "to interface", "flow", "ingress")
_SESSION_MADE = ("ingress", "to ovlin", "egress", "from ovlin", "to egress")
_SESSION_UNDONE = ("to egress", "from ovlin", "egress", "to ovlin", "ingress")

UDP_ADD = "zel_core_term_udp_session_add"
UDP_DISCONNECT = "zel_core_term_udp_session_disconnect"
UDP_RELEASE = "zel_core_term_udp_session_release"
CONNECTION_ADD = "zel_core_term_l2tp_control_connection_add"
CONNECTION_REMOVE = "zel_core_term_l2tp_control_connection_rem"
CONNECTION_MODIFY = "zel_core_term_l2tp_control_connection_modify"
SESSION_ADD = "zel_core_term_l2tp_session_add"
SESSION_REMOVE = "zel_core_term_l2tp_session_rem"
START = "zel_core_term_start"

OPERATIONS = {
    UDP_ADD: Operation("UDP session add", "udp", _UDP_MADE, _UDP_UNDONE),
    UDP_DISCONNECT: Operation("UDP session disconnect", "udp", (), ("downlink", "uplink")),
    UDP_RELEASE: Operation("UDP session release", "udp", (), ("ingress", "egress")),
    "zel_core_term_udp_session_modify_pmtu": Operation("UDP session modify (path MTU)", "udp"),
    "zel_core_term_udp_session_modify_ttl": Operation("UDP session modify (TTL)", "udp"),
    "zel_core_term_udp_session_fmt_stats_get": Operation("UDP session counters as text", "udp"),
    "zel_udp_session_get_stats": Operation("UDP session counters", "udp"),
    "zel_ipv6_udp_session_get_stats": Operation("UDP session counters (IPv6)", "udp"),
    "zel_core_term_udp_session_cfg_get": Operation("UDP session configuration query", "udp"),
    "zel_core_term_udp_session_free_id_get": Operation("UDP free id query", "udp"),
    "zel_core_term_udp_session_capabilities_get": Operation("UDP capabilities query", "udp"),
    CONNECTION_ADD: Operation("L2TP connection add", "connection", _CONNECTION_MADE, _CONNECTION_UNDONE),
    CONNECTION_REMOVE: Operation("L2TP connection removal", "connection", (), _CONNECTION_REMOVED),
    CONNECTION_MODIFY: Operation("L2TP connection modify", "connection"),
    SESSION_ADD: Operation("L2TP session add", "session", _SESSION_MADE, _SESSION_UNDONE),
    SESSION_REMOVE: Operation("L2TP session removal", "session", (), _SESSION_UNDONE),
    "zel_l2tp_session_modify_unbind_part": Operation("L2TP session unbind part", "session"),
    "zel_l2tp_session_modify_bind_part": Operation("L2TP session bind part", "session"),
    START: Operation("library start"),
    "zel_core_term_stop": Operation("library stop"),
    "zel_udp_session_start": Operation("UDP module start"),
    "zel_udp_session_stop": Operation("UDP module stop"),
    "zel_l2tp_start": Operation("L2TP module start"),
    "zel_l2tp_stop": Operation("L2TP module stop"),
}

# Operations that others call, and the functions by whose names a part of the modify is known.
NESTED = {
    CONNECTION_MODIFY: {SESSION_REMOVE, CONNECTION_REMOVE},
    START: {"zel_udp_session_start", "zel_l2tp_start"},
}
MODIFY_FUNCTIONS = {
    "remove_sessions_for_modify",
    "remove_control_connection_for_modify",
    "add_control_connection_for_modify",
    "add_sessions_for_modify",
}
FORGETS_L2TP = ("zel_l2tp_start", "zel_l2tp_stop")
FORGETS_UDP = ("zel_udp_session_start", "zel_udp_session_stop")
FIRST_L2TP_SESSION = 48  # the id of a session is this plus its index in the table

# ---- Results

SESSION_TYPE_HOOK = "zel_ovlin_session_handler_set_session_type"
DATA_PLANE_FAILED = "13"
UNKNOWN = "unknown"

# The utility library gives the texts; where it gives others, the code of a hook's failure is not known.
RESULT_TEXTS = {
    "identifier or argument out of range": "3",
    "session is free": "4",
    "session id already in use": "5",
    "unsupported IP version": "7",
    "no free session id": "10",
    "data-plane call failed": DATA_PLANE_FAILED,
    "bad formatter argument": "20",
    "text cut": "21",
    "unknown result code": "other",  # than the library's own
}


RESULTS = {code: text for text, code in RESULT_TEXTS.items() if code != "other"}
RESULTS["2"] = "fell back to the old configuration"


@dataclass(frozen=True)
class Refusal:
    result: str
    means: str
    to_do: str


_OUT_OF_RANGE = "that argument exceeds what the ovlin capabilities or the tables allow"
REFUSALS = {
    "(udp_session_id)": Refusal("", "the id is out of range, free or in use, as the text says", "fix the caller"),
    "(tn_ovlin_session_id)": Refusal("5", "the control connection id is in use", "fix the caller"),
    "": Refusal("10", "all ids are in use", "release a session first"),
    "Unsupported IP Version": Refusal(
        "7", "neither IPv4 nor IPv6, or an IPv6 attribute for a session over IPv4", "fix the caller"
    ),
    "capabilities == NULL": Refusal("2", "the output pointer is NULL", "fix the caller"),
    "not started": Refusal(
        DATA_PLANE_FAILED, "the library, or this module of it, is stopped", "call zel_core_term_start()"
    ),
}


def refusal_of(what: str) -> Refusal | None:
    """What a refused argument means; None if `what` is a step that failed."""
    if what.endswith(" out-of-range"):
        return Refusal("3", _OUT_OF_RANGE, "fix the caller; before the first start every limit is 0")
    return REFUSALS.get(what)


# ---- ERROR events

ERRORS = {
    "Cannot add a new control connection in array": (
        "48 different combinations of local address, remote address and VRF are in use, and this is another; "
        "the association was deleted again",
        "remove a connection first",
    ),
    "Couldn't locate control connection": (
        "an association to be removed is not, or no longer, known as shared",
        "nothing, unless its create failed but took effect, or its delete failed earlier: then the handle is an "
        "association that stays in the data plane without an owner",
    ),
    "Unexpected unbind": (
        "the binding to the ingress interface was released more often than requested",
        "nothing if no other connection uses these addresses; otherwise remove all of them and add them again",
    ),
}

LOST_BINDING = (
    "The undo removed the binding IPv4 ingress -> interface, which other connections between the same addresses use: "
    "since then they receive nothing."
)
LOST_REQUEST = (
    "The undo gave back a request for the binding IPv4 ingress -> interface that other connections between the same "
    "addresses had made: it will be removed while one of them still needs it."
)

# ---- What to do

REMOVE_LEFT = (
    "Remove what has no owner directly in the data plane, bindings first, as they keep associations and flows from "
    "being deleted: the library no longer knows it. Where no handle is told, it is what no session in use has."
)
CHECK_POSSIBLE = "Look in the data plane for what is possibly left, and remove it there if no session owns it."
RELEASE_KEPT = "Release (UDP) or remove (L2TP) the ids that a failed add kept in use."
REPAIR_REQUEST = (
    "Remove all connections that share these addresses and add them again, sessions first: the binding by which they "
    "receive goes with the last but one of them, and an add that succeeds now does not change that."
)
REPAIR_LOST = "Remove all connections that share these addresses and add them again: they receive nothing now."
DISCONNECT_FIRST = "Disconnect a UDP session before it is released: otherwise its bindings hold its associations."
STILL_BOUND = "Release the sessions whose disconnect failed, and watch whether their release fails too."
AFTER_FALLBACK = (
    "The old remote address and DSCP are in force: modify again once the data plane takes the new configuration."
)
AFTER_REMOVE_ALL = "Add the connection and all its sessions again: a failed modify removed them."
NOTHING_LEFT = "Try again once the cause is found: nothing was left."
SLOW_CALLS = "Check the load of the data plane and of this machine: calls took longer than 25,600,000 ticks."
FORGOTTEN = "Release and remove everything before the library is stopped or started again."
OVERWRITTEN = "Remove an L2TP session before it is added again: the second add overwrites it."
RESTART = (
    "Find out whether the data plane was restarted: every call of a removal failed. If so nothing is left, but no L2TP "
    "connection can be added until this process is restarted too."
)
OWN_EVENT = (
    "to see which session failed, let the caller fire a tracepoint of its own with the id before each operation, and "
    "record that too: this report shows the caller's last events before each failure."
)
