// The check's inputs: the rows of the four tables as plain values, and the
// report that collects what the rules find.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "check/l3mac_check.h"
#include "frame/l3mac_ctx.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"

namespace {

std::string l3mac_check_text(const char *fmt, va_list ap) {
    char buf[512];
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    return buf;
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
