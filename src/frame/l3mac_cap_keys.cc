// Reading a capacity profile by the one table of its keys: see
// l3mac_cap_keys.h.
#include "frame/l3mac_cap_keys.h"

#include "frame/l3mac_codes.h"
#include "platform/libkw_cap.h"

l3mac_cap_values l3mac_cap_defaults() {
    l3mac_cap_values v{};
    for (const l3mac_cap_int &c : l3mac_cap_ints) v.*c.field = c.dflt;
    for (const l3mac_cap_flag &c : l3mac_cap_flags) v.*c.field = c.dflt;
    v.*l3mac_cap_compact.field = l3mac_cap_compact.dflt;
    return v;
}

int l3mac_cap_read(kw_global *global, l3mac_cap_values *v) {
    int merged = 0;
    for (const l3mac_cap_int &c : l3mac_cap_ints) {
        int rv = libkw_cap_get_capacity_int32(global, c.path, &(v->*c.field));
        if (rv != SS_E_NONE) v->*c.field = c.dflt;
        merged |= rv;
    }
    for (const l3mac_cap_flag &c : l3mac_cap_flags) {
        int rv = libkw_cap_get_capacity_bool(global, c.path, &(v->*c.field));
        if (rv != SS_E_NONE) v->*c.field = c.dflt;
        merged |= rv;
    }
    const l3mac_cap_flag &c = l3mac_cap_compact;
    if (libkw_cap_get_capacity_bool(global, c.path, &(v->*c.field)) != SS_E_NONE)
        v->*c.field = c.dflt;
    return merged;
}
