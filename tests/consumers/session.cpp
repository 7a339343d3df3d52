// Adds a session over IPv6 and shows what the data plane then holds.
#include <arpa/inet.h>
#include <vok_cp_sim.h>
#include <zel_core_term/zel_core_term.h>

#include <iostream>

int main()
{
    zel_core_term_udp_session_cfg_t cfg{.ip_version = 6, .local_port = 2152, .remote_port = 2152, .ttl = 64};
    inet_pton(AF_INET6, "2001:db8::1", cfg.local_addr);
    inet_pton(AF_INET6, "2001:db8:7::7", cfg.remote_addr);
    std::cout << "start: " << zel_core_term_start() << '\n';
    std::cout << "add: " << zel_core_term_udp_session_add(1, &cfg, 1, 2, 5, 46, false) << '\n';
    vok_cp_sim_walk_objects(
        [](void *, const vok_cp_sim_object_t *object) {
            std::cout << "object 0x" << std::hex << object->handle << std::dec << ": kind " << object->kind
                      << ", bindings " << object->binding_count << '\n';
        },
        nullptr);
}
