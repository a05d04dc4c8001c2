// Debug commands that inject and withdraw requests past the table service,
// so that the managed path can be driven with no user present. The input
// table never learns of these users.
#include <cstdio>
#include <cstring>

#include "diag/l3mac_at.h"
#include "diag/l3mac_at_util.h"
#include "diag/l3mac_log.h"
#include "request/l3mac_msg.h"
#include "request/l3mac_user.h"

int l3mac_at_add_user_entry(int32_t user, const char *uuid, int32_t status,
                            int32_t is_match_evlan, uint32_t evlan,
                            int32_t mac_type, const uint8_t *mac) {
    l3mac_msg msg;
    std::memset(&msg, 0, sizeof msg);
    msg.mng_info.user = (uint8_t)user;
    msg.mng_info.status = (uint8_t)status;
    l3mac_at_copy_uuid(msg.uuid, uuid);
    msg.attr.is_match_evlan = is_match_evlan != 0;
    msg.attr.evlan = evlan;
    msg.attr.mac_type = (uint8_t)mac_type;
    if (mac != nullptr) std::memcpy(msg.attr.mac, mac, sizeof msg.attr.mac);
    // phyid stays 0. Neither the status test nor the path test of the table
    // handler applies: an injected request always takes the managed path.
    if (sw_l3mac_user_param_check(&msg, 1) != SS_E_NONE) {
        L3MAC_WARN("rv == SS_E_NONE", 0, 0);
        return SS_E_NONE;
    }
    return sw_l3mac_add_user_entry(&msg);
}

int l3mac_at_del_user_entry(int32_t user, const char *uuid) {
    l3mac_msg msg;
    std::memset(&msg, 0, sizeof msg);
    msg.mng_info.user = (uint8_t)user;
    l3mac_at_copy_uuid(msg.uuid, uuid);
    return sw_l3mac_del_user_entry(&msg);
}

int l3mac_at_add_mul_user_entry(int32_t user, int32_t uuid_base, int32_t count,
                                int32_t status, int32_t is_match_evlan,
                                uint32_t evlan_base, int32_t mac_type,
                                const uint8_t *mac) {
    std::printf("\nuser add begin\n");
    int rv = SS_E_NONE;
    int32_t i = 0;
    for (; i < count; i++) {
        char uuid[128];
        std::snprintf(uuid, sizeof uuid, "%d", (int)l3mac_at_uuid_num(uuid_base, i));
        rv = l3mac_at_add_user_entry(user, uuid, status, is_match_evlan,
                                     evlan_base + (uint32_t)i, mac_type, mac);
        if (rv != SS_E_NONE) break;
    }
    // The last uuid that went through: one before the stop, or the last.
    std::printf("\nuser add end at uuid : %d\n", (int)l3mac_at_uuid_num(uuid_base, i - 1));
    return rv;
}

int l3mac_at_del_mul_user_entry(int32_t user, int32_t uuid_base, int32_t count) {
    std::printf("\nuser del begin\n");
    int rv = SS_E_NONE;
    int32_t i = 0;
    for (; i < count; i++) {
        char uuid[128];
        std::snprintf(uuid, sizeof uuid, "%d", (int)l3mac_at_uuid_num(uuid_base, i));
        rv = l3mac_at_del_user_entry(user, uuid);
        if (rv != SS_E_NONE) break;
    }
    std::printf("\nuser del end at uuid : %d\n", (int)l3mac_at_uuid_num(uuid_base, i - 1));
    return rv;
}
