/// The stand-in data plane as the model sees it: what it holds, the calls of an operation, and the faults among them.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "data_plane.h"
#include "proof/choices.h"
#include "watcher.h"
#include "zel_core_term/zel_term_api.h"

namespace proof {

/// What the model says of an object.
struct object {
    vok_cp_sim_kind_t kind{};
    uint16_t rules_or_flow_type = 0; ///< how its record begins
    uint32_t path_mtu = 0;
    vok_cp_sim_header_t header{};

    bool operator==(const object &other) const;
};

/// By what names a binding: kind, direction, source and destination.
struct by_ends {
    static auto ends(const vok_bind_record &r)
    {
        return std::tie(r.bindKind, r.direction, r.srcFlowHandle, r.srcFlowID, r.destFlowHandle, r.dstFlowID);
    }
    bool operator()(const vok_bind_record &a, const vok_bind_record &b) const { return ends(a) < ends(b); }
};

/// What the model says of a binding, beside its ends: session type, and DSCP or -1.
using binding_traits = std::pair<uint32_t, int>;

using object_map = std::map<uint64_t, object>;
using binding_map = std::map<vok_bind_record, binding_traits, by_ends>;
using binding_set = std::set<vok_bind_record, by_ends>;

/// What the data plane holds, as members of those maps.
std::pair<uint64_t, object> as_member(const data_plane::object &held);
std::pair<vok_bind_record, binding_traits> as_member(const data_plane::binding &held);

/// A data-plane call, or one of the session-type hook.
struct call : watched_call {
    std::vector<vok_bind_record> used_by{};         ///< of a delete that failed: the bindings of the object
    bool gives_zero = false, gives_missing = false; ///< refused: of its handles, one is 0, or names no object

    bool is(std::string_view text) const { return operation.find(text) != std::string_view::npos; }
    bool failed() const { return status != 0; }
    /// What a failed call makes of the operation that stops at it.
    uint32_t code() const { return is_hook() ? status : uint32_t{ZEL_CORE_TERM_DATA_PLANE_FAILED}; }
    bool refused() const { return status >= VOK_CP_SIM_WRONG_INSTANCE && status <= VOK_CP_SIM_DSCP_TOO_LARGE; }
    bool makes(vok_cp_sim_kind_t what) const { return created != 0 && kind == what; }
    bool makes_association() const { return makes(VOK_CP_SIM_IPV4_INGRESS) || makes(VOK_CP_SIM_IPV4_EGRESS); }
    bool changes_object() const { return is_delete() || is("attr_modify"); }
    std::string text() const;
};

/// Watches from its construction to its end; there can be one. While it does, no handle may be passed that the data
/// plane did not give or has confirmed as deleted.
class watched_data_plane {
public:
    explicit watched_data_plane(choices &decisions);
    ~watched_data_plane();
    watched_data_plane(const watched_data_plane &) = delete;

    std::vector<call> calls;                    ///< of the running operation
    std::map<vok_cp_sim_kind_t, uint64_t> made; ///< by it: the last object of each kind that was given
    std::string violation;                      ///< of the rule for handles or of the form of a record; empty: none

    void begin_operation() { calls.clear(), made.clear(); }

    /// Handles given so far must not be passed again, apart from this one.
    void forget_handles_but(uint64_t handle) { known_handles_ = {0, handle}; }

private:
    vok_cp_sim_answer_t answer_to(const watched_call &c);
    void see(const watched_call &seen);

    choices &decisions_;
    std::set<uint64_t> known_handles_{0};
    watcher watcher_;
};

} // namespace proof
