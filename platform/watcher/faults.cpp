#include "faults.h"

#include <algorithm>

#include "watcher.h"

vok_cp_sim_answer_t faults::on_call(std::string_view function)
{
    vok_cp_sim_answer_t together{};
    for (fault &f : all_) {
        if (!f.call.empty() && f.call != function)
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
