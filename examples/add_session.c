/* Adds a UDP session over IPv4 and removes it again. */
#include <arpa/inet.h>
#include <stdio.h>
#include <zel_core_term/zel_core_term.h>

int main(void)
{
    zel_core_term_udp_session_cfg_t cfg = {.ip_version = 4, .local_port = 2152, .remote_port = 2152, .ttl = 64};
    inet_pton(AF_INET, "192.0.2.1", cfg.local_addr);
    inet_pton(AF_INET, "198.51.100.7", cfg.remote_addr);
    const uint32_t id = 1, uplink_pcep = 1, downlink_pcep = 2, rat_session = 5;

    if (zel_core_term_start() != ZEL_CORE_TERM_SUCCESS)
        return 1;
    uint32_t result = zel_core_term_udp_session_add(id, &cfg, uplink_pcep, downlink_pcep, rat_session, 46, 0);
    printf("add: %u\n", result); /* 0: packets flow between the peer and both ovlin flows, sent with DSCP 46 */
    zel_core_term_udp_session_disconnect(id);
    zel_core_term_udp_session_release(id);
    return zel_core_term_stop() != 0 || result != 0;
}
