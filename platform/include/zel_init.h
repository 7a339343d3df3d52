/**
 * @file
 * The initialisation component, as far as the termination component uses it.
 */
#ifndef ZEL_INIT_H
#define ZEL_INIT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The handle block: 22 opaque data-plane handles in the order in which zel_init_attach() writes them.
 * The reserved slots are filled too, but the termination component does not read them.
 */
typedef struct zel_handles_t {
    uint64_t vok_instance;          /**< first argument of vok_bind() and vok_unbind() */
    uint64_t reserved_01[9];        /**< slots 1 to 9 */
    uint64_t ipv4_association_type; /**< type handle of IPv4 associations */
    uint64_t ipv6_association_type; /**< type handle of IPv6 associations */
    uint64_t reserved_12[2];        /**< slots 12 and 13 */
    uint64_t l2tpv3_flow_type;      /**< type handle of L2TPv3 flows */
    uint64_t reserved_15[2];        /**< slots 15 and 16 */
    uint64_t ovlin_flow_type;       /**< type handle of the ovlin side of a binding */
    uint64_t reserved_18[4];        /**< slots 18 to 21 */
} zel_handles_t;

/**
 * Attaches the caller to the initialisation component and fills its handle block.
 *
 * @param block the block to fill; all 22 slots are written on success
 * @return 0, or a result code of the family; then the block is unchanged
 */
uint32_t zel_init_attach(zel_handles_t *block);

#ifdef __cplusplus
}
#endif

#endif
