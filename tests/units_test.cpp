// The parts that can be tried by themselves: message formatting, the set of ids, the stand-in data plane's refusals.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <thread>

#include "udp/id_set.h"
#include "vok_cp.h"
#include "vok_cp_sim.h"
#include "zel_core_term/zel_term.h"

namespace {

TEST(message, shapes)
{
    EXPECT_STREQ(zel_trace_internal_format_str("%s(): ", "f", "%s, %s", "A", "B"), "f(): A, B");
    EXPECT_STREQ(zel_trace_internal_format_str("%s()", "f", nullptr), "f()");
    EXPECT_STREQ(zel_trace_internal_format_str("%s(): ", nullptr, "%d", 7), "7");
    EXPECT_STREQ(zel_trace_internal_format_str(nullptr, nullptr, nullptr), "7"); // unchanged
}

TEST(message, bounds)
{
    const std::string long_name(300, 'n'), long_body(2000, 'b');
    for (const std::size_t length : {253u, 254u, 255u, 300u}) {
        const std::string name(length, 'n');
        EXPECT_EQ(zel_trace_internal_format_str("%s()", name.c_str(), "body"), (name + "()").substr(0, 255) + "body");
    }
    EXPECT_EQ(zel_trace_internal_format_str("%s", "f", "%s", long_body.c_str()), "f" + std::string(1022, 'b'));
    EXPECT_EQ(zel_trace_internal_format_str("%s", long_name.c_str(), "%s", long_body.c_str()),
              std::string(255, 'n') + std::string(768, 'b'));
}

TEST(message, each_thread_has_a_buffer_of_its_own)
{
    const char *const mine = zel_trace_internal_format_str("%s", "mine", nullptr);
    std::thread([mine] {
        const char *const other = zel_trace_internal_format_str("%s", nullptr, nullptr);
        EXPECT_STREQ(other, ""); // zero at thread start
        EXPECT_STREQ(zel_trace_internal_format_str("%s", "other", nullptr), "other");
        EXPECT_NE(other, mine);
    }).join();
    EXPECT_STREQ(mine, "mine");
}

TEST(id_set, finds_the_lowest_missing_as_a_search_does)
{
    constexpr zel::u32 capacity = 64 * 64 * 2 + 70; // the last word and the last summary are partly used
    static zel::id_set<capacity> ids;
    std::set<zel::u32> missing;
    for (zel::u32 n = 0; n <= capacity; ++n)
        missing.insert(n); // `capacity` itself is always missing

    int times_full = 0;
    std::mt19937 random(1);
    for (int i = 0; i < 60'000; ++i) {
        // mostly the lowest missing, so that the set fills up and empties around full words
        const zel::u32 n = random() % 3 != 0 ? *missing.begin() : static_cast<zel::u32>(random() % capacity);
        if (n < capacity && random() % 8 != 0) {
            ids.insert(n);
            missing.erase(n);
        } else if (n < capacity) {
            ids.erase(n);
            missing.insert(n);
        }
        if (n == capacity || i == 55'000) { // full, and with holes
            ids.take_all([&](zel::u32 first, zel::u32 count) {
                EXPECT_TRUE(missing.contains(first + count)); // no neighbour is left for another run
                for (zel::u32 taken = first; taken < first + count; ++taken)
                    EXPECT_TRUE(missing.insert(taken).second);
            });
            EXPECT_EQ(missing.size(), capacity + 1);
            times_full += n == capacity;
        }
        ASSERT_EQ(ids.lowest_missing(), *missing.begin());
    }
    EXPECT_GT(times_full, 0);
}

// ---- The stand-in data plane refuses what the real one must not be given.

class stand_in : public testing::Test {
protected:
    stand_in()
    {
        vok_cp_sim_reset();
        ingress.dstPrefixLen = ingress.srcPrefixLen = 32;
        ingress.param38 = 1;
        ingress6.srcPrefixLen = ingress6.dstPrefixLen = 128;
        egress6.param00 = 1;
        egress6.nextHeader = 17;
        egress6.param3a = 0x40;
        ingress_flow.flowType = egress_flow.flowType = VOK_L2TPV3_SESSION;
        EXPECT_EQ(vok_l2tpv3_ingress_interface_add(l2tp, &interface, &ingress_flow.ingressInterfaceHandle), 0u);
        EXPECT_EQ(vok_ip_ingress_association_create(ipv4, &ingress, &ingress_handle), 0u);
        EXPECT_EQ(vok_ip_egress_association_create(ipv4, &egress, &egress_handle), 0u);
        bind.bindKind = VOK_BIND_ID2F;
        bind.direction = VOK_EGRESS;
        bind.param08 = bind.param54 = 1;
        bind.srcTypeHandle = VOK_CP_SIM_OVLIN_FLOW_TYPE;
        bind.srcFlowID = 5;
        bind.dstTypeHandle = ipv4;
        bind.destFlowHandle = egress_handle;
        bind.srcSessionType = bind.dstSessionType = VOK_SESSION_TYPE_UDP;
    }
    ~stand_in() override { vok_cp_sim_reset(); }

    /// Tries the operation with each byte of a good record changed; every byte that `free_bytes` does not list must be
    /// refused.
    template <typename Record, typename Operation>
    void expect_only_free_bytes(const Record &good, const std::set<std::size_t> &free_bytes, Operation operation)
    {
        for (std::size_t i = 0; i < sizeof good; ++i) {
            Record changed = good;
            reinterpret_cast<uint8_t *>(&changed)[i] ^= 0xFF;
            EXPECT_EQ(operation(changed) == 0, free_bytes.contains(i)) << "byte " << i;
        }
    }

    static std::set<std::size_t> bytes(std::initializer_list<std::pair<std::size_t, std::size_t>> offset_and_width)
    {
        std::set<std::size_t> all;
        for (const auto &[offset, width] : offset_and_width)
            for (std::size_t i = 0; i < width; ++i)
                all.insert(offset + i);
        return all;
    }

    static constexpr uint64_t ipv4 = VOK_CP_SIM_IPV4_ASSOCIATION_TYPE, ipv6 = VOK_CP_SIM_IPV6_ASSOCIATION_TYPE;
    static constexpr uint64_t l2tp = VOK_CP_SIM_L2TPV3_FLOW_TYPE;
    vok_ip_ingress_record ingress{};
    vok_ip_egress_record egress{};
    vok_ipv6_ingress_record ingress6{};
    vok_ipv6_egress_record egress6{};
    vok_l2tpv3_ingress_interface_record interface {
    };
    vok_l2tpv3_ingress_flow_record ingress_flow{};
    vok_l2tpv3_egress_flow_record egress_flow{};
    vok_bind_record bind{};
    uint64_t ingress_handle = 0, egress_handle = 0, other = 0;
};

TEST_F(stand_in, records_must_be_well_formed)
{
    expect_only_free_bytes(ingress, bytes({{0, 2}, {0x10, 4}, {0x20, 4}, {0x28, 4}, {0x30, 1}, {0x32, 4}}),
                           [&](auto &r) { return vok_ip_ingress_association_create(ipv4, &r, &other); });
    expect_only_free_bytes(egress, bytes({{0, 2}, {0x10, 13}, {0x1e, 4}, {0x30, 4}, {0x35, 1}}),
                           [&](auto &r) { return vok_ip_egress_association_create(ipv4, &r, &other); });
    expect_only_free_bytes(ingress6, bytes({{0, 2}, {0x10, 4}, {0x24, 1}, {0x26, 4}, {0x30, 16}, {0x44, 16}}),
                           [&](auto &r) { return vok_ipv6_ingress_association_create(ipv6, &r, &other); });
    expect_only_free_bytes(egress6, bytes({{0x09, 37}, {0x34, 6}}),
                           [&](auto &r) { return vok_ipv6_egress_association_create(ipv6, &r, &other); });
    expect_only_free_bytes(interface, {}, [&](auto &r) { return vok_l2tpv3_ingress_interface_add(l2tp, &r, &other); });
    expect_only_free_bytes(ingress_flow, bytes({{0x10, 4}}),
                           [&](auto &r) { return vok_l2tpv3_ingress_flow_create(l2tp, &r, &other); });
    expect_only_free_bytes(egress_flow, {}, [&](auto &r) { return vok_l2tpv3_egress_flow_create(l2tp, &r, &other); });
    expect_only_free_bytes(bind, bytes({{0x20, 4}}),
                           [&](auto &r) { return r.dscpRef != 0 ? 1 : vok_bind(VOK_CP_SIM_INSTANCE, &r); });
}

TEST_F(stand_in, refuses_with_a_status_that_says_why)
{
    vok_ip_ingress_record half_prefix = ingress;
    half_prefix.dstPrefixLen = 16;
    vok_bind_record from_flow = bind;
    from_flow.destFlowHandle = ingress_handle;
    vok_bind_record unknown_session_type = bind;
    unknown_session_type.srcSessionType = unknown_session_type.dstSessionType = 9;
    const uint8_t dscp = 1;
    vok_bind_record unbind_with_dscp = bind;
    unbind_with_dscp.dscpRef = reinterpret_cast<uint64_t>(&dscp);
    uint64_t system = 0;
    ASSERT_EQ(vok_syshandle_get(0, 1, &system), 0u);

    const struct {
        const char *text;
        uint32_t status;
    } rows[] = {
        {"wrong type handle", vok_ip_ingress_association_create(ipv6, &ingress, &other)},
        {"wrong type handle", vok_ip_ingress_association_delete(ipv6, ingress_handle)},
        {"null argument", vok_ip_ingress_association_create(ipv4, nullptr, &other)},
        {"null argument", vok_ip_ingress_association_create(ipv4, &ingress, nullptr)},
        {"malformed record: a prefix length is not full",
         vok_ip_ingress_association_create(ipv4, &half_prefix, &other)},
        {"unknown handle", vok_ip_egress_association_delete(ipv4, ingress_handle)},
        {"unknown handle", vok_ip_ingress_association_delete(ipv4, 1)},
        {"unknown handle", vok_ipv6_egress_association_attr_modify(ipv6, &egress6, egress_handle)},
        {"wrong instance handle", vok_bind(ipv4, &bind)},
        {"unknown handle", vok_bind(VOK_CP_SIM_INSTANCE, &from_flow)},
        {"malformed record: a constant field has another value", vok_bind(VOK_CP_SIM_INSTANCE, &unknown_session_type)},
        {"no such binding", vok_unbind(VOK_CP_SIM_INSTANCE, &bind)},
        {"ok", vok_bind(VOK_CP_SIM_INSTANCE, &bind)},
        {"the binding exists already", vok_bind(VOK_CP_SIM_INSTANCE, &bind)},
        {"a binding still uses the object", vok_ip_egress_association_delete(ipv4, egress_handle)},
        {"malformed record: a constant field has another value", vok_unbind(VOK_CP_SIM_INSTANCE, &unbind_with_dscp)},
        {"ok", vok_unbind(VOK_CP_SIM_INSTANCE, &bind)},
        {"ok", vok_ip_egress_association_delete(ipv4, egress_handle)},
        {"unknown handle", vok_ip_egress_association_delete(ipv4, egress_handle)},
        {"malformed record: a constant field has another value", vok_syshandle_get(1, 1, &other)},
    };
    for (const auto &row : rows)
        EXPECT_STREQ(vok_sys_status_get(system, row.status), row.text) << &row - rows;
    EXPECT_STREQ(vok_sys_status_get(system + 1, 0), "wrong system handle");
}

} // namespace
