// Rows that the direct path writes: the hardware record of a mac_hw in
// s_route.l3mac_vrrp_hw_res, and the STATUS_FAILED row by which a VRRP user
// of a full managed TCAM learns of it. Rows are built on the stack.
#include <cstring>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "s_route.pb-c.h"
#include "vrrp/l3mac_vrrp.h"

int sw_l3mac_set_vrrp_hw(const mac_hw *hw, int is_add) {
    L3MAC_INFO("mac_type:%d, evlan:%d, evlan_mask:%#x, mac:%m\n", hw->mac_type, hw->evlan,
               hw->evlan_mask, hw->mac);
    uint8_t mac_bytes[6];
    std::memcpy(mac_bytes, hw->mac, sizeof mac_bytes);
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    mac.data.len = sizeof mac_bytes;
    mac.data.data = mac_bytes;
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    attr.evlan = hw->evlan;
    attr.evlan_mask = hw->evlan_mask;
    attr.mac_type = hw->mac_type;
    attr.mac = &mac;
    attr.phyid = 0;  // the direct path keeps phyid with the user
    SRoute__L3macVrrpHwRes row = S_ROUTE__L3MAC_VRRP_HW_RES__INIT;
    row.index = &attr;
    // The delete sends the whole record, as the add does.
    if (is_add) return ss_rt_tbl_add_str(l3mac_ctx.tbl_vrrp_hw_res, &row.base, 0, 0);
    return ss_rt_tbl_del_str(l3mac_ctx.tbl_vrrp_hw_res, &row.base, 0, 0);
}

// Replaces the user's own row of the input table under its key. When it
// comes back through the subscription its status keeps it out.
int sw_l3mac_set_vrrp_fail(const user_entry *entry) {
    L3MAC_INFO("tcam change failed : user:%d, uuid:%s, evlan:%d, mac_type:%d, mac:%m\n",
               entry->user, entry->uuid, entry->evlan, entry->mac_type, entry->mac);
    char uuid[sizeof entry->uuid];
    std::memcpy(uuid, entry->uuid, sizeof uuid);
    uint8_t mac_bytes[6];
    std::memcpy(mac_bytes, entry->mac, sizeof mac_bytes);
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    mac.data.len = sizeof mac_bytes;
    mac.data.data = mac_bytes;
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    key.t_user = entry->user;
    key.uuid = uuid;
    SRoute__L3macAttr attr = S_ROUTE__L3MAC_ATTR__INIT;
    attr.is_match_evlan = entry->is_match_evlan;
    attr.evlan = entry->evlan;
    attr.mac_type = static_cast<SRoute__L3macTypeE>(entry->mac_type);
    attr.mac = &mac;
    attr.phyid = 0;
    SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
    row.index = &key;
    row.status = S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED;
    row.attr = &attr;
    return ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &row.base, 0, 0);
}
