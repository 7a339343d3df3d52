#pragma once
#include <stdint.h>

#ifdef __cplusplus
extern "C"
#endif
    const char *kiv_util_init_rc_str_get(uint32_t);
