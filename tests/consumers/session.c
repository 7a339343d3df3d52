/* Adds a session over IPv4 and shows what the data plane then holds. */
#include <arpa/inet.h>
#include <inttypes.h>
#include <stdio.h>
#include <vok_cp_sim.h>
#include <zel_core_term/zel_core_term.h>

static void show(void *context, const vok_cp_sim_object_t *object)
{
    (void)context;
    printf("object %#" PRIx64 ": kind %d, bindings %" PRIu32 "\n", object->handle, object->kind, object->binding_count);
}

int main(void)
{
    zel_core_term_udp_session_cfg_t cfg = {.ip_version = 4, .local_port = 2152, .remote_port = 2152, .ttl = 64};
    inet_pton(AF_INET, "192.0.2.1", cfg.local_addr);
    inet_pton(AF_INET, "198.51.100.7", cfg.remote_addr);
    printf("start: %" PRIu32 "\n", zel_core_term_start());
    printf("add: %" PRIu32 "\n", zel_core_term_udp_session_add(1, &cfg, 1, 2, 5, 46, 0));
    vok_cp_sim_walk_objects(show, NULL);
}
