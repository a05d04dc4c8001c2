// Debug commands that show or set the service's state as a whole: log
// level, profile, the meaning of a value/mask pair, a MAC's bitmap, the
// store dumps, the record count and the two decision limits.
#include <cstdio>

#include "decision/l3mac_mac.h"
#include "diag/l3mac_at.h"
#include "diag/l3mac_at_util.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_init.h"
#include "frame/l3mac_main.h"
#include "store/l3mac_db.h"

namespace {

inline constexpr uint32_t L3MAC_VLAN_SPACE_MASK = 0xFFF;
inline constexpr uint32_t L3MAC_VLAN_LAST = 4094;   // 0 and 4095 are no VLANs
inline constexpr uint32_t L3MAC_VFI_LAST = 16382;   // 0 and 16383 are no VFIs

bool pair_in_space(uint32_t evlan, uint32_t evlan_mask, bool is_vfi) {
    if (is_vfi) return evlan < l3mac_ctx.vfi_mask && evlan_mask < l3mac_ctx.vfi_mask;
    return evlan <= L3MAC_VLAN_LAST && evlan_mask <= L3MAC_VLAN_LAST;
}

// One member: "%4d" and a comma, or a newline after every tenth.
void print_member(uint32_t v, int n) {
    std::printf("%4d", (int)v);
    std::putchar(n % 10 == 0 ? '\n' : ',');
}

}  // namespace

int l3mac_at_debug(int32_t level, int32_t log_cnt) {
    l3mac_debug_set(level, log_cnt);
    return 0;
}

int l3mac_at_show_cap() {
    l3mac_cap_dump();
    return 0;
}

int l3mac_at_dump_evlan_mbr(uint32_t evlan, uint32_t evlan_mask, int32_t is_vfi) {
    const bool vfi = is_vfi > 0;
    if (!pair_in_space(evlan, evlan_mask, vfi)) {
        std::printf("param error,vid=%u, vid_mask=%u\n", evlan, evlan_mask);
        return L3MAC_E_PARAM;
    }
    const uint32_t space = vfi ? l3mac_ctx.vfi_mask : L3MAC_VLAN_SPACE_MASK;
    evlan &= space;
    evlan_mask &= space;
    std::printf("vlan=%u, vlan_mask=%u,vlan_member:\r\n", evlan, evlan_mask);
    int n = 0;
    for (uint32_t v = 1, last = vfi ? L3MAC_VFI_LAST : L3MAC_VLAN_LAST; v <= last; v++)
        if (((v ^ evlan) & evlan_mask) == 0) print_member(v, ++n);
    std::printf("\r\nvlan_count=%d\r\n", n);
    return 0;
}

int l3mac_at_dump_mac_vlanbmp(int32_t type, const uint8_t *mac, uint32_t phyid) {
    const mac_entry *m = l3mac_at_find_mac(type, mac, phyid);
    if (m == nullptr) return l3mac_at_not_found();
    const uint32_t last = m->evlan_bmp.is_vfi ? L3MAC_VFI_LAST : L3MAC_VLAN_LAST;
    int n = 0;
    for (uint32_t v = 1; v <= last; v++) {
        if (!l3mac_bmp_test(&m->evlan_bmp, v)) continue;
        std::printf("evlan = %d \n\n", (int)v);
        n++;
    }
    std::printf("**vlan count=%d\n\n", n);
    return 0;
}

int l3mac_at_show_user_db(int32_t count, int32_t is_form) {
    std::printf("count:%d is_form:%d\n", count, is_form);
    return user_db_dump(l3mac_ctx.user_db, count, is_form);
}

int l3mac_at_show_mac_db(int32_t count, int32_t is_form) {
    std::printf("count:%d is_form:%d\n", count, is_form);
    return mac_db_dump(l3mac_ctx.mac_db, count, is_form);
}

int l3mac_at_dump_tcam_db(int32_t count, int32_t is_form) {
    std::printf("count:%d is_form:%d\n", count, is_form);
    return tcam_db_dump(l3mac_ctx.tcam_db, count, is_form);
}

int l3mac_at_show_vrrp_db(int32_t count, int32_t is_form) {
    std::printf("count:%d is_form:%d\n", count, is_form);
    return vrrp_db_dump(l3mac_ctx.vrrp_db, count, is_form);
}

int l3mac_at_check_memory() {
    std::printf("malloc db = %d\n", (int)l3mac_ctx.malloc_db);
    return 0;
}

int l3mac_at_set_drv_decision_max_counter(int32_t count) {
    l3mac_ctx.drv_decision_max_counter = (uint32_t)count;
    return l3mac_at_get_drv_decision_max_counter();
}

int l3mac_at_get_drv_decision_max_counter() {
    std::printf("\ndrv_decision_max_counter : %d\n", (int)l3mac_ctx.drv_decision_max_counter);
    return 0;
}

int l3mac_at_set_commom_decision_max_counter(int32_t count) {
    l3mac_commom_decision_counter = (uint32_t)count;
    return l3mac_at_get_commom_decision_max_counter();
}

int l3mac_at_get_commom_decision_max_counter() {
    std::printf("\nl3mac_commom_decision_counter : %d\n", (int)l3mac_commom_decision_counter);
    return 0;
}
