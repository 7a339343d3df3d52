/// The stand-in data plane under watch: what it holds, the calls of an operation, and the faults among them.
#pragma once

#include <array>
#include <compare>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "proof/choices.h"
#include "vok_cp.h"
#include "vok_cp_sim.h"

namespace proof {

/// What can be seen of an object from outside.
struct object {
    vok_cp_sim_kind_t kind{};
    uint8_t ip_version = 0, protocol = 0, ttl = 0, flow_type = 0;
    uint16_t rules_mask = 0;
    uint16_t src_port = 0, dst_port = 0;
    uint32_t vrf_id = 0, path_mtu = 0, l2tp_session_id = 0, l2tp_connection_id = 0;
    std::array<uint8_t, 16> src_addr{}, dst_addr{};

    bool operator==(const object &) const = default;
};

struct binding {
    uint32_t kind = 0, direction = 0;
    uint64_t source = 0;
    uint32_t source_flow_id = 0;
    uint64_t destination = 0;
    uint32_t destination_flow_id = 0;

    auto operator<=>(const binding &) const = default;
    bool is(uint32_t its_kind, uint32_t its_direction) const { return kind == its_kind && direction == its_direction; }
    bool uses(uint64_t handle) const { return source == handle || destination == handle; }
};

std::string to_text(uint64_t handle);
std::string to_text(const binding &b);

struct binding_traits {
    uint32_t session_type;
    int dscp; ///< -1: none

    bool operator==(const binding_traits &) const = default;
};

/// Both in ascending order of what comes first.
struct holdings {
    std::vector<std::pair<uint64_t, object>> objects;
    std::vector<std::pair<binding, binding_traits>> bindings;

    bool operator==(const holdings &) const = default;
};

constexpr std::string_view session_type_hook = "zel_ovlin_session_handler_set_session_type";

/// A data-plane call, or one of the session-type hook.
struct call {
    std::string_view operation{};
    uint32_t status = 0; ///< the hook's code
    bool took_effect = true;
    uint64_t handle = 0;            ///< the object that was made, deleted, changed or read; the hook's type handle
    std::vector<uint64_t> passed{}; ///< all handles that it was given
    vok_cp_sim_kind_t kind{};
    proof::binding binding{};               ///< of a bind or an unbind
    std::vector<proof::binding> used_by{};  ///< of a delete that failed: the bindings of the object
    uint32_t pcep_id = 0, session_type = 0; ///< the hook's

    bool is(std::string_view text) const { return operation.find(text) != std::string_view::npos; }
    bool failed() const { return status != 0; }
    bool refused() const { return status >= VOK_CP_SIM_WRONG_INSTANCE && status <= VOK_CP_SIM_DSCP_TOO_LARGE; }
    std::string text() const;
    bool made(vok_cp_sim_kind_t what) const { return is("_create") && kind == what && took_effect; }
};

/// Watches from its construction to its end; there can be one. While it does, no handle may be passed that the data
/// plane did not give or has confirmed as deleted.
class watched_data_plane {
public:
    explicit watched_data_plane(choices &decisions);
    ~watched_data_plane();
    watched_data_plane(const watched_data_plane &) = delete;

    static holdings held();

    std::vector<call> calls; ///< to be cleared by the owner before an operation
    std::string violation;   ///< of the rule for handles or of the form of a record; empty: none

    /// Handles given so far must not be passed again, apart from this one.
    void forget_handles_but(uint64_t handle) { known_handles_ = {0, handle}; }

    uint32_t hook_called(uint64_t type, uint32_t pcep_id, uint32_t session_type);

private:
    static vok_cp_sim_answer_t on_call(void *self, const vok_cp_sim_call_t *call);
    static void on_outcome(void *self, const vok_cp_sim_call_t *made, const vok_cp_sim_outcome_t *outcome);

    choices &decisions_;
    std::set<uint64_t> known_handles_{0};
};

} // namespace proof
