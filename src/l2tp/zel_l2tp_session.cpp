#include "zel_core_term/zel_l2tp_session.h"

#include <iterator>

#include "term/binding.h"
#include "term/session_type.h"
#include "term/steps.h"
#include "term/timed_call.h"
#include "zel_core_term/zel_l2tp_control_connection.h"

#define ZEL_MODULE "zel_l2tp_session"
#define TRACE_API_CALL(...) ZEL_TRACE(tn_zel_term, API_CALL, ZEL_HERE, category::l2tp_session, "%s(): ", __VA_ARGS__)

using namespace zel;

l2tp_session_entry l2tp_session_table[ZEL_CORE_TERM_L2TP_SESSION_ID_MAX - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN + 1];

namespace {

/// A session and the control connection that carries it.
struct session_ids {
    u32 control_conn;
    u32 session;

    /// Wraps to a large value for an id below the minimum, so that one comparison checks both bounds.
    u32 index() const { return session - ZEL_CORE_TERM_L2TP_SESSION_ID_MIN; }
    l2tp_session_entry &entry() const { return l2tp_session_table[index()]; }
    u64 &egress_association() const { return l2tp_control_table[control_conn].ipv4_egress_association_handle; }
};

/// The input of an add's steps; the rebind needs only tn_pcep, dscp and the flag.
struct session_request {
    session_ids ids;
    u32 tn_pcep;
    u8 dscp;
    u8 session_type_flag;
    u8 flow_type = 0;
    u32 rat_ovlin_session_id = 0;
    u32 l2tp_local_session_id = 0;
};

} // namespace

/// Rejects ids outside the tables, and everything while the library is stopped.
static u32 check_ids(trace_site site, session_ids ids)
{
    if (ids.control_conn > ZEL_CORE_TERM_L2TP_CONTROL_CONNECTION_ID_MAX)
        return report(site, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_ovlin_session_id_control_conn out-of-range");
    if (ids.index() >= std::size(l2tp_session_table))
        return report(site, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_ovlin_session_id_session out-of-range");
    if (zel_handles == nullptr)
        return report(site, ZEL_CORE_TERM_DATA_PLANE_FAILED, "not started");
    return ZEL_CORE_TERM_SUCCESS;
}

// ---- Bindings, each bound and unbound by one description

#define L2TP_TO_OVLIN "(F2ID, EGRESS, l2tp->ovlin"
#define OVLIN_TO_L2TP "(ID2F, EGRESS, ovlin->l2tp"
#define L2TP_TO_IPV4 "(F2F, EGRESS, l2tp->ipv4"

static vok_bind_record l2tp_to_ovlin(const l2tp_session_entry &entry)
{
    return binding(bind_kind::f2id, bind_direction::egress, session_type::l2tp,
                   flow_end(zel_handles->l2tpv3_flow_type, entry.ingress_flow_handle),
                   ovlin_end(zel_handles->ovlin_flow_type, entry.dst_flow_id));
}

static vok_bind_record ovlin_to_l2tp(const l2tp_session_entry &entry)
{
    return binding(bind_kind::id2f, bind_direction::egress, session_type::l2tp,
                   ovlin_end(zel_handles->ovlin_flow_type, entry.src_flow_id),
                   flow_end(zel_handles->l2tpv3_flow_type, entry.egress_flow_handle));
}

static vok_bind_record l2tp_to_ipv4(session_ids ids)
{
    return binding(bind_kind::f2f, bind_direction::egress, session_type::l2tp,
                   flow_end(zel_handles->l2tpv3_flow_type, ids.entry().egress_flow_handle),
                   flow_end(zel_handles->ipv4_association_type, ids.egress_association()));
}

// ---- Steps of the add

static u32 l2tp_session_create_ingress_flow(const session_request &request)
{
    l2tpv3_ingress_flow_record record{};
    record.flow_type = request.flow_type;
    record.ingress_interface_handle = l2tp_control_ingress_interface;
    record.identifier = request.l2tp_local_session_id;
    TRACE_API_CALL("l2tp_session_table_index=%d: vok_l2tpv3_ingress_flow_create(flowType=%d, l2tp_local_session_id=%d)",
                   request.ids.index(), record.flow_type, record.identifier);
    return timed_call(ZEL_HERE, "vok_l2tpv3_ingress_flow_create", vok_l2tpv3_ingress_flow_create,
                      zel_handles->l2tpv3_flow_type, address_of(record), &request.ids.entry().ingress_flow_handle);
}

static u32 l2tp_session_bind_l2tp_to_ovlin(const session_request &request)
{
    l2tp_session_entry &entry = request.ids.entry();
    entry.dst_flow_id = ovlin_flow_id(request.tn_pcep, request.rat_ovlin_session_id);
    const vok_bind_record record = l2tp_to_ovlin(entry);
    TRACE_API_CALL("vok_bind" L2TP_TO_OVLIN ", srcFlowHandle=%p, dstFlowID=0x%08x): l2tp_session_table_index=%u, "
                   "rat_ovlin_session_id=%u, tn_pcep_id=%u",
                   as_pointer(record.srcFlowHandle), record.dstFlowID, request.ids.index(),
                   request.rat_ovlin_session_id, request.tn_pcep);
    return bind(ZEL_HERE, "vok_bind" L2TP_TO_OVLIN ")", zel_handles->vok_instance, record);
}

static u32 l2tp_session_create_egress_flow(const session_request &request)
{
    l2tpv3_egress_flow_record record{};
    record.flow_type = request.flow_type;
    TRACE_API_CALL("l2tp_session_table_index=%d: vok_l2tpv3_egress_flow_create(flowType=%d)", request.ids.index(),
                   record.flow_type);
    return timed_call(ZEL_HERE, "vok_l2tpv3_egress_flow_create", vok_l2tpv3_egress_flow_create,
                      zel_handles->l2tpv3_flow_type, address_of(record), &request.ids.entry().egress_flow_handle);
}

static u32 l2tp_session_bind_ovlin_to_l2tp(const session_request &request)
{
    if (const u32 refusal = set_session_type(ZEL_HERE, request.session_type_flag, zel_handles->ovlin_flow_type,
                                             request.tn_pcep, session_type::l2tp))
        return refusal;
    l2tp_session_entry &entry = request.ids.entry();
    entry.src_flow_id = ovlin_flow_id(request.tn_pcep, request.ids.session);
    vok_bind_record record = ovlin_to_l2tp(entry);
    record.dscpRef = dscp_reference(request.dscp);
    TRACE_API_CALL("vok_bind" OVLIN_TO_L2TP ", srcFlowID=0x%08x, destFlowHandle=%p): tn_ovlin_session_id_session=%u, "
                   "l2tp_session_table_index=%u, tn_pcep_id=%u, dscp=%u",
                   record.srcFlowID, as_pointer(record.destFlowHandle), request.ids.session, request.ids.index(),
                   request.tn_pcep, request.dscp);
    return bind(ZEL_HERE, "vok_bind" OVLIN_TO_L2TP ")", zel_handles->vok_instance, record);
}

static u32 l2tp_session_bind_l2tp_to_ipv4(const session_request &request)
{
    if (const u32 refusal = set_session_type(ZEL_HERE, request.session_type_flag, zel_handles->ovlin_flow_type,
                                             request.tn_pcep, session_type::l2tp))
        return refusal;
    vok_bind_record record = l2tp_to_ipv4(request.ids);
    record.dscpRef = dscp_reference(request.dscp);
    TRACE_API_CALL("vok_bind" L2TP_TO_IPV4 ", srcFlowID=0x%08x, destFlowHandle=%p): "
                   "tn_ovlin_session_id_control_conn=%u, l2tp_session_table_index=%u, dscp=%u",
                   record.srcFlowID, as_pointer(record.destFlowHandle), request.ids.control_conn, request.ids.index(),
                   request.dscp);
    return bind(ZEL_HERE, "vok_bind" L2TP_TO_IPV4 ")", zel_handles->vok_instance, record);
}

// ---- Steps of the removal and of the add's undo; they do not change the table entry

static u32 l2tp_session_unbind_l2tp_from_ipv4(session_ids ids)
{
    const vok_bind_record record = l2tp_to_ipv4(ids);
    TRACE_API_CALL("vok_unbind" L2TP_TO_IPV4 ", srcFlowID=0x%08x, destFlowHandle=%p): "
                   "tn_ovlin_session_id_control_conn=%u, l2tp_session_table_index=%u",
                   record.srcFlowID, as_pointer(record.destFlowHandle), ids.control_conn, ids.index());
    return unbind(ZEL_HERE, "vok_unbind" L2TP_TO_IPV4 ")", zel_handles->vok_instance, record);
}

static u32 l2tp_session_unbind_ovlin_from_l2tp(session_ids ids)
{
    const vok_bind_record record = ovlin_to_l2tp(ids.entry());
    TRACE_API_CALL("vok_unbind" OVLIN_TO_L2TP ", srcFlowID=0x%08x, destFlowHandle=%p): l2tp_session_table_index=%u",
                   record.srcFlowID, as_pointer(record.destFlowHandle), ids.index());
    return unbind(ZEL_HERE, "vok_unbind" OVLIN_TO_L2TP ")", zel_handles->vok_instance, record);
}

static u32 l2tp_session_delete_egress_flow(session_ids ids)
{
    TRACE_API_CALL("l2tp_session_table_index=%d: vok_l2tpv3_egress_flow_delete()", ids.index());
    return timed_call(ZEL_HERE, "vok_l2tpv3_egress_flow_delete", vok_l2tpv3_egress_flow_delete,
                      zel_handles->l2tpv3_flow_type, ids.entry().egress_flow_handle);
}

static u32 l2tp_session_unbind_l2tp_from_ovlin(session_ids ids)
{
    const vok_bind_record record = l2tp_to_ovlin(ids.entry());
    TRACE_API_CALL("vok_unbind" L2TP_TO_OVLIN ", srcFlowHandle=%p, dstFlowID=0x%08x): l2tp_session_table_index=%u",
                   as_pointer(record.srcFlowHandle), record.dstFlowID, ids.index());
    return unbind(ZEL_HERE, "vok_unbind" L2TP_TO_OVLIN ")", zel_handles->vok_instance, record);
}

static u32 l2tp_session_delete_ingress_flow(session_ids ids)
{
    TRACE_API_CALL("l2tp_session_table_index=%d: vok_l2tpv3_ingress_flow_delete()", ids.index());
    return timed_call(ZEL_HERE, "vok_l2tpv3_ingress_flow_delete", vok_l2tpv3_ingress_flow_delete,
                      zel_handles->l2tpv3_flow_type, ids.entry().ingress_flow_handle);
}

// ---- Add

static void undo_add(session_ids ids)
{
    l2tp_session_entry &entry = ids.entry();
    if (entry.egress_flow_handle != 0) {
        if (ids.egress_association() != 0)
            l2tp_session_unbind_l2tp_from_ipv4(ids);
        if (entry.src_flow_id != 0)
            l2tp_session_unbind_ovlin_from_l2tp(ids);
        l2tp_session_delete_egress_flow(ids);
    }
    if (entry.ingress_flow_handle != 0) {
        if (entry.dst_flow_id != 0)
            l2tp_session_unbind_l2tp_from_ovlin(ids);
        l2tp_session_delete_ingress_flow(ids);
    }
    entry = {};
}

u32 zel_core_term_l2tp_session_add(u8 dscp, u8 crc, u32 tn_pcep, u32 rat_ovlin_session_id, u32 l2tp_local_session_id,
                                   u32 tn_ovlin_session_id_control_conn, u32 tn_ovlin_session_id_session,
                                   u8 session_type_flag)
{
    static constexpr step<const session_request &> steps[] = {
        {"l2tp_session_create_ingress_flow", l2tp_session_create_ingress_flow},
        {"l2tp_session_bind_l2tp_to_ovlin", l2tp_session_bind_l2tp_to_ovlin},
        {"l2tp_session_create_egress_flow", l2tp_session_create_egress_flow},
        {"l2tp_session_bind_ovlin_to_l2tp", l2tp_session_bind_ovlin_to_l2tp},
        {"l2tp_session_bind_l2tp_to_ipv4", l2tp_session_bind_l2tp_to_ipv4},
    };

    const traced_function traced(ZEL_HERE, category::l2tp_session);
    ZEL_TRACE(tn_zel_term, LAB, ZEL_HERE, category::l2tp_session, "%s(): ",
              "zel_core_term_l2tp_session_add, dscp =%u, crc=%u, tn_pcep = %u, rat_ovlin_session_id=%u, "
              "l2tp_local_session_id=%u, tn_ovlin_session_id_control_conn=%u, tn_ovlin_session_id_session=%u",
              dscp, crc, tn_pcep, rat_ovlin_session_id, l2tp_local_session_id, tn_ovlin_session_id_control_conn,
              tn_ovlin_session_id_session);
    const u32 max_session_id = ovlin_capabilities.max_rat_ovlin_session_id;
    if (rat_ovlin_session_id > max_session_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "rat_ovlin_session_id out-of-range");
    if (tn_ovlin_session_id_control_conn > max_session_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_ovlin_session_id_control_conn out-of-range");
    if (tn_ovlin_session_id_session > max_session_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_ovlin_session_id_session out-of-range");
    if (tn_pcep > ovlin_capabilities.max_tn_pcep_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_pcep out-of-range");
    const session_ids ids{tn_ovlin_session_id_control_conn, tn_ovlin_session_id_session};
    if (const u32 rejection = check_ids(ZEL_HERE, ids))
        return rejection;

    const u8 flow_type = crc != 0 ? l2tpv3_flow_type::session_with_crc : l2tpv3_flow_type::session;
    const session_request request{
        ids, tn_pcep, dscp, session_type_flag, flow_type, rat_ovlin_session_id, l2tp_local_session_id};
    const u32 result = run_until_failure(ZEL_HERE, steps, request);
    if (result == ZEL_CORE_TERM_SUCCESS)
        ids.entry().dscp = dscp;
    else if (result != ZEL_CORE_TERM_OUT_OF_RANGE) // a 3 ends an add without undo
        undo_add(ids);
    return result;
}

// ---- Removal, and the control connection modify's parts

u32 zel_core_term_l2tp_session_rem(u32 tn_ovlin_session_id_control_conn, u32 tn_ovlin_session_id_session)
{
    static constexpr step<session_ids> steps[] = {
        {"l2tp_session_unbind_l2tp_from_ipv4", l2tp_session_unbind_l2tp_from_ipv4},
        {"l2tp_session_unbind_ovlin_from_l2tp", l2tp_session_unbind_ovlin_from_l2tp},
        {"l2tp_session_delete_egress_flow", l2tp_session_delete_egress_flow},
        {"l2tp_session_unbind_l2tp_from_ovlin", l2tp_session_unbind_l2tp_from_ovlin},
        {"l2tp_session_delete_ingress_flow", l2tp_session_delete_ingress_flow},
    };

    const traced_function traced(ZEL_HERE, category::l2tp_session);
    const session_ids ids{tn_ovlin_session_id_control_conn, tn_ovlin_session_id_session};
    if (check_ids(ZEL_HERE, ids) != ZEL_CORE_TERM_SUCCESS)
        return ZEL_CORE_TERM_SUCCESS;
    run_all(ZEL_HERE, steps, ids);
    ids.entry() = {};
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_l2tp_session_modify_unbind_part(u32 tn_ovlin_session_id_control_conn, u32 tn_ovlin_session_id_session)
{
    const session_ids ids{tn_ovlin_session_id_control_conn, tn_ovlin_session_id_session};
    if (const u32 rejection = check_ids(ZEL_HERE, ids))
        return rejection;
    TRACE_API_CALL("l2tp_session_unbind_l2tp_from_ipv4(tn_ovlin_session_id_control_conn=%u, "
                   "tn_ovlin_session_id_session=%u)",
                   ids.control_conn, ids.session);
    if (const u32 failure = l2tp_session_unbind_l2tp_from_ipv4(ids))
        return report(ZEL_HERE, failure, "l2tp_session_unbind_l2tp_from_ipv4");
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_l2tp_session_modify_bind_part(u32 tn_ovlin_session_id_control_conn, u32 tn_ovlin_session_id_session,
                                      u32 tn_pcep, u8 session_type_flag)
{
    const session_ids ids{tn_ovlin_session_id_control_conn, tn_ovlin_session_id_session};
    if (const u32 rejection = check_ids(ZEL_HERE, ids))
        return rejection;
    TRACE_API_CALL("l2tp_session_bind_l2tp_to_ipv4(tn_ovlin_session_id_control_conn=%u, "
                   "tn_ovlin_session_id_session=%u)",
                   ids.control_conn, ids.session);
    const session_request request{ids, tn_pcep, ids.entry().dscp, session_type_flag};
    if (const u32 failure = l2tp_session_bind_l2tp_to_ipv4(request))
        return report(ZEL_HERE, failure, "l2tp_session_bind_l2tp_to_ipv4");
    return ZEL_CORE_TERM_SUCCESS;
}
