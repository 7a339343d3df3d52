/**
 * @file
 * A data plane that does nothing, for measuring the library by itself: every operation succeeds at once, unless told
 * otherwise, and every create gives a handle of its own. It keeps nothing, allocates nothing and makes no system call.
 *
 * It is a libvok_cp of its own, with the functions below beside those of vok_cp.h.
 */
#ifndef VOK_CP_NULL_H
#define VOK_CP_NULL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The status of a call that was made to fail. */
enum { VOK_CP_NULL_FAILED = 1 };

/**
 * Makes the n-th call from now fail with VOK_CP_NULL_FAILED: one of an operation of the sequences, not of
 * vok_syshandle_get() and vok_sys_status_get(). A create that fails gives no handle. The calls after it succeed again.
 *
 * @param call n, from 1; 0: none fails
 */
void vok_cp_null_fail(uint32_t call);

/**
 * Asks a function for the status of each operation from now on, which may take its time; vok_cp_null_fail() has no
 * effect then.
 *
 * @param answer NULL: none
 */
void vok_cp_null_ask(uint32_t (*answer)(void));

/** How many calls of operations there were, those of vok_syshandle_get() and vok_sys_status_get() not counted. */
uint64_t vok_cp_null_calls(void);

#ifdef __cplusplus
}
#endif

#endif
