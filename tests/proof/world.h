/// The library over the watched data plane, and beside it a model of what must be true of both.
///
/// The model says what every result leaves: which sessions and connections there are, which objects and bindings the
/// data plane must hold for them, and what the exported tables and the queries must show. How the library gets there it
/// does not say. What a fault may leave behind is excused by the failed call that names it, or by an exception that the
/// interface documents; all else must be as the model has it, object by object and binding by binding.
#pragma once

#include <array>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "proof/watched_data_plane.h"
#include "requests.h"

namespace proof {

constexpr uint32_t flow_id(uint32_t pcep, uint32_t session)
{
    return (pcep << 20) | (session & 0xFFFFF);
}

struct udp_session {
    request::udp_add added{}; ///< with the attributes as modified
    uint64_t ingress = 0, egress = 0;
    bool uplink_bound = false, downlink_bound = false;

    uint32_t uplink_flow() const { return flow_id(added.uplink_pcep, added.id); }
    uint32_t downlink_flow() const { return flow_id(added.downlink_pcep, added.rat_session); }
};

struct connection {
    request::connection_add added{}; ///< as modified, and with the TTL of the one that made the egress association
    uint64_t flow = 0;               ///< 0 for what a modify made out of nothing
    uint64_t ingress = 0, egress = 0;
    bool sends = false; ///< false: the session-type hook refused the last bind with 3
};

struct session {
    request::session_add added{};
    l2tp_session_entry entry{};
    bool sends = false;                 ///< false: the session-type hook refused the bind from the ovlin flow with 3
    std::set<uint64_t> sends_through{}; ///< egress associations
};

/// What connections must have in common to share their associations: local address, remote address, VRF.
using association_key = std::array<uint8_t, 12>;

/// What of a UDP session can be modified; only the low byte of a value is a TTL's.
enum class attribute { pmtu, ttl };

/// How a UDP session's counters are asked for.
enum class statistics { ipv4, ipv6, text };

/// How often each operation gave each result.
struct tally {
    std::map<std::string_view, std::map<uint32_t, uint64_t>> results;
    uint64_t operations = 0;
};

/// What is no violation in an operation.
struct tolerated {
    bool l2tp_undo = false;  ///< of calls that fail after taking effect, creates leave their association; otherwise,
                             ///< binds their binding
    bool no_handle = false;  ///< 0 is passed for what is not there
    bool wrong_kind = false; ///< a handle is passed to an operation for objects of another kind
    bool large_dscp = false; ///< a DSCP that the data plane does not take
};

class world {
public:
    /// Starts the library over an empty data plane.
    explicit world(choices &decisions);
    ~world();

    // The operations: each is called, the model learns what it does, and everything is compared. They return the
    // operation's result and throw a std::runtime_error when something is not as it must be.
    uint32_t start() { return switch_to(true); }
    uint32_t stop() { return switch_to(false); }
    uint32_t udp_add(const request::udp_add &r);
    uint32_t udp_modify(attribute which, uint32_t id, uint32_t value);
    uint32_t udp_disconnect(uint32_t id);
    uint32_t udp_release(uint32_t id);
    uint32_t udp_statistics(statistics form, uint32_t id);
    uint32_t connection_add(const request::connection_add &r);
    uint32_t connection_remove(uint32_t id, uint32_t pcep, uint32_t rat_session);
    uint32_t connection_modify(const request::connection_modify &r);
    uint32_t session_add(const request::session_add &r);
    uint32_t session_remove(uint32_t connection, uint32_t id);
    uint32_t session_unbind_part(uint32_t connection, uint32_t id);
    uint32_t session_bind_part(uint32_t connection, uint32_t id, uint32_t pcep, uint8_t session_type_flag);

    const std::map<uint32_t, connection> &connections() const { return connections_; }
    const std::map<uint32_t, session> &sessions() const { return sessions_; }
    const ovlin_capabilities_t &limits() const { return limits_; }
    const std::vector<call> &calls() const { return plane_.calls; } ///< of the last operation

    bool compare = true;     ///< false: the operations only learn
    tally *counts = nullptr; ///< where the operations count their results

private:
    void begin(std::string_view name, std::initializer_list<uint64_t> arguments);
    template <typename... P> void run(std::string_view name, uint32_t (*operation)(P...), std::type_identity_t<P>... a)
    {
        begin(name, {uint64_t{a}...});
        result_ = operation(a...);
    }
    uint32_t rejected(uint32_t expected);
    uint32_t end(uint32_t expected, tolerated allowed = {});
    uint32_t failure() const;
    void expect_hook(bool called, uint32_t pcep, uint32_t session_type) const;
    [[noreturn]] void violated(const std::string &what) const;
    void require(bool condition, const char *what, std::optional<uint64_t> which = {}) const;

    void learn_from_calls(tolerated allowed);
    void explain_refusals(tolerated allowed) const;
    std::pair<object_map, binding_map> wanted() const;
    void compare_data_plane() const;
    void compare_tables() const;
    void compare_udp_queries() const;

    uint32_t switch_to(bool started);
    uint32_t udp_rejection(uint32_t id) const;
    uint32_t l2tp_rejection(uint32_t connection) const;
    const connection *sharing(const association_key &key, uint32_t but) const;
    bool has_room(const association_key &key, uint32_t but) const;
    void take_associations(connection &c);
    void strand_sessions(const connection &c, const std::vector<uint32_t> &leaving);
    void forget_connection(uint32_t id, uint32_t pcep, uint32_t rat_session);
    std::pair<uint32_t, bool> expected_modify_end(const request::connection_modify &r,
                                                  const association_key &old_key) const;
    uint64_t egress_of(uint32_t connection) const;
    uint32_t session_rejection(uint32_t connection, uint32_t id) const;
    bool has_flows(uint32_t id) const;
    bool can_bind(uint32_t connection, uint32_t id) const { return has_flows(id) && egress_of(connection) != 0; }
    void forget_session(uint32_t connection, uint32_t id);

    watched_data_plane plane_;
    ovlin_capabilities_t limits_{};
    bool started_ = false;
    std::map<uint32_t, udp_session> udp_sessions_;
    std::map<uint32_t, connection> connections_;
    std::map<uint32_t, session> sessions_;
    uint64_t interface_ = 0;

    // What may be otherwise after the running operation, and what may since one before, until a call changes it.
    std::set<uint64_t> excused_objects_, loose_objects_;
    binding_set excused_bindings_, loose_bindings_;
    binding_set uncertain_bindings_; ///< of associations that lost a request for them: always loose

    std::set<uint32_t> udp_ids_seen_;
    std::deque<std::string> history_; ///< the last operations with their arguments and results
    std::string_view running_;        ///< the operation's name
    uint32_t result_ = 0;             ///< that it gave
};

} // namespace proof
