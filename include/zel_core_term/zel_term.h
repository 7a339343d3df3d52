/**
 * @file
 * Library frame: start and stop, the handle block, the time services, and the message formatting of the traces.
 *
 * The library has no threads and no locks. The caller serialises start, stop and all session operations; the time
 * services and the formatting functions may be called from any thread.
 */
#ifndef ZEL_CORE_TERM_ZEL_TERM_H
#define ZEL_CORE_TERM_ZEL_TERM_H

#include <stdarg.h>
#include <stdint.h>

#include <zel_init.h>

#include "zel_term_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @name Start and stop
 *  @{
 */

/** The handle block while the L2TP module is started, otherwise NULL. Elsewhere use zel_getHandles(). */
ZEL_CORE_TERM_API extern zel_handles_t *zel_handles;

/**
 * Starts the library: attaches to the initialisation component, which fills the handle block, and starts the session
 * modules with empty tables. Makes no data-plane call. Starting again re-attaches and empties the tables; the sessions'
 * data-plane objects are forgotten, not deleted. After a fork(), parent and child have tables for the same objects:
 * only one of them may go on using the library.
 *
 * @retval 0     started
 * @retval other the code of the step that failed; nothing is undone. If zel_init_attach() failed, the modules are
 *               unchanged; if a module failed, the handle block is filled and the modules before it are started
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_start(void);

/**
 * Stops the session modules in reverse order and zeroes the handle block. Makes no data-plane call: objects that
 * sessions still have in the data plane are forgotten, not deleted.
 *
 * @retval 0     stopped; the tables and the handle block are all zero
 * @retval other the code of the module that failed to stop; the modules after it and the handle block are untouched
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_stop(void);

/** @return the static handle block, never NULL; all zero before a start and after a stop */
ZEL_CORE_TERM_API zel_handles_t *zel_getHandles(void);

/** @}
 *  @name Time and tracing
 *  @{
 */

/** @return the processor's tick counter, which times every data-plane call */
ZEL_CORE_TERM_API uint64_t zel_core_term_time_get(void);

/**
 * The tick frequency that the library's delay checks assume: a data-plane call that takes more than 25,600,000 ticks,
 * 0.1 s at this frequency, is reported as delayed. It is a constant, not the frequency of the processor's counter, so
 * it does not convert differences of zel_core_term_time_get() to real seconds.
 *
 * @param freq_hz receives 256,000,000; must be valid
 * @return 0
 */
ZEL_CORE_TERM_API uint32_t zel_core_term_clock_freq_get(uint64_t *freq_hz);

/** Does nothing; a place for a breakpoint or a probe. */
ZEL_CORE_TERM_API void zel_tracepoint(void);

/**
 * Builds a trace message in the calling thread's 1024-byte buffer. The buffers are static thread-local storage, so
 * tracing never allocates; a process that loads the library by dlopen() must have that much of it left.
 *
 * @param prefix_fmt format with one "%s" for `func`, used only if `func` is given; the prefix is cut at 255
 *                   characters
 * @param func       name of the tracing function, or NULL for no prefix
 * @param fmt        printf format of the text after the prefix, or NULL for none; the message is cut to fit the
 *                   buffer with its NUL
 * @return the buffer, valid until the thread's next call; unchanged when both `func` and `fmt` are NULL
 */
ZEL_CORE_TERM_API const char *zel_trace_internal_format_str(const char *prefix_fmt, const char *func, const char *fmt,
                                                            ...) __attribute__((format(printf, 3, 4)));

/** As zel_trace_internal_format_str(), with the arguments of `fmt` as a va_list. */
ZEL_CORE_TERM_API const char *zel_trace_internal_vformat_str(const char *prefix_fmt, const char *func, const char *fmt,
                                                             va_list args) __attribute__((format(printf, 3, 0)));

/** @} */

#ifdef __cplusplus
}
#endif

#endif
