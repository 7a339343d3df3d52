// The parts that can be tried by themselves: message formatting, the set of ids, the stand-in data plane's refusals.
#include <climits>
#include <cstring>
#include <memory>
#include <random>
#include <thread>

#include "l2tp/ip_associations.h"
#include "library_test.h"
#include "udp/id_set.h"

namespace {

TEST(message, prefix_and_body_share_a_buffer)
{
    EXPECT_STREQ(zel_trace_internal_format_str("%s(): ", "f", "%s, %s", "A", "B"), "f(): A, B");
    EXPECT_STREQ(zel_trace_internal_format_str("%s()", "f", nullptr), "f()");
    EXPECT_STREQ(zel_trace_internal_format_str("%s(): ", nullptr, "%d", 7), "7");
    EXPECT_STREQ(zel_trace_internal_format_str(nullptr, nullptr, "%d", 8), "8");
    EXPECT_STREQ(zel_trace_internal_format_str(nullptr, nullptr, nullptr), "8"); // unchanged
    const auto *const no_text = reinterpret_cast<const char *>(L"\x110000"); // which is no character of any encoding
    EXPECT_STREQ(zel_trace_internal_format_str("%ls", no_text, "%d", 9), "9");
    EXPECT_STREQ(zel_trace_internal_format_str(nullptr, "f", "%d", 10), "10"); // no output error ends a program
    for (const std::size_t length : {253u, 254u, 255u, 300u}) {
        const std::string name(length, 'n'), cut = (name + "()").substr(0, 255), body(2000, 'b');
        EXPECT_EQ(zel_trace_internal_format_str("%s()", name.c_str(), nullptr), cut);
        EXPECT_EQ(zel_trace_internal_format_str("%s()", name.c_str(), "%s", body.c_str()),
                  cut + body.substr(0, 1023 - cut.size()));
    }
}

TEST(message, is_as_printf_has_it)
{
    const auto expect = [](const char *format, auto... values) {
        char expected[1024];
        std::snprintf(expected, sizeof expected, format, values...);
        EXPECT_STREQ(zel_trace_internal_format_str(nullptr, nullptr, format, values...), expected) << format;
    };
    for (const int number : {0, 7, -1, INT_MAX, INT_MIN}) {
        for (const char *const format :
             {"%d", "%u|", "%x", "%08x", "%%", "%5d|", "%-4x|", "%02x", "%08d", "%0 8x", "%c"})
            expect(format, number);
        expect("%ld %08lx", static_cast<long>(number), static_cast<long>(number));
    }
    for (const char *const text : {"", "text", static_cast<const char *>(nullptr)})
        expect("<%s>", text);
    for (const unsigned number : {0U, 0x9abcdefU, 0x12345678U, UINT_MAX})
        expect("%08x: %u, %x, %d", number, number, number, number);
    for (const std::uintptr_t handle : {std::uintptr_t{0}, std::uintptr_t{1}, UINTPTR_MAX})
        expect("handle=%p, %s, %s", reinterpret_cast<void *>(handle), "", "text");
    for (const std::size_t length : {1005u, 1012u, 1013u, 1014u, 1015u, 1021u, 1022u, 1023u})
        for (const char *const format : {"%s", "%s%d", "%s%08x", "%s-literal"})
            expect(format, std::string(length, 'b').c_str(), 1'000'000'000);
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

template <zel::u32 capacity> void expect_the_lowest_missing_as_a_search_finds_it()
{
    SCOPED_TRACE(capacity);
    const auto set = std::make_unique<zel::id_set<capacity>>();
    auto &ids = *set;
    std::set<zel::u32> missing;
    for (zel::u32 n = 0; n <= capacity; ++n)
        missing.insert(n); // `capacity` itself is always missing

    int times_full = 0;
    std::mt19937 random(1);
    for (int i = 0; i < 60'000; ++i) {
        // mostly the lowest missing, so that the set fills up and empties around full words; else the first of 1, 64 or
        // 4096 as often
        const auto scale = 6 * (random() % 3);
        const auto n =
            random() % 3 != 0 ? *missing.begin() : static_cast<zel::u32>(random() % capacity >> scale << scale);
        if (n < capacity && random() % 8 != 0) {
            ids.insert(n);
            missing.erase(n);
        } else if (n < capacity) {
            ids.erase(n);
            missing.insert(n);
        }
        ASSERT_EQ(ids.lowest_missing(), *missing.begin());
        if (n == capacity || i == 55'000) { // full, and with holes
            ids.take_all([&](zel::u32 first, zel::u32 count) {
                EXPECT_TRUE(missing.contains(first + count)); // no neighbour is left for another run
                for (zel::u32 taken = first; taken < first + count; ++taken)
                    EXPECT_TRUE(missing.insert(taken).second);
            });
            ASSERT_EQ(missing.size(), capacity + 1);
            times_full += n == capacity;
        }
    }
    EXPECT_GT(times_full, 0);
}

TEST(id_set, finds_the_lowest_missing_as_a_search_does)
{
    expect_the_lowest_missing_as_a_search_finds_it<64 * 2>();
    expect_the_lowest_missing_as_a_search_finds_it<64 * 64>();
    expect_the_lowest_missing_as_a_search_finds_it<64 * 64 * 2 + 70>();
}

/// Handles are equal where a restarted data plane gives some again.
TEST(ip_associations, gives_the_first_match_as_a_search_from_the_front_does)
{
    zel::ip_associations table{};
    std::mt19937 random(1);
    const auto below = [&](std::int32_t limit) {
        return static_cast<zel::u32>(random() % static_cast<zel::u32>(limit));
    };
    const auto first = [&](const auto &is_wanted) {
        const zel::ip_association *const begin = &table[0], *const end = begin + table.count();
        const auto *const found = std::find_if(begin, end, is_wanted);
        return found != end ? found : nullptr;
    };
    for (int i = 0; i < 200'000; ++i) {
        const bool is_filling = i / 300 % 2 == 0, has_equal_handles = i / 600 % 2 == 0;
        if (i % 600 == 0)
            table.clear();
        const zel::association_key key{below(9), below(2), below(4)};
        const zel::u64 handle = has_equal_handles ? below(60) : random();
        const auto *const by_key = first([&](const auto &a) { return a.key == key; });
        ASSERT_EQ(table.find(key), by_key);
        ASSERT_EQ(table.find(handle), first([&](const auto &a) { return a.association_handle == handle; }));
        if (is_filling && by_key == nullptr) {
            const bool has_room = table.count() < zel::ip_associations::capacity;
            ASSERT_EQ(table.add(key, handle), has_room);
        } else if (!is_filling && table.count() != 0) {
            const zel::association_key last = table[table.count() - 1].key;
            zel::ip_association &released = *table.find(table[static_cast<std::int32_t>(below(table.count()))].key);
            ASSERT_TRUE(table.release(released));
            ASSERT_TRUE(released.key == last); // also when that was the last
        }
    }
}

/// The stand-in data plane refuses what the real one must not be given.
class stand_in : public library_test {
protected:
    static constexpr uint64_t ipv4 = VOK_CP_SIM_IPV4_ASSOCIATION_TYPE, ipv6 = VOK_CP_SIM_IPV6_ASSOCIATION_TYPE;
    static constexpr uint64_t instance = VOK_CP_SIM_INSTANCE;

    template <typename Record> static Record record_of(const data_plane::object &o)
    {
        Record record;
        std::memcpy(&record, o.record.data(), sizeof record);
        return record;
    }
};

TEST_F(stand_in, refuses_with_a_status_that_says_why)
{
    ASSERT_EQ(request::udp(1, 4)(), 0u);
    const auto [objects, bindings] = data_plane::now();
    auto ingress = record_of<vok_ip_ingress_record>(objects[0]), half_prefix = ingress, with_more = ingress;
    half_prefix.dstPrefixLen = 16;
    with_more.reserved_3c[67] = 1;
    const vok_bind_record bound = bindings.back().record;
    vok_bind_record from_flow = bound, with_dscp = bound;
    from_flow.destFlowHandle = objects[0].handle;
    const uint8_t dscp = 64;
    with_dscp.dscpRef = reinterpret_cast<uint64_t>(&dscp);
    uint64_t system = 0, other = 0;
    ASSERT_EQ(vok_syshandle_get(0, 1, &system), 0u);
    const std::pair<const char *, uint32_t> rows[] = {
        {"wrong type handle", vok_ip_ingress_association_create(ipv6, &ingress, &other)},
        {"null argument", vok_ip_ingress_association_create(ipv4, nullptr, &other)},
        {"null argument", vok_ip_ingress_association_create(ipv4, &ingress, nullptr)},
        {"malformed record: a prefix length is not full",
         vok_ip_ingress_association_create(ipv4, &half_prefix, &other)},
        {"malformed record: a byte that must be zero is not",
         vok_ip_ingress_association_create(ipv4, &with_more, &other)},
        {"wrong instance handle", vok_bind(ipv4, &bound)},
        {"unknown handle", vok_bind(instance, &from_flow)},
        {"the binding exists already", vok_bind(instance, &bound)},
        {"malformed record: a constant field has another value", vok_unbind(instance, &with_dscp)},
        {"ok", vok_unbind(instance, &bound)},
        {"a DSCP has at most 6 bits", vok_bind(instance, &with_dscp)},
        {"malformed record: a constant field has another value", vok_syshandle_get(1, 1, &other)},
    };
    for (const auto &[text, status] : rows)
        EXPECT_STREQ(vok_sys_status_get(system, status), text);
    EXPECT_STREQ(vok_sys_status_get(system + 1, 0), "wrong system handle");
}

} // namespace
