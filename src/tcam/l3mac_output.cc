// Writers of the hardware output table and of the backup table. Rows are
// built on the stack and handed over at once.
#include "tcam/l3mac_output.h"

#include <cstring>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "request/l3mac_msg.h"
#include "s_route.pb-c.h"

namespace {

// The entry as the rows carry it, with a copy of its address.
struct l3mac_hw_attr_row {
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    uint8_t mac_bytes[6] = {};

    explicit l3mac_hw_attr_row(const tcam_entry *entry) {
        std::memcpy(mac_bytes, entry->key.mac, sizeof mac_bytes);
        mac.data.len = sizeof mac_bytes;
        mac.data.data = mac_bytes;
        attr.evlan = entry->key.evlan;
        attr.evlan_mask = entry->key.evlan_mask;
        attr.mac_type = entry->key.mac_type;
        attr.mac = &mac;
        attr.phyid = entry->key.phyid;
    }
};

bool l3mac_both_tcams_in_use() {
    return l3mac_ctx.tcam_rm[0] && l3mac_ctx.tcam_rm[1] &&
           !l3mac_ctx.copy_to_tcam2;
}

}  // namespace

uint32_t l3mac_output_phase(const tcam_entry *entry) {
    return entry->key.mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_OL ? 1u : 0u;
}

uint32_t l3mac_output_hw_id(const tcam_entry *entry) {
    if (l3mac_both_tcams_in_use() && l3mac_output_phase(entry) == 0 &&
        l3mac_get_tcam_id(entry->key.mac_type) == MY_STATION_TCAM_2) {
        const int32_t cap = l3mac_ctx.tcam_cap;
        return entry->idx + (cap > 0 ? static_cast<uint32_t>(cap) : 0u);
    }
    return entry->idx;
}

int l3mac_set_output(const tcam_entry *entry, int is_add) {
    SRoute__L3macHwKey key = S_ROUTE__L3MAC_HW_KEY__INIT;
    key.hw_id = l3mac_output_hw_id(entry);
    key.phase = l3mac_output_phase(entry);
    SRoute__L3macHwRes row = S_ROUTE__L3MAC_HW_RES__INIT;
    row.index = &key;
    if (!is_add) return ss_rt_tbl_del_str(l3mac_ctx.tbl_hw_res, &row.base, 0, 0);

    l3mac_hw_attr_row attr(entry);
    row.attr = &attr.attr;
    L3MAC_INFO("mac_type:%d, evlan:%d, evlan_mask:%#x, phyid:%d\n",
               entry->key.mac_type, entry->key.evlan, entry->key.evlan_mask,
               entry->key.phyid);
    return ss_rt_tbl_add_str(l3mac_ctx.tbl_hw_res, &row.base, 0, 0);
}

int l3mac_set_backup(const tcam_entry *entry, int is_add) {
    l3mac_hw_attr_row attr(entry);
    SRoute__L3macBak row = S_ROUTE__L3MAC_BAK__INIT;
    row.index = &attr.attr;
    row.hw_id = 0;
    row.phase = 0;
    if (!is_add) return ss_rt_tbl_del_str(l3mac_ctx.tbl_bak, &row.base, 0, 0);
    row.hw_id = entry->idx;
    return ss_rt_tbl_add_str(l3mac_ctx.tbl_bak, &row.base, 0, 0);
}
