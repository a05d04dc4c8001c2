// Capability service: the board's capability profile, read by path
// ("s_route/l3mac/capacity/tcam-cap").
#pragma once

#include <cstdint>

#include "kw_runtime.h"

// 0 means that values can be read.
int libkw_cap_init(kw_global *global, const char *name);

// Store one value and return 0, or return a code and leave *value alone.
int libkw_cap_get_capacity_int32(kw_global *global, const char *path,
                                 int32_t *value);
// Writes exactly one byte.
int libkw_cap_get_capacity_bool(kw_global *global, const char *path,
                                uint8_t *value);
