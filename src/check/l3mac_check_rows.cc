// The check's inputs: the board, the rows of the four tables as plain
// values, and the report that collects what the rules find.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "check/l3mac_check.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_init.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"
#include "tcam/l3mac_tcam.h"

namespace {

std::string l3mac_check_text(const char *fmt, va_list ap) {
    char buf[512];
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    return buf;
}

uint32_t l3mac_check_limit(int32_t cap, int32_t rsvd) {
    return cap > rsvd ? static_cast<uint32_t>(cap - rsvd) : 0;
}

void l3mac_check_attr(const SRoute__L3macHwAttr *a, l3mac_check_hw *hw) {
    if (!a) return;
    hw->has_attr = true;
    hw->evlan = a->evlan;
    hw->evlan_mask = a->evlan_mask;
    hw->mac_type = a->mac_type;
    hw->phyid = a->phyid;
    const PLibpub__Mac *m = a->mac;
    hw->mac_ok = m && m->data.len == 6 && m->data.data;
    if (hw->mac_ok) std::memcpy(hw->mac.data(), m->data.data, 6);
}

l3mac_check_res l3mac_check_res_of(const SRoute__L3macRes *r) {
    l3mac_check_res out;
    out.has_index = r->index && r->index->uuid;
    if (r->index) out.t_user = r->index->t_user;
    if (out.has_index) out.uuid = r->index->uuid;
    out.status = r->status;
    out.has_attr = r->attr != nullptr;
    if (!r->attr) return out;
    out.evlan = r->attr->evlan;
    out.mac_type = r->attr->mac_type;
    out.phyid = r->attr->phyid;
    const PLibpub__Mac *m = r->attr->mac;
    if (m) out.mac_len = static_cast<int>(m->data.len);
    if (m && m->data.len == 6 && m->data.data) std::memcpy(out.mac.data(), m->data.data, 6);
    return out;
}

// kw_mom_scan_sync hands its callback no argument of ours.
l3mac_check_rows *g_l3mac_check_into;

int l3mac_check_scan_cb(void *, void *rec) {
    l3mac_check_add_row(g_l3mac_check_into, static_cast<kw_mom_scan_rec *>(rec)->row);
    return 0;
}

void l3mac_check_scan(const ProtobufCMessage *tpl) {
    kw_mom_scan_sync(l3mac_ctx.global, 16, tpl, 0, l3mac_check_scan_cb, 0);
}

}  // namespace

void l3mac_check_report::violation(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    violations.push_back(l3mac_check_text(fmt, ap));
    va_end(ap);
}

void l3mac_check_report::note(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    notes.push_back(l3mac_check_text(fmt, ap));
    va_end(ap);
}

l3mac_check_board l3mac_check_board_live() {
    l3mac_check_board b = l3mac_check_board_planned();
    for (int t = 0; t < 2; t++) {
        const sw_res_rm *rm = l3mac_ctx.tcam_rm[t];
        b.pool[t] = rm != nullptr;
        b.limit[t] = rm ? rm->limit : 0;
    }
    return b;
}

// Pools as bring-up makes them: the first for is_mng, the second for
// is_mng2 on a board with a second TCAM, and none after a pool that the
// index manager refused (a negative size).
l3mac_check_board l3mac_check_board_planned() {
    const l3mac_ctx_t &c = l3mac_ctx;
    l3mac_check_board b;
    b.is_mng = {c.is_mng != 0, c.is_mng2 != 0};
    b.cap = {c.tcam_cap, c.tcam2_cap};
    b.tcam2_en = c.tcam2_en != 0;
    b.copy_to_tcam2 = c.copy_to_tcam2 != 0;
    b.vfi_mask = c.vfi_mask;
    b.compact_cover = c.compact_cover != 0;
    const bool rsvd_ok = c.rsvd_size >= 0;
    b.pool[0] = b.is_mng[0] && rsvd_ok && c.tcam_cap >= 0;
    b.pool[1] = b.is_mng[1] && b.tcam2_en && rsvd_ok && c.tcam2_cap >= 0 &&
                (!b.is_mng[0] || b.pool[0]);
    for (int t = 0; t < 2; t++)
        b.limit[t] = b.pool[t] ? l3mac_check_limit(b.cap[t], c.rsvd_size) : 0;
    return b;
}

l3mac_check_board l3mac_check_board_of_profile(bool defaults) {
    // Without a profile loaded every key reads as missing: its default.
    if (defaults) l3mac_get_cap();
    else l3mac_cap_init();
    const int32_t evlan_num = l3mac_ctx.evlan_num;
    l3mac_set_vfi_mask(evlan_num > 4096 ? evlan_num - 4096 : 0);
    return l3mac_check_board_planned();
}

bool l3mac_check_add_row(l3mac_check_rows *rows, const ProtobufCMessage *row) {
    const ProtobufCMessageDescriptor *d = row ? row->descriptor : nullptr;
    l3mac_check_hw hw;
    if (d == &s_route__l3mac_res__descriptor) {
        rows->res.push_back(l3mac_check_res_of(reinterpret_cast<const SRoute__L3macRes *>(row)));
    } else if (d == &s_route__l3mac_hw_res__descriptor) {
        const auto *r = reinterpret_cast<const SRoute__L3macHwRes *>(row);
        if (r->index) {
            hw.hw_id = r->index->hw_id;
            hw.phase = r->index->phase;
        }
        l3mac_check_attr(r->attr, &hw);
        rows->hw_res.push_back(hw);
    } else if (d == &s_route__l3mac_bak__descriptor) {
        const auto *r = reinterpret_cast<const SRoute__L3macBak *>(row);
        hw.hw_id = r->hw_id;
        hw.phase = r->phase;
        l3mac_check_attr(r->index, &hw);
        rows->bak.push_back(hw);
    } else if (d == &s_route__l3mac_vrrp_hw_res__descriptor) {
        l3mac_check_attr(reinterpret_cast<const SRoute__L3macVrrpHwRes *>(row)->index, &hw);
        rows->vrrp.push_back(hw);
    } else {
        return false;
    }
    return true;
}

void l3mac_check_read_tables(l3mac_check_rows *rows) {
    g_l3mac_check_into = rows;
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    SRoute__L3macRes res = S_ROUTE__L3MAC_RES__INIT;
    res.index = &key;
    l3mac_check_scan(&res.base);
    SRoute__L3macHwKey hw_key = S_ROUTE__L3MAC_HW_KEY__INIT;
    SRoute__L3macHwRes hw = S_ROUTE__L3MAC_HW_RES__INIT;
    hw.index = &hw_key;
    l3mac_check_scan(&hw.base);
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    SRoute__L3macBak bak = S_ROUTE__L3MAC_BAK__INIT;
    bak.index = &attr;
    l3mac_check_scan(&bak.base);
    SRoute__L3macVrrpHwRes vrrp = S_ROUTE__L3MAC_VRRP_HW_RES__INIT;
    vrrp.index = &attr;
    l3mac_check_scan(&vrrp.base);
    g_l3mac_check_into = nullptr;
}
