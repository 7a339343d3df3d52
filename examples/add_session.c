/* A control program in C: starts the library, adds a UDP session over IPv4, and takes everything down again. */
#include <arpa/inet.h>
#include <stdio.h>
#include <zel_core_term/zel_core_term.h>

static int done(const char *what, uint32_t result)
{
    printf("%s: %u\n", what, result);
    return result == ZEL_CORE_TERM_SUCCESS;
}

int main(void)
{
    /* Addresses in network byte order, everything else in the machine's. */
    zel_core_term_udp_session_cfg_t cfg = {.ip_version = 4, .local_port = 2152, .remote_port = 2152, .ttl = 64};
    inet_pton(AF_INET, "192.0.2.1", cfg.local_addr);
    inet_pton(AF_INET, "198.51.100.7", cfg.remote_addr);

    const uint32_t uplink_pcep = 1, downlink_pcep = 2, rat_session = 5;
    const uint8_t dscp = 46, set_session_type = 0;
    uint32_t id = 0;

    return done("start", zel_core_term_start()) && done("free id", zel_core_term_udp_session_free_id_get(&id)) &&
                   done("add", zel_core_term_udp_session_add(id, &cfg, uplink_pcep, downlink_pcep, rat_session, dscp,
                                                             set_session_type)) &&
                   done("disconnect", zel_core_term_udp_session_disconnect(id)) &&
                   done("release", zel_core_term_udp_session_release(id)) && done("stop", zel_core_term_stop())
               ? 0
               : 1;
}
