/**
 * @file
 * Compile-time checks of records with a fixed layout, for C11 and C++11 and newer.
 */
#ifndef ZEL_CORE_TERM_ZEL_LAYOUT_H
#define ZEL_CORE_TERM_ZEL_LAYOUT_H

#include <assert.h>
#include <stddef.h>

#ifdef __cplusplus
#define ZEL_LAYOUT_WIDTH(record, field) sizeof(record::field)
#else
#define ZEL_LAYOUT_WIDTH(record, field) sizeof(((record *)0)->field)
#endif

/** Fails the build unless `record` has exactly `size` bytes. */
#define ZEL_LAYOUT_SIZE(record, size) static_assert(sizeof(record) == (size), #record " has another size")

/** Fails the build unless `field` of `record` lies at byte `offset` and is `width` bytes wide. */
#define ZEL_LAYOUT_FIELD(record, field, offset, width)                                                                 \
    static_assert(offsetof(record, field) == (offset), #record "." #field " lies at another offset");                  \
    static_assert(ZEL_LAYOUT_WIDTH(record, field) == (width), #record "." #field " has another width")

#endif
