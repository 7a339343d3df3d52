#include "zel_core_term/zel_udp_session.h"

#include "term/binding.h"
#include "term/session_type.h"
#include "term/steps.h"
#include "term/timed_call.h"
#include "term/zel_trace.h"
#include "udp/udp_session_records.h"
#include "udp/udp_session_table.h"

#define ZEL_MODULE "zel_udp_session"

using namespace zel;

static constinit udp_session_entries udp_session_table{};
static ovlin_capabilities_t udp_ovlin_capabilities;
static const zel_handles_t *udp_handles; ///< null while the module is stopped

// ---- Module start and stop

u32 zel_udp_session_start()
{
    const traced_function traced(ZEL_HERE, category::udp_session);
    udp_handles = zel_getHandles();
    udp_session_table.free_all();
    if (const u32 result = zel_core_ic_ovlin_capabilities_get(&udp_ovlin_capabilities))
        return report(ZEL_HERE, result, "zel_core_ic_ovlin_capabilities_get");
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_udp_session_stop()
{
    const traced_function traced(ZEL_HERE, category::udp_session);
    udp_session_table.free_all();
    udp_handles = nullptr;
    return ZEL_CORE_TERM_SUCCESS;
}

// ---- Queries

/// 0 when the id is valid and in use; otherwise reports the rejection at `site` and returns its code.
static u32 check_in_use(trace_site site, u32 udp_session_id)
{
    if (!udp_session_entries::is_valid(udp_session_id))
        return report(site, ZEL_CORE_TERM_OUT_OF_RANGE, "(udp_session_id)");
    if (!udp_session_table[udp_session_id].in_use())
        return report(site, ZEL_CORE_TERM_SESSION_FREE, "(udp_session_id)");
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_core_term_udp_session_capabilities_get(zel_core_term_udp_session_capabilities_t *capabilities)
{
    if (capabilities == nullptr)
        return report(ZEL_HERE, ZEL_CORE_TERM_NULL_OUTPUT, "capabilities == NULL");
    *capabilities = {udp_session_entries::last_id, 41'000, 61'000};
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_core_term_udp_session_free_id_get(u32 *udp_session_id)
{
    const u32 id = udp_session_table.lowest_free();
    if (!udp_session_entries::is_valid(id))
        return report(ZEL_HERE, ZEL_CORE_TERM_NO_FREE_SESSION, "");
    *udp_session_id = id;
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_core_term_udp_session_cfg_get(u32 udp_session_id, zel_core_term_udp_session_cfg_t *cfg)
{
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;
    *cfg = udp_session_table[udp_session_id].cfg;
    return ZEL_CORE_TERM_SUCCESS;
}

// ---- Associations

static u32 create_ingress_udp_association_ipv4(udp_session_entry &entry)
{
    const vok_ip_ingress_record record = ipv4_ingress_record(entry.cfg);
    return timed_call(ZEL_HERE, "vok_ip_ingress_association_create", vok_ip_ingress_association_create,
                      udp_handles->ipv4_association_type, address_of(record), &entry.ingress_flow_handle);
}

static u32 create_egress_udp_association_ipv4(udp_session_entry &entry)
{
    const vok_ip_egress_record record = ipv4_egress_record(entry.cfg);
    return timed_call(ZEL_HERE, "vok_ip_egress_association_create", vok_ip_egress_association_create,
                      udp_handles->ipv4_association_type, address_of(record), &entry.egress_flow_handle);
}

static u32 create_ingress_udp_association_ipv6(udp_session_entry &entry)
{
    const vok_ipv6_ingress_record record = ipv6_ingress_record(entry.cfg);
    return timed_call(ZEL_HERE, "vok_ipv6_ingress_association_create", vok_ipv6_ingress_association_create,
                      udp_handles->ipv6_association_type, address_of(record), &entry.ingress_flow_handle);
}

static u32 create_egress_udp_association_ipv6(udp_session_entry &entry)
{
    const vok_ipv6_egress_record record = ipv6_egress_record(entry.cfg, protocol_udp);
    return timed_call(ZEL_HERE, "vok_ipv6_egress_association_create", vok_ipv6_egress_association_create,
                      udp_handles->ipv6_association_type, address_of(record), &entry.egress_flow_handle);
}

namespace {

/// What differs between a session over IPv4 and one over IPv6.
struct ip_family {
    struct delete_operation {
        const char *name;
        decltype(&vok_ip_ingress_association_delete) operation;
    };

    u64 zel_handles_t::*association_type;
    step<udp_session_entry &> create_ingress;
    step<udp_session_entry &> create_egress;
    delete_operation delete_ingress;
    delete_operation delete_egress;
};

} // namespace

static constexpr ip_family ipv4 = {
    &zel_handles_t::ipv4_association_type,
    {"create_ingress_udp_association_ipv4", create_ingress_udp_association_ipv4},
    {"create_egress_udp_association_ipv4", create_egress_udp_association_ipv4},
    {"vok_ip_ingress_association_delete", vok_ip_ingress_association_delete},
    {"vok_ip_egress_association_delete", vok_ip_egress_association_delete},
};

static constexpr ip_family ipv6 = {
    &zel_handles_t::ipv6_association_type,
    {"create_ingress_udp_association_ipv6", create_ingress_udp_association_ipv6},
    {"create_egress_udp_association_ipv6", create_egress_udp_association_ipv6},
    {"vok_ipv6_ingress_association_delete", vok_ipv6_ingress_association_delete},
    {"vok_ipv6_egress_association_delete", vok_ipv6_egress_association_delete},
};

static bool is_supported(u8 ip_version)
{
    return ip_version == 4 || ip_version == 6;
}

static const ip_family &family_of(const udp_session_entry &entry)
{
    return entry.cfg.ip_version == 4 ? ipv4 : ipv6;
}

static u64 association_type_of(const udp_session_entry &entry)
{
    return udp_handles->*family_of(entry).association_type;
}

/// Deletes one of a session's associations; a failure is only reported, at `site`.
static void delete_association(trace_site site, const ip_family &family, const ip_family::delete_operation &deletion,
                               u64 handle)
{
    timed_call(site, deletion.name, deletion.operation, udp_handles->*family.association_type, handle);
}

// ---- Bindings

#define UPLINK_BINDING "(ID2F, EGRESS, ovlin->ipv4/ipv6)"
#define DOWNLINK_BINDING "(F2ID, EGRESS, ipv4/ipv6->ovlin)"

static vok_bind_record uplink_binding(const udp_session_entry &entry, u32 flow_id)
{
    return binding(bind_kind::id2f, bind_direction::egress, session_type::udp,
                   ovlin_end(udp_handles->ovlin_flow_type, flow_id),
                   flow_end(association_type_of(entry), entry.egress_flow_handle));
}

static vok_bind_record downlink_binding(const udp_session_entry &entry, u32 flow_id)
{
    return binding(bind_kind::f2id, bind_direction::egress, session_type::udp,
                   flow_end(association_type_of(entry), entry.ingress_flow_handle),
                   ovlin_end(udp_handles->ovlin_flow_type, flow_id));
}

static u32 udp_session_connect_ul(u32 udp_session_id, u32 tn_ul_pcep_id, u8 dscp, u8 session_type_flag)
{
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;
    if (const u32 refusal = set_session_type(ZEL_HERE, session_type_flag, udp_handles->ovlin_flow_type, tn_ul_pcep_id,
                                             session_type::udp))
        return refusal;

    udp_session_entry &entry = udp_session_table[udp_session_id];
    const u32 flow_id = ovlin_flow_id(tn_ul_pcep_id, udp_session_id);
    vok_bind_record record = uplink_binding(entry, flow_id);
    record.dscpRef = dscp_reference(dscp);
    const u32 result = bind(ZEL_HERE, "vok_bind" UPLINK_BINDING, udp_handles->vok_instance, record);
    if (result == ZEL_CORE_TERM_SUCCESS)
        entry.ul_flow_id = flow_id;
    return result;
}

static u32 udp_session_connect_dl(u32 udp_session_id, u32 tn_dl_pcep_id, u32 rat_ovlin_session_id)
{
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;

    udp_session_entry &entry = udp_session_table[udp_session_id];
    const u32 flow_id = ovlin_flow_id(tn_dl_pcep_id, rat_ovlin_session_id);
    const vok_bind_record record = downlink_binding(entry, flow_id);
    const u32 result = bind(ZEL_HERE, "vok_bind" DOWNLINK_BINDING, udp_handles->vok_instance, record);
    if (result == ZEL_CORE_TERM_SUCCESS)
        entry.dl_flow_id = flow_id;
    return result;
}

/// As check_in_use(), and checks that the side of the session with `flow_id` was bound.
static u32 check_bound(trace_site site, u32 udp_session_id, u32 udp_session_entry::*flow_id)
{
    if (const u32 rejection = check_in_use(site, udp_session_id))
        return rejection;
    if (udp_session_table[udp_session_id].*flow_id == 0)
        return report(site, ZEL_CORE_TERM_SESSION_FREE, "(udp_session_id)");
    return ZEL_CORE_TERM_SUCCESS;
}

// The flow IDs stay in the entry after an unbind: only freeing the entry resets them.

static u32 udp_session_disconnect_ul(u32 udp_session_id)
{
    if (const u32 rejection = check_bound(ZEL_HERE, udp_session_id, &udp_session_entry::ul_flow_id))
        return rejection;
    const udp_session_entry &entry = udp_session_table[udp_session_id];
    const vok_bind_record record = uplink_binding(entry, entry.ul_flow_id);
    return unbind(ZEL_HERE, "vok_unbind" UPLINK_BINDING, udp_handles->vok_instance, record);
}

static u32 udp_session_disconnect_dl(u32 udp_session_id)
{
    if (const u32 rejection = check_bound(ZEL_HERE, udp_session_id, &udp_session_entry::dl_flow_id))
        return rejection;
    const udp_session_entry &entry = udp_session_table[udp_session_id];
    const vok_bind_record record = downlink_binding(entry, entry.dl_flow_id);
    return unbind(ZEL_HERE, "vok_unbind" DOWNLINK_BINDING, udp_handles->vok_instance, record);
}

// ---- Add

namespace zel {

/// Declared with a bool flag for callers. Here it is the byte that they pass: any bit set means true, even if a caller
/// passes something other than 0 and 1.
ZEL_CORE_TERM_API u32 zel_core_term_udp_session_add(u32 udp_session_id, const zel_core_term_udp_session_cfg_t *cfg,
                                                    u32 tn_ul_pcep_id, u32 tn_dl_pcep_id, u32 rat_ovlin_session_id,
                                                    u8 dscp,
                                                    u8 session_type_flag) __asm__("zel_core_term_udp_session_add");

} // namespace zel

static_assert(std::is_same_v<decltype(::zel_core_term_udp_session_add),
                             u32(u32, const zel_core_term_udp_session_cfg_t *, u32, u32, u32, u8, bool)>);

u32 zel::zel_core_term_udp_session_add(u32 udp_session_id, const zel_core_term_udp_session_cfg_t *cfg,
                                       u32 tn_ul_pcep_id, u32 tn_dl_pcep_id, u32 rat_ovlin_session_id, u8 dscp,
                                       u8 session_type_flag)
{
    if (!udp_session_entries::is_valid(udp_session_id))
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "(udp_session_id)");
    udp_session_entry &entry = udp_session_table[udp_session_id];
    if (entry.in_use())
        return report(ZEL_HERE, ZEL_CORE_TERM_SESSION_IN_USE, "(udp_session_id)");
    if (rat_ovlin_session_id > udp_ovlin_capabilities.max_rat_ovlin_session_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "rat_ovlin_session_id out-of-range");
    if (tn_ul_pcep_id > udp_ovlin_capabilities.max_tn_pcep_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_ul_pcep_id out-of-range");
    if (tn_dl_pcep_id > udp_ovlin_capabilities.max_tn_pcep_id)
        return report(ZEL_HERE, ZEL_CORE_TERM_OUT_OF_RANGE, "tn_dl_pcep_id out-of-range");
    if (!is_supported(cfg->ip_version))
        return report(ZEL_HERE, ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION, "Unsupported IP Version");
    if (udp_handles == nullptr)
        return report(ZEL_HERE, ZEL_CORE_TERM_DATA_PLANE_FAILED, "not started");

    udp_session_table.take(udp_session_id, *cfg);
    const ip_family &family = family_of(entry);

    const char *step = family.create_ingress.name; // no list of steps: it makes the add a sixth slower
    u32 result = family.create_ingress.run(entry);
    if (result == ZEL_CORE_TERM_SUCCESS) {
        step = family.create_egress.name;
        result = family.create_egress.run(entry);
    }
    if (result == ZEL_CORE_TERM_SUCCESS) {
        step = "udp_session_connect_ul";
        result = udp_session_connect_ul(udp_session_id, tn_ul_pcep_id, dscp, session_type_flag);
    }
    if (result == ZEL_CORE_TERM_SUCCESS) {
        step = "udp_session_connect_dl";
        result = udp_session_connect_dl(udp_session_id, tn_dl_pcep_id, rat_ovlin_session_id);
    }
    if (result == ZEL_CORE_TERM_SUCCESS)
        return ZEL_CORE_TERM_SUCCESS;

    report(ZEL_HERE, result, step);
    if (result == ZEL_CORE_TERM_OUT_OF_RANGE || result == ZEL_CORE_TERM_SESSION_IN_USE)
        return result; // 3 and 5 can only come from the session-type hook here: no undo

    if (entry.dl_flow_id != 0)
        if (const u32 failure = udp_session_disconnect_dl(udp_session_id))
            report(ZEL_HERE, failure, "udp_session_disconnect_dl");
    if (entry.ul_flow_id != 0)
        if (const u32 failure = udp_session_disconnect_ul(udp_session_id))
            report(ZEL_HERE, failure, "udp_session_disconnect_ul");
    if (entry.ingress_flow_handle != 0)
        delete_association(ZEL_HERE, family, family.delete_ingress, entry.ingress_flow_handle);
    if (entry.egress_flow_handle != 0)
        delete_association(ZEL_HERE, family, family.delete_egress, entry.egress_flow_handle);
    udp_session_table.free(udp_session_id);
    return result;
}

// ---- Modify

static u32 modify_egress_udp_association_ipv6(u32 udp_session_id, const zel_core_term_udp_session_cfg_t *cfg)
{
    const vok_ipv6_egress_record record = ipv6_egress_record(*cfg, 0);
    return timed_call(ZEL_HERE, "vok_ipv6_egress_association_attr_modify", vok_ipv6_egress_association_attr_modify,
                      udp_handles->ipv6_association_type, address_of(record),
                      udp_session_table[udp_session_id].egress_flow_handle);
}

/// Changes one attribute of a session; the value is stored once the data plane has accepted it. Everything is reported
/// at `site`.
template <typename Value>
static u32 modify(trace_site site, u32 udp_session_id, Value zel_core_term_udp_session_cfg_t::*attribute, Value value)
{
    if (const u32 rejection = check_in_use(site, udp_session_id))
        return rejection;
    zel_core_term_udp_session_cfg_t &cfg = udp_session_table[udp_session_id].cfg;
    if (cfg.ip_version != 6)
        return report(site, ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION, "Unsupported IP Version");

    zel_core_term_udp_session_cfg_t changed = cfg;
    changed.*attribute = value;
    if (const u32 failure = modify_egress_udp_association_ipv6(udp_session_id, &changed))
        return report(site, failure, "modify_egress_udp_association_ipv6");
    cfg.*attribute = value;
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_core_term_udp_session_modify_pmtu(u32 udp_session_id, u32 pmtu)
{
    return modify(ZEL_HERE, udp_session_id, &zel_core_term_udp_session_cfg_t::pmtu, pmtu);
}

u32 zel_core_term_udp_session_modify_ttl(u32 udp_session_id, u8 ttl)
{
    return modify(ZEL_HERE, udp_session_id, &zel_core_term_udp_session_cfg_t::ttl, ttl);
}

// ---- Disconnect and release

u32 zel_core_term_udp_session_disconnect(u32 udp_session_id)
{
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;
    if (const u32 failure = udp_session_disconnect_dl(udp_session_id))
        report(ZEL_HERE, failure, "udp_session_disconnect_dl");
    if (const u32 failure = udp_session_disconnect_ul(udp_session_id))
        report(ZEL_HERE, failure, "udp_session_disconnect_ul");
    return ZEL_CORE_TERM_SUCCESS;
}

u32 zel_core_term_udp_session_release(u32 udp_session_id)
{
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;
    const udp_session_entry &entry = udp_session_table[udp_session_id];
    if (!is_supported(entry.cfg.ip_version))
        return report(ZEL_HERE, ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION, "Unsupported IP Version");

    const ip_family &family = family_of(entry);
    if (entry.ingress_flow_handle != 0)
        delete_association(ZEL_HERE, family, family.delete_ingress, entry.ingress_flow_handle);
    else
        ZEL_TRACE(tn_zel_term, EXCEPTION, ZEL_HERE, category::udp_session,
                  "%s(): ", "ingress ip flow doesn't exist, udp_session_id=%d", udp_session_id);
    if (entry.egress_flow_handle != 0)
        delete_association(ZEL_HERE, family, family.delete_egress, entry.egress_flow_handle);
    else
        ZEL_TRACE(tn_zel_term, EXCEPTION, ZEL_HERE, category::udp_session,
                  "%s(): ", "egress ip flow doesn't exist, udp_session_id=%d", udp_session_id);
    udp_session_table.free(udp_session_id);
    return ZEL_CORE_TERM_SUCCESS;
}

// ---- Statistics

u32 zel_udp_session_get_stats(u32 udp_session_id, zel_udp_session_ipv4_stats_t *stats)
{
    *stats = {};
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;
    const udp_session_entry &entry = udp_session_table[udp_session_id];
    if (const u32 failure =
            timed_call(ZEL_HERE, "vok_ip_ingress_association_stats_get", vok_ip_ingress_association_stats_get,
                       udp_handles->ipv4_association_type, entry.ingress_flow_handle, address_of(stats->ingress)))
        return failure;
    return timed_call(ZEL_HERE, "vok_ip_egress_association_stats_get", vok_ip_egress_association_stats_get,
                      udp_handles->ipv4_association_type, entry.egress_flow_handle, address_of(stats->egress));
}

u32 zel_ipv6_udp_session_get_stats(u32 udp_session_id, zel_udp_session_ipv6_stats_t *stats)
{
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;
    const udp_session_entry &entry = udp_session_table[udp_session_id];
    if (const u32 failure = timed_call(ZEL_HERE, "vok_ipv6_ingress_association_statistics_get",
                                       vok_ipv6_ingress_association_statistics_get, udp_handles->ipv6_association_type,
                                       entry.ingress_flow_handle, address_of(stats->ingress)))
        return failure;
    return timed_call(ZEL_HERE, "vok_ipv6_egress_association_statistics_get",
                      vok_ipv6_egress_association_statistics_get, udp_handles->ipv6_association_type,
                      entry.egress_flow_handle, address_of(stats->egress));
}

u32 zel_core_term_udp_session_fmt_stats_get(u32 udp_session_id, char *buf, u32 buf_size, u8 fmt_option)
{
    buf[0] = '\0';
    if (const u32 rejection = check_in_use(ZEL_HERE, udp_session_id))
        return rejection;

    const u8 ip_version = udp_session_table[udp_session_id].cfg.ip_version;
    if (ip_version == 4) {
        zel_udp_session_ipv4_stats_t stats{};
        if (const u32 failure = zel_udp_session_get_stats(udp_session_id, &stats))
            return report(ZEL_HERE, failure, "zel_udp_session_get_stats");
        zel_fmt_ipv4_ingress_assoc_stats(buf, buf_size, fmt_option, &stats.ingress);
        zel_fmt_ipv4_egress_assoc_stats(buf, buf_size, fmt_option, &stats.egress);
    } else if (ip_version == 6) {
        zel_udp_session_ipv6_stats_t stats{};
        if (const u32 failure = zel_ipv6_udp_session_get_stats(udp_session_id, &stats))
            return report(ZEL_HERE, failure, "zel_ipv6_udp_session_get_stats");
        zel_fmt_ipv6_ingress_assoc_stats(buf, buf_size, fmt_option, &stats.ingress);
        zel_fmt_ipv6_egress_assoc_stats(buf, buf_size, fmt_option, &stats.egress);
    }
    if (const u32 failure = zel_fmt_end(buf, buf_size))
        return report(ZEL_HERE, failure, "zel_fmt_end");
    return ZEL_CORE_TERM_SUCCESS;
}
