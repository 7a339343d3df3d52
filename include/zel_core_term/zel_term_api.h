/**
 * @file
 * Shared by all headers of the interface: the export macro and the result codes.
 */
#ifndef ZEL_CORE_TERM_ZEL_TERM_API_H
#define ZEL_CORE_TERM_ZEL_TERM_API_H

/** An exported symbol. Any can be interposed: the library's own calls go through the dynamic symbol too. */
#define ZEL_CORE_TERM_API __attribute__((visibility("default")))

/**
 * The library's own result codes. Every operation returns 0, one of these, or the code of a component that it called
 * (the initialisation component, the interconnect component, the session handler, the statistics formatters).
 */
enum {
    ZEL_CORE_TERM_SUCCESS = 0,
    ZEL_CORE_TERM_NULL_OUTPUT = 2,            /**< a required output pointer is NULL */
    ZEL_CORE_TERM_FELL_BACK = 2,              /**< control connection modify: the old remote address is in force */
    ZEL_CORE_TERM_OUT_OF_RANGE = 3,           /**< an identifier or argument is out of range */
    ZEL_CORE_TERM_SESSION_FREE = 4,           /**< the UDP session id is not in use */
    ZEL_CORE_TERM_SESSION_IN_USE = 5,         /**< the id is already in use */
    ZEL_CORE_TERM_UNSUPPORTED_IP_VERSION = 7, /**< neither IPv4 nor IPv6, or the wrong one for the operation */
    ZEL_CORE_TERM_NO_FREE_SESSION = 10,       /**< all UDP session ids are in use */
    ZEL_CORE_TERM_DATA_PLANE_FAILED = 13 /**< a data-plane call failed, a table is full, or the library is stopped */
};

#endif
