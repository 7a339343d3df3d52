/*
 * Included before every source: fortifies it where it can be and the caller has not settled it. Fortified functions
 * need an optimiser, and hide overflows from the address sanitizer.
 */
#if defined(__OPTIMIZE__) && !defined(_FORTIFY_SOURCE) && !defined(__SANITIZE_ADDRESS__)
#if defined(__has_feature)
#if !__has_feature(address_sanitizer)
#define _FORTIFY_SOURCE 2
#endif
#else
#define _FORTIFY_SOURCE 2
#endif
#endif
