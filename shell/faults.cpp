#include "faults.h"

#include <algorithm>

#include "kiv_util.h"
#include "vok_cp.h"

faults::answer faults::on_call(std::string_view function)
{
    answer together;
    for (fault &f : all_) {
        if (f.call != function)
            continue;
        ++f.seen;
        if (f.every ? f.seen < f.nth : f.seen != f.nth)
            continue;
        ++f.acted;
        together.ticks = std::max(together.ticks, f.ticks);
        if (together.status == 0) {
            together.status = f.status;
            together.after_effect = f.after_effect;
        }
    }
    return together;
}

const std::vector<std::string> &functions_that_can_fail()
{
    static const std::vector<std::string> names = {
        "vok_bind",
        "vok_ip_egress_association_create",
        "vok_ip_egress_association_delete",
        "vok_ip_egress_association_stats_get",
        "vok_ip_ingress_association_create",
        "vok_ip_ingress_association_delete",
        "vok_ip_ingress_association_stats_get",
        "vok_ipv6_egress_association_attr_modify",
        "vok_ipv6_egress_association_create",
        "vok_ipv6_egress_association_delete",
        "vok_ipv6_egress_association_statistics_get",
        "vok_ipv6_ingress_association_create",
        "vok_ipv6_ingress_association_delete",
        "vok_ipv6_ingress_association_statistics_get",
        "vok_l2tpv3_egress_flow_create",
        "vok_l2tpv3_egress_flow_delete",
        "vok_l2tpv3_ingress_flow_create",
        "vok_l2tpv3_ingress_flow_delete",
        "vok_l2tpv3_ingress_interface_add",
        "vok_unbind",
        session_type_hook,
    };
    return names;
}

std::string answer_text(std::string_view function, std::uint32_t answer)
{
    if (function == session_type_hook)
        return kiv_util_init_rc_str_get(answer);
    std::uint64_t system_handle = 0;
    vok_syshandle_get(0, 1, &system_handle);
    return vok_sys_status_get(system_handle, answer);
}
