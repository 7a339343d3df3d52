#include "udp/udp_session_records.h"

#include <bit>
#include <cstring>

namespace zel {
namespace {

constexpr u16 ipv4_ingress_rules = 0xFC;
constexpr u16 ipv4_egress_rules = 0x6E;
constexpr u16 ipv6_ingress_rules = 0x672;
constexpr u8 default_hop_limit = 128;

/// An IPv4 address in network byte order as the data plane's host-order word.
u32 host_word(const u8 *address)
{
    u32 word;
    std::memcpy(&word, address, sizeof word);
    return __builtin_bswap32(word);
}

/// Stores eight bytes of an address as two host-order words.
void put_two_host_words(u8 *field, const u8 *address)
{
    u64 words;
    std::memcpy(&words, address, sizeof words);
    words = std::rotl(__builtin_bswap64(words), 32); // keeps the order of the two words
    std::memcpy(field, &words, sizeof words);
}

/// Stores an IPv6 address in a record's field of 16 bytes, whatever its type.
void put_host_words(void *field, const u8 *address)
{
    put_two_host_words(static_cast<u8 *>(field), address);
    put_two_host_words(static_cast<u8 *>(field) + 8, address + 8);
}

} // namespace

vok_ip_ingress_record ipv4_ingress_record(const zel_core_term_udp_session_cfg_t &cfg)
{
    vok_ip_ingress_record record{};
    record.rulesMask = ipv4_ingress_rules;
    record.ipVrdId = cfg.vrf_id;
    record.dstAddr = host_word(cfg.local_addr);
    record.dstPrefixLen = 32;
    record.srcAddr = host_word(cfg.remote_addr);
    record.srcPrefixLen = 32;
    record.prot = protocol_udp;
    record.dstPort = cfg.local_port;
    record.srcPort = cfg.remote_port;
    record.param38 = 1;
    return record;
}

vok_ip_egress_record ipv4_egress_record(const zel_core_term_udp_session_cfg_t &cfg)
{
    vok_ip_egress_record record{};
    record.rulesMask = ipv4_egress_rules;
    record.ipVrdId = cfg.vrf_id;
    record.dstAddr = host_word(cfg.remote_addr);
    record.srcAddr = host_word(cfg.local_addr);
    record.dstPort = cfg.remote_port;
    record.srcPort = cfg.local_port;
    record.ttl = cfg.ttl;
    return record;
}

vok_ipv6_ingress_record ipv6_ingress_record(const zel_core_term_udp_session_cfg_t &cfg)
{
    vok_ipv6_ingress_record record{};
    record.rulesMask = ipv6_ingress_rules;
    record.ipVrdId = cfg.vrf_id;
    record.nextHeader = protocol_udp;
    record.srcPort = cfg.remote_port;
    record.dstPort = cfg.local_port;
    put_host_words(&record.srcAddr, cfg.remote_addr);
    record.srcPrefixLen = 128;
    put_host_words(&record.dstAddr, cfg.local_addr);
    record.dstPrefixLen = 128;
    return record;
}

vok_ipv6_egress_record ipv6_egress_record(const zel_core_term_udp_session_cfg_t &cfg, u8 next_header)
{
    vok_ipv6_egress_record record{};
    record.param00 = 1;
    record.ipVrdId = cfg.vrf_id;
    put_host_words(&record.srcAddr, cfg.local_addr);
    put_host_words(&record.dstAddr, cfg.remote_addr);
    record.hopLimit = cfg.ttl != 0 ? cfg.ttl : default_hop_limit;
    record.nextHeader = next_header;
    record.mtu = static_cast<u16>(cfg.pmtu);
    record.srcPort = cfg.local_port;
    record.dstPort = cfg.remote_port;
    record.param3a = 0x40;
    return record;
}

} // namespace zel
