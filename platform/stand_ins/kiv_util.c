#include "kiv_util.h"

const char *kiv_util_init_rc_str_get(uint32_t result_code)
{
    switch (result_code) {
    case 0: return "success";
    case 2: return "output pointer is NULL, or fell back to the old configuration";
    case 3: return "identifier or argument out of range";
    case 4: return "session is free";
    case 5: return "session id already in use";
    case 7: return "unsupported IP version";
    case 10: return "no free session id";
    case 13: return "data-plane call failed";
    case 20: return "bad formatter argument";
    case 21: return "text cut";
    default: return "unknown result code";
    }
}
