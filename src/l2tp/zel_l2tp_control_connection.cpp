#include "zel_core_term/zel_l2tp_control_connection.h"

#include <cstring>
#include <span>

#include "l2tp/ip_associations.h"
#include "term/binding.h"
#include "term/session_type.h"
#include "term/steps.h"
#include "term/timed_call.h"
#include "zel_core_term/zel_l2tp_session.h"

#define ZEL_MODULE "zel_l2tp_control_connection"
#define TRACE_API_CALL(...)                                                                                            \
    ZEL_TRACE(tn_zel_term, API_CALL, ZEL_HERE, category::l2tp_control_connection, "%s(): ", __VA_ARGS__)
#define TRACE_ERROR(...)                                                                                               \
    ZEL_TRACE(tn_zel_term, ERROR, ZEL_HERE, category::l2tp_control_connection, "%s(): ", __VA_ARGS__)

using namespace zel;

l2tp_control_entry l2tp_control_table[ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX + 1];
u64 l2tp_control_ingress_interface;

/// IP protocol number
static constexpr u8 protocol_l2tpv3 = 115;

static constinit ip_associations ipv4_ingress_associations{};
static constinit ip_associations ipv4_egress_associations{};

namespace {

/// The ids that name a control connection and its ovlin flows.
struct control_ids {
    u32 tn_ovlin_session_id;
    u32 tn_pcep_id;
    u32 rat_ovlin_session_id;

    l2tp_control_entry &entry() const { return l2tp_control_table[tn_ovlin_session_id]; }
};

/// The input of an add's steps.
struct control_request {
    control_ids ids;
    zel_core_term_l2tp_control_connection_cfg_t *ip_cfg; ///< the caller's, which a modify that falls back writes
    u8 dscp;
    u8 session_type_flag;
    u32 controlConnId = 0; ///< unused by the modify, which keeps the flow with that id

    l2tp_control_entry &entry() const { return ids.entry(); }
};

using control_step = step<const control_request &>;
using control_release_step = step<const control_ids &>;

} // namespace

/// Rejects ids outside the table, and everything while the library is stopped.
static u32 check_id(trace_site site, u32 tn_ovlin_session_id)
{
    if (tn_ovlin_session_id > ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX)
        return report(site, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_ovlin_session_id out-of-range");
    if (zel_handles == nullptr)
        return report(site, ZEL_CORE_TERM_DATA_PLANE_FAILED, "not started");
    return ZEL_CORE_TERM_SUCCESS;
}

// ---- The IPv4 associations that connections share

void zel_l2tp_reset_ip_associations_handling()
{
    ipv4_ingress_associations.clear();
    ipv4_egress_associations.clear();
}

/// An IPv4 address as in the configuration.
static u32 address_word(const u8 (&address)[16])
{
    u32 word;
    std::memcpy(&word, address, sizeof word);
    return word;
}

static association_key key_of(const zel_core_term_l2tp_control_connection_cfg_t &cfg)
{
    return {address_word(cfg.local_addr), address_word(cfg.remote_addr), cfg.vrf_id};
}

/// Takes a share of the association with that key if there is one.
static bool share_association(ip_associations &table, const association_key &key, u64 &handle)
{
    ip_association *const association = table.find(key);
    if (association == nullptr)
        return false;
    ++association->user_count;
    handle = association->association_handle;
    return true;
}

/// @return false when the table is full
static bool save_new_ip_association(ip_associations &table, const association_key &key, u64 handle)
{
    if (table.add(key, handle))
        return true;
    TRACE_ERROR("Cannot add a new control connection in array as max connection limit has reached: %d",
                ip_associations::capacity);
    return false;
}

static ip_association *find_or_report(trace_site site, ip_associations &table, u64 handle)
{
    ip_association *const association = table.find(handle);
    if (association == nullptr)
        ZEL_TRACE(tn_zel_term, ERROR, site, category::l2tp_control_connection,
                  "%s(): ", "Couldn't locate control connection with given control flow handle: %p",
                  as_pointer(handle));
    return association;
}

/// Releases a share. @return whether it was the last, so that the association must be deleted
static bool ip_association_delete_needed(ip_associations &table, u64 handle)
{
    ip_association *const association = find_or_report(ZEL_HERE, table, handle);
    return association != nullptr && table.release(*association);
}

static bool bind_flow_needed(u32 tn_ovlin_session_id)
{
    ip_association *const association = find_or_report(
        ZEL_HERE, ipv4_ingress_associations, l2tp_control_table[tn_ovlin_session_id].ipv4_ingress_association_handle);
    return association != nullptr && request_bind(*association);
}

static bool unbind_flow_needed(u32 tn_ovlin_session_id)
{
    ip_association *const association = find_or_report(
        ZEL_HERE, ipv4_ingress_associations, l2tp_control_table[tn_ovlin_session_id].ipv4_ingress_association_handle);
    if (association == nullptr)
        return false;
    const bind_release released = release_bind(*association);
    if (released == bind_release::was_not_requested)
        TRACE_ERROR("Unexpected unbind: Possible problem with bind and unbind count not matched");
    return released == bind_release::last_one;
}

// ---- Bindings, each bound and unbound by one description

#define IPV4_TO_L2TP "(F2F, INGRESS, ipv4->l2tp"
#define L2TP_TO_OVLIN "(F2ID, EGRESS, l2tp->ovlin"
#define OVLIN_TO_IPV4 "(ID2F, EGRESS, ovlin->ipv4"

static vok_bind_record ipv4_to_l2tp(const control_ids &ids)
{
    return binding(bind_kind::f2f, bind_direction::ingress, session_type::l2tp,
                   flow_end(zel_handles->ipv4_association_type, ids.entry().ipv4_ingress_association_handle),
                   flow_end(zel_handles->l2tpv3_flow_type, l2tp_control_ingress_interface));
}

static vok_bind_record l2tp_to_ovlin(const control_ids &ids)
{
    return binding(bind_kind::f2id, bind_direction::egress, session_type::l2tp,
                   flow_end(zel_handles->l2tpv3_flow_type, ids.entry().l2tp_ingress_flow_handle),
                   ovlin_end(zel_handles->ovlin_flow_type, ovlin_flow_id(ids.tn_pcep_id, ids.rat_ovlin_session_id)));
}

static vok_bind_record ovlin_to_ipv4(const control_ids &ids)
{
    return binding(bind_kind::id2f, bind_direction::egress, session_type::l2tp,
                   ovlin_end(zel_handles->ovlin_flow_type, ovlin_flow_id(ids.tn_pcep_id, ids.tn_ovlin_session_id)),
                   flow_end(zel_handles->ipv4_association_type, ids.entry().ipv4_egress_association_handle));
}

// ---- The associations of a connection, one each way

namespace {

struct association_direction {
    ip_associations &table;
    u64 l2tp_control_entry::*handle;
    const char *delete_name;
    decltype(&vok_ip_ingress_association_delete) delete_operation;
};

} // namespace

static constexpr association_direction ingress = {
    ipv4_ingress_associations,
    &l2tp_control_entry::ipv4_ingress_association_handle,
    "vok_ip_ingress_association_delete",
    vok_ip_ingress_association_delete,
};

static constexpr association_direction egress = {
    ipv4_egress_associations,
    &l2tp_control_entry::ipv4_egress_association_handle,
    "vok_ip_egress_association_delete",
    vok_ip_egress_association_delete,
};

static u32 delete_association(trace_site site, const association_direction &direction, const control_ids &ids)
{
    ZEL_TRACE(tn_zel_term, API_CALL, site, category::l2tp_control_connection, "%s(): ", "tn_ovlin_session_id=%d: %s",
              ids.tn_ovlin_session_id, direction.delete_name);
    return timed_call(site, direction.delete_name, direction.delete_operation, zel_handles->ipv4_association_type,
                      ids.entry().*direction.handle);
}

/// Registers a new association for others to share. If the table is full, deletes it again.
static u32 track_association(trace_site site, const association_direction &direction, const control_ids &ids,
                             const association_key &key)
{
    u64 &handle = ids.entry().*direction.handle;
    if (save_new_ip_association(direction.table, key, handle))
        return ZEL_CORE_TERM_SUCCESS;
    delete_association(site, direction, ids);
    handle = 0;
    return ZEL_CORE_TERM_DATA_PLANE_FAILED;
}

/// Releases the connection's share and deletes the association if it was the last. The handle stays if that fails.
static u32 release_association(trace_site site, const association_direction &direction, const control_ids &ids)
{
    u64 &handle = ids.entry().*direction.handle;
    if (handle == 0)
        return ZEL_CORE_TERM_SUCCESS;
    if (ip_association_delete_needed(direction.table, handle))
        if (const u32 failure = delete_association(site, direction, ids))
            return failure;
    handle = 0;
    return ZEL_CORE_TERM_SUCCESS;
}

// ---- Steps of the add; the modify uses four of them

static u32 l2tp_control_add_l2tp_ingress_interface(const control_request &)
{
    if (l2tp_control_ingress_interface != 0)
        return ZEL_CORE_TERM_SUCCESS;
    const l2tpv3_ingress_interface_record record{};
    TRACE_API_CALL("vok_l2tpv3_ingress_interface_add");
    return timed_call(ZEL_HERE, "vok_l2tpv3_ingress_interface_add", vok_l2tpv3_ingress_interface_add,
                      zel_handles->l2tpv3_flow_type, address_of(record), &l2tp_control_ingress_interface);
}

static u32 l2tp_control_create_ipv4_ingress_association(const control_request &request)
{
    const association_key key = key_of(*request.ip_cfg);
    u64 &handle = request.entry().ipv4_ingress_association_handle;
    if (share_association(ingress.table, key, handle))
        return ZEL_CORE_TERM_SUCCESS;

    vok_ip_ingress_record record{};
    record.rulesMask = 0x9c;
    record.ipVrdId = key.vrf_id;
    record.dstAddr = __builtin_bswap32(key.local_addr);
    record.dstPrefixLen = 32;
    record.srcAddr = __builtin_bswap32(key.remote_addr);
    record.srcPrefixLen = 32;
    record.prot = protocol_l2tpv3;
    record.param38 = 1;
    TRACE_API_CALL("vok_ip_ingress_association_create(tn_ovlin_session_id=%u, dstAddr=0x%08x, dstPort=%d, "
                   "srcAddr=0x%08x, srcPort=%d, prot=%d, ipVrdId=%d, rulesMask=0x%x)",
                   request.ids.tn_ovlin_session_id, record.dstAddr, record.dstPort, record.srcAddr, record.srcPort,
                   record.prot, record.ipVrdId, record.rulesMask);
    if (const u32 failure = timed_call(ZEL_HERE, "vok_ip_ingress_association_create", vok_ip_ingress_association_create,
                                       zel_handles->ipv4_association_type, address_of(record), &handle))
        return failure;
    return track_association(ZEL_HERE, ingress, request.ids, key);
}

static u32 l2tp_control_create_l2tp_ingress_flow(const control_request &request)
{
    l2tpv3_ingress_flow_record record{};
    record.flow_type = l2tpv3_flow_type::control_connection;
    record.ingress_interface_handle = l2tp_control_ingress_interface;
    record.identifier = request.controlConnId;
    TRACE_API_CALL("tn_ovlin_session_id=%d: vok_l2tpv3_ingress_flow_create(flowType=%d, controlConnId=%d",
                   request.ids.tn_ovlin_session_id, record.flow_type, record.identifier);
    return timed_call(ZEL_HERE, "vok_l2tpv3_ingress_flow_create", vok_l2tpv3_ingress_flow_create,
                      zel_handles->l2tpv3_flow_type, address_of(record), &request.entry().l2tp_ingress_flow_handle);
}

static u32 l2tp_control_bind_ipv4_to_l2tp(const control_request &request)
{
    if (!bind_flow_needed(request.ids.tn_ovlin_session_id))
        return ZEL_CORE_TERM_SUCCESS;
    const vok_bind_record record = ipv4_to_l2tp(request.ids);
    TRACE_API_CALL("vok_bind" IPV4_TO_L2TP ", srcFlowHandle=%p, dstFlowID=0x%08x, tn_ovlin_session_id=%u)",
                   as_pointer(record.srcFlowHandle), record.dstFlowID, request.ids.tn_ovlin_session_id);
    return bind(ZEL_HERE, "vok_bind" IPV4_TO_L2TP ")", zel_handles->vok_instance, record);
}

static u32 l2tp_control_bind_l2tp_to_ovlin(const control_request &request)
{
    const vok_bind_record record = l2tp_to_ovlin(request.ids);
    TRACE_API_CALL("vok_bind" L2TP_TO_OVLIN ", srcFlowHandle=%p, dstFlowID=%u): tn_ovlin_session_id=%u "
                   "rat_ovlin_session_id=%u tn_pcep_id=%u)",
                   as_pointer(record.srcFlowHandle), record.dstFlowID, request.ids.tn_ovlin_session_id,
                   request.ids.rat_ovlin_session_id, request.ids.tn_pcep_id);
    return bind(ZEL_HERE, "vok_bind" L2TP_TO_OVLIN ")", zel_handles->vok_instance, record);
}

static u32 l2tp_control_create_ipv4_egress_association(const control_request &request)
{
    const association_key key = key_of(*request.ip_cfg);
    u64 &handle = request.entry().ipv4_egress_association_handle;
    if (share_association(egress.table, key, handle))
        return ZEL_CORE_TERM_SUCCESS;

    vok_ip_egress_record record{};
    record.rulesMask = 0x0e;
    record.ipVrdId = key.vrf_id;
    record.dstAddr = __builtin_bswap32(key.remote_addr);
    record.srcAddr = __builtin_bswap32(key.local_addr);
    record.prot = protocol_l2tpv3;
    record.ttl = request.ip_cfg->ttl;
    TRACE_API_CALL("vok_ip_egress_association_create(dstAddr=0x%08x, dstPort=%d, srcAddr=0x%08x, srcPort=%d, prot=%d, "
                   "ipVrdId=%d, rulesMask=0x%x, mtu=%d, ttl=%d)",
                   record.dstAddr, record.dstPort, record.srcAddr, record.srcPort, record.prot, record.ipVrdId,
                   record.rulesMask, record.mtu, record.ttl);
    if (const u32 failure = timed_call(ZEL_HERE, "vok_ip_egress_association_create", vok_ip_egress_association_create,
                                       zel_handles->ipv4_association_type, address_of(record), &handle))
        return failure;
    return track_association(ZEL_HERE, egress, request.ids, key);
}

static u32 l2tp_control_bind_ovlin_to_ipv4(const control_request &request)
{
    if (const u32 refusal = set_session_type(ZEL_HERE, request.session_type_flag, zel_handles->ovlin_flow_type,
                                             request.ids.tn_pcep_id, session_type::l2tp))
        return refusal;
    vok_bind_record record = ovlin_to_ipv4(request.ids);
    record.dscpRef = dscp_reference(request.dscp);
    TRACE_API_CALL("vok_bind" OVLIN_TO_IPV4 ", srcFlowID=0x%08x, destFlowHandle=%p): tn_ovlin_session_id=%u, "
                   "tn_pcep_id=%u, dscp=%u",
                   record.srcFlowID, as_pointer(record.destFlowHandle), request.ids.tn_ovlin_session_id,
                   request.ids.tn_pcep_id, request.dscp);
    return bind(ZEL_HERE, "vok_bind" OVLIN_TO_IPV4 ")", zel_handles->vok_instance, record);
}

// ---- Steps of the removal; the add's undo and the modify use them too

static u32 l2tp_control_unbind_ovlin_from_ipv4(const control_ids &ids)
{
    const vok_bind_record record = ovlin_to_ipv4(ids);
    TRACE_API_CALL("vok_unbind" OVLIN_TO_IPV4 ", srcFlowID=0x%08x, destFlowHandle=%p): tn_ovlin_session_id=%u, "
                   "tn_pcep_id=%u",
                   record.srcFlowID, as_pointer(record.destFlowHandle), ids.tn_ovlin_session_id, ids.tn_pcep_id);
    return unbind(ZEL_HERE, "vok_unbind" OVLIN_TO_IPV4 ")", zel_handles->vok_instance, record);
}

static u32 l2tp_control_delete_ipv4_egress_association(const control_ids &ids)
{
    return release_association(ZEL_HERE, egress, ids);
}

static u32 l2tp_control_unbind_l2tp_from_ovlin(const control_ids &ids)
{
    const vok_bind_record record = l2tp_to_ovlin(ids);
    TRACE_API_CALL("vok_unbind" L2TP_TO_OVLIN ", srcFlowHandle=%p, dstFlowID=%u): tn_ovlin_session_id=%u, "
                   "rat_ovlin_session_id=%u, tn_pcep_id=%u)",
                   as_pointer(record.srcFlowHandle), record.dstFlowID, ids.tn_ovlin_session_id,
                   ids.rat_ovlin_session_id, ids.tn_pcep_id);
    return unbind(ZEL_HERE, "vok_unbind" L2TP_TO_OVLIN ")", zel_handles->vok_instance, record);
}

static u32 l2tp_control_unbind_ipv4_from_l2tp(const control_ids &ids)
{
    if (!unbind_flow_needed(ids.tn_ovlin_session_id))
        return ZEL_CORE_TERM_SUCCESS;
    const vok_bind_record record = ipv4_to_l2tp(ids);
    TRACE_API_CALL("vok_unbind" IPV4_TO_L2TP ", srcFlowHandle=%p, dstFlowID=0x%08x, tn_ovlin_session_id=%u)",
                   as_pointer(record.srcFlowHandle), record.dstFlowID, ids.tn_ovlin_session_id);
    return unbind(ZEL_HERE, "vok_unbind" IPV4_TO_L2TP ")", zel_handles->vok_instance, record);
}

static u32 l2tp_control_delete_l2tp_ingress_flow(const control_ids &ids)
{
    u64 &handle = ids.entry().l2tp_ingress_flow_handle;
    if (handle == 0)
        return ZEL_CORE_TERM_SUCCESS;
    TRACE_API_CALL("tn_ovlin_session_id=%d: vok_l2tpv3_ingress_flow_delete", ids.tn_ovlin_session_id);
    if (const u32 failure = timed_call(ZEL_HERE, "vok_l2tpv3_ingress_flow_delete", vok_l2tpv3_ingress_flow_delete,
                                       zel_handles->l2tpv3_flow_type, handle))
        return failure;
    handle = 0;
    return ZEL_CORE_TERM_SUCCESS;
}

static u32 l2tp_control_delete_ipv4_ingress_association(const control_ids &ids)
{
    return release_association(ZEL_HERE, ingress, ids);
}

// ---- Add

/// Goes by the handles in the entry, not by what was bound; only the steps report failures.
static void undo_add(const control_ids &ids)
{
    l2tp_control_entry &entry = ids.entry();
    if (entry.ipv4_egress_association_handle != 0) {
        l2tp_control_unbind_ovlin_from_ipv4(ids);
        l2tp_control_delete_ipv4_egress_association(ids);
    }
    if (entry.l2tp_ingress_flow_handle != 0) {
        l2tp_control_unbind_l2tp_from_ovlin(ids);
        l2tp_control_delete_l2tp_ingress_flow(ids);
    }
    if (entry.ipv4_ingress_association_handle != 0) {
        l2tp_control_unbind_ipv4_from_l2tp(ids);
        l2tp_control_delete_ipv4_ingress_association(ids);
    }
    entry = {};
}

u32 zel_core_term_l2tp_control_connection_add(u32 tn_ovlin_session_id,
                                              zel_core_term_l2tp_control_connection_cfg_t *ip_cfg, u32 controlConnId,
                                              u32 tn_pcep_id, u32 rat_ovlin_session_id, u8 dscp, u8 session_type_flag)
{
    static constexpr control_step steps[] = {
        {"l2tp_control_add_l2tp_ingress_interface", l2tp_control_add_l2tp_ingress_interface},
        {"l2tp_control_create_ipv4_ingress_association", l2tp_control_create_ipv4_ingress_association},
        {"l2tp_control_create_l2tp_ingress_flow", l2tp_control_create_l2tp_ingress_flow},
        {"l2tp_control_bind_ipv4_to_l2tp", l2tp_control_bind_ipv4_to_l2tp},
        {"l2tp_control_bind_l2tp_to_ovlin", l2tp_control_bind_l2tp_to_ovlin},
        {"l2tp_control_create_ipv4_egress_association", l2tp_control_create_ipv4_egress_association},
        {"l2tp_control_bind_ovlin_to_ipv4", l2tp_control_bind_ovlin_to_ipv4},
    };

    const traced_function traced(ZEL_HERE, category::l2tp_control_connection);
    if (rat_ovlin_session_id > ovlin_capabilities.max_rat_ovlin_session_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "rat_ovlin_session_id out-of-range");
    if (tn_pcep_id > ovlin_capabilities.max_tn_pcep_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_pcep out-of-range");
    if (const u32 rejection = check_id(ZEL_HERE, tn_ovlin_session_id))
        return rejection;
    const control_request request{
        {tn_ovlin_session_id, tn_pcep_id, rat_ovlin_session_id}, ip_cfg, dscp, session_type_flag, controlConnId};
    const l2tp_control_entry &entry = request.entry();
    if (entry.l2tp_ingress_flow_handle != 0 || entry.ipv4_ingress_association_handle != 0 ||
        entry.ipv4_egress_association_handle != 0)
        return report(ZEL_HERE, ZEL_CORE_TERM_SESSION_IN_USE, "(tn_ovlin_session_id)");

    const u32 result = run_until_failure(ZEL_HERE, steps, request);
    if (result != ZEL_CORE_TERM_SUCCESS && result != ZEL_CORE_TERM_OUT_OF_RANGE) // a 3 ends an add without undo
        undo_add(request.ids);
    return result;
}

// ---- Removal

u32 zel_core_term_l2tp_control_connection_rem(u32 tn_ovlin_session_id, u32 tn_pcep_id, u32 rat_ovlin_session_id)
{
    static constexpr control_release_step steps[] = {
        {"l2tp_control_unbind_ovlin_from_ipv4", l2tp_control_unbind_ovlin_from_ipv4},
        {"l2tp_control_delete_ipv4_egress_association", l2tp_control_delete_ipv4_egress_association},
        {"l2tp_control_unbind_l2tp_from_ovlin", l2tp_control_unbind_l2tp_from_ovlin},
        {"l2tp_control_unbind_ipv4_from_l2tp", l2tp_control_unbind_ipv4_from_l2tp},
        {"l2tp_control_delete_l2tp_ingress_flow", l2tp_control_delete_l2tp_ingress_flow},
        {"l2tp_control_delete_ipv4_ingress_association", l2tp_control_delete_ipv4_ingress_association},
    };

    const traced_function traced(ZEL_HERE, category::l2tp_control_connection);
    if (check_id(ZEL_HERE, tn_ovlin_session_id) != ZEL_CORE_TERM_SUCCESS)
        return ZEL_CORE_TERM_SUCCESS;
    const control_ids ids{tn_ovlin_session_id, tn_pcep_id, rat_ovlin_session_id};
    run_all(ZEL_HERE, steps, ids);
    ids.entry() = {};
    return ZEL_CORE_TERM_SUCCESS;
}

// ---- Modify

static u32 remove_sessions_for_modify(u32 tn_ovlin_session_id, std::span<const u32> sessions)
{
    for (const u32 session : sessions) {
        TRACE_API_CALL("zel_l2tp_session_modify_unbind_part(tn_ovlin_session_id=%u)", tn_ovlin_session_id);
        if (const u32 failure = zel_l2tp_session_modify_unbind_part(tn_ovlin_session_id, session))
            return report(ZEL_HERE, failure, "zel_l2tp_session_modify_unbind_part");
    }
    return ZEL_CORE_TERM_SUCCESS;
}

static void remove_control_connection_for_modify(const control_ids &ids)
{
    static constexpr control_release_step steps[] = {
        {"l2tp_control_unbind_ovlin_from_ipv4", l2tp_control_unbind_ovlin_from_ipv4},
        {"l2tp_control_delete_ipv4_egress_association", l2tp_control_delete_ipv4_egress_association},
        {"l2tp_control_unbind_ipv4_from_l2tp", l2tp_control_unbind_ipv4_from_l2tp},
        {"l2tp_control_delete_ipv4_ingress_association", l2tp_control_delete_ipv4_ingress_association},
    };
    run_all(ZEL_HERE, steps, ids);
}

static u32 add_control_connection_for_modify(const control_request &request)
{
    static constexpr control_step steps[] = {
        {"l2tp_control_create_ipv4_ingress_association", l2tp_control_create_ipv4_ingress_association},
        {"l2tp_control_bind_ipv4_to_l2tp", l2tp_control_bind_ipv4_to_l2tp},
        {"l2tp_control_create_ipv4_egress_association", l2tp_control_create_ipv4_egress_association},
        {"l2tp_control_bind_ovlin_to_ipv4", l2tp_control_bind_ovlin_to_ipv4},
    };
    return run_until_failure(ZEL_HERE, steps, request);
}

static u32 add_sessions_for_modify(const control_request &request, std::span<const u32> sessions)
{
    for (const u32 session : sessions) {
        TRACE_API_CALL("zel_l2tp_session_modify_bind_part(tn_ovlin_session_id=%u)", request.ids.tn_ovlin_session_id);
        if (const u32 failure = zel_l2tp_session_modify_bind_part(request.ids.tn_ovlin_session_id, session,
                                                                  request.ids.tn_pcep_id, request.session_type_flag))
            return report(ZEL_HERE, failure, "zel_l2tp_session_modify_bind_part");
    }
    return ZEL_CORE_TERM_SUCCESS;
}

namespace {

/// How a modify ended: whether a configuration is in force, and the result.
struct modify_end {
    bool in_force;
    u32 result;
};

} // namespace

/// Moves the connection and its sessions, falling back to the old remote address and DSCP. A failure without fallback
/// is reported at `site`.
static modify_end move(trace_site site, control_request request, std::span<const u32> sessions, u8 old_dscp,
                       const u8 *old_remote_addr)
{
    const auto failed = [site](u32 result, const char *step) { return modify_end{false, report(site, result, step)}; };

    if (const u32 failure = remove_sessions_for_modify(request.ids.tn_ovlin_session_id, sessions))
        return failed(failure, "remove_sessions_for_modify");
    remove_control_connection_for_modify(request.ids);
    u32 result = ZEL_CORE_TERM_SUCCESS;
    if (add_control_connection_for_modify(request) != ZEL_CORE_TERM_SUCCESS) {
        result = ZEL_CORE_TERM_FELL_BACK;
        remove_control_connection_for_modify(request.ids);
        std::memmove(request.ip_cfg->remote_addr, old_remote_addr, sizeof(u32)); // they may be the same
        request.dscp = old_dscp;
        if (const u32 failure = add_control_connection_for_modify(request))
            return failed(failure, "add_control_connection_for_modify");
    }
    if (const u32 failure = add_sessions_for_modify(request, sessions))
        return failed(failure, "add_sessions_for_modify");
    return {true, result};
}

u32 zel_core_term_l2tp_control_connection_modify(u32 tn_ovlin_session_id, u32 *session_ids, u32 session_count,
                                                 zel_core_term_l2tp_control_connection_cfg_t *ip_cfg, u32 tn_pcep_id,
                                                 u32 rat_ovlin_session_id, u8 dscp, u8 old_dscp, u8 *old_remote_addr,
                                                 u8 session_type_flag)
{
    const traced_function traced(ZEL_HERE, category::l2tp_control_connection);
    if (const u32 rejection = check_id(ZEL_HERE, tn_ovlin_session_id))
        return rejection;
    const std::span<const u32> sessions(session_ids, session_count);
    const control_request request{
        {tn_ovlin_session_id, tn_pcep_id, rat_ovlin_session_id}, ip_cfg, dscp, session_type_flag};
    const modify_end end = move(ZEL_HERE, request, sessions, old_dscp, old_remote_addr);
    if (end.in_force)
        return end.result;

    for (const u32 session : sessions)
        zel_core_term_l2tp_session_rem(tn_ovlin_session_id, session);
    zel_core_term_l2tp_control_connection_rem(tn_ovlin_session_id, tn_pcep_id, rat_ovlin_session_id);
    return end.result;
}
