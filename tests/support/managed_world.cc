// The managed-path fixture and its helpers: see managed_world.h.
#include "support/managed_world.h"

#include <algorithm>
#include <cstdlib>
#include <ostream>

#include "diag/l3mac_release.h"
#include "frame/l3mac_ds.h"
#include "platform/host/hnx_host.h"
#include "platform/ss_rt_tbl.h"
#include "request/l3mac_msg.h"
#include "store/l3mac_db.h"
#include "store/l3mac_store.h"

namespace {

hw_entry from_attr(const SRoute__L3macHwAttr *a, uint32_t hw_id, uint32_t phase) {
    hw_entry e{.hw_id = hw_id, .phase = phase, .has_attr = a != nullptr};
    if (!a) return e;
    e.evlan = a->evlan, e.evlan_mask = a->evlan_mask, e.mac_type = a->mac_type, e.phyid = a->phyid;
    if (a->mac && a->mac->data.len == 6) std::memcpy(e.mac.data(), a->mac->data.data, 6);
    return e;
}

hw_entry unpack_hw(const std::vector<uint8_t> &row) {
    SRoute__L3macHwRes *r = s_route__l3mac_hw_res__unpack(nullptr, row.size(), row.data());
    if (!r) return hw_entry{};
    hw_entry e = from_attr(r->attr, r->index ? r->index->hw_id : 0, r->index ? r->index->phase : 0);
    s_route__l3mac_hw_res__free_unpacked(r, nullptr);
    return e;
}

hw_entry unpack_bak(const std::vector<uint8_t> &row) {
    SRoute__L3macBak *r = s_route__l3mac_bak__unpack(nullptr, row.size(), row.data());
    if (!r) return hw_entry{};
    hw_entry e = from_attr(r->index, r->hw_id, r->phase);
    s_route__l3mac_bak__free_unpacked(r, nullptr);
    return e;
}

hw_entry unpack_vrrp(const std::vector<uint8_t> &row) {
    SRoute__L3macVrrpHwRes *r = s_route__l3mac_vrrp_hw_res__unpack(nullptr, row.size(), row.data());
    if (!r) return hw_entry{};
    hw_entry e = from_attr(r->index, 0, 0);
    s_route__l3mac_vrrp_hw_res__free_unpacked(r, nullptr);
    return e;
}

// Each table's short name and how its rows read as entries.
struct tbl_kind {
    const char *table, *name;
    hw_entry (*unpack)(const std::vector<uint8_t> &);
};
const tbl_kind kKinds[] = {{"s_route.l3mac_hw_res", "hw_res", unpack_hw},
                           {"s_route.l3mac_bak", "bak", unpack_bak},
                           {"s_route.l3mac_vrrp_hw_res", "vrrp", unpack_vrrp}};

std::vector<hw_entry> rows_of(const char *table, hw_entry (*unpack)(const std::vector<uint8_t> &)) {
    std::vector<hw_entry> out;
    for (const auto &row : hnx_host_tbl_rows(table)) out.push_back(unpack(row));
    std::sort(out.begin(), out.end());
    return out;
}

int64_t g_clock_us;

int managed_fake_clock(kw_timeval *tv) {
    tv->tv_sec = static_cast<int32_t>(g_clock_us / 1000000);
    tv->tv_usec = static_cast<int32_t>(g_clock_us % 1000000);
    return 0;
}

void quiet_start() {
    l3mac_commom_decision_counter = 0;
    l3mac_ctx.drv_decision_max_counter = 0;
    hnx_host_tbl_journal_clear();
}

}  // namespace

std::vector<hw_entry> managed_hw_rows() { return rows_of("s_route.l3mac_hw_res", unpack_hw); }
std::vector<hw_entry> managed_bak_rows() { return rows_of("s_route.l3mac_bak", unpack_bak); }

std::vector<tbl_op> managed_journal(const std::string &table) {
    std::vector<tbl_op> out;
    for (const hnx_tbl_write &w : hnx_host_tbl_journal())
        for (const tbl_kind &k : kKinds)
            if (w.table == k.table && (table.empty() || table == k.name))
                out.push_back({k.name, w.is_add, k.unpack(w.row)});
    return out;
}

std::ostream &operator<<(std::ostream &os, const hw_entry &e) {
    char mac[18];
    std::snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", e.mac[0], e.mac[1], e.mac[2],
                  e.mac[3], e.mac[4], e.mac[5]);
    return os << "{hw_id=" << e.hw_id << " phase=" << e.phase << " evlan=" << e.evlan << " mask="
              << e.evlan_mask << " type=" << e.mac_type << " mac=" << mac << " phyid=" << e.phyid
              << (e.has_attr ? "}" : " no attr}");
}

std::ostream &operator<<(std::ostream &os, const tbl_op &op) {
    return os << op.table << (op.is_add ? " add " : " del ") << op.entry;
}

int managed_log_count(const std::string &root, const std::string &text) {
    std::ifstream in(root + "/var/log/hnx.log");
    int n = 0;
    for (std::string line; std::getline(in, line);) n += line.find(text) != std::string::npos;
    return n;
}

void managed_clock_set(int64_t now_us) {
    g_clock_us = now_us;
    hnx_host_set_clock(managed_fake_clock);
}

managed_tpl::managed_tpl(uint32_t key, uint32_t mask)
    : tpl(static_cast<mask_template *>(std::calloc(1, sizeof(mask_template)))) {
    list_init(&tpl->lst);
    tpl->key = key;
    tpl->mask = mask;
}

managed_tpl::~managed_tpl() { std::free(tpl); }

std::string managed_uuid(const mac6 &mac, uint32_t mac_type, uint32_t vlan) {
    return std::string("m").append(std::to_string(mac[5])).append("-t").append(std::to_string(mac_type)).append("-v").append(std::to_string(vlan));
}

void ManagedWorld::TearDown() {
    hnx_host_set_clock(nullptr);
    L3macWorld::TearDown();
}

void ManagedWorld::start(const l3mac_caps &b) {
    write_caps(b);
    bring_up();
    l3mac_data_check();
    quiet_start();
}

// The first life's records end with its process; here they are released,
// so that the leak checker sees only what a test itself lost.
void ManagedWorld::restart() {
    l3mac_release_all();
    hnx_host_tbl_reset();
    l3mac_service_reset();
    bring_up();
    quiet_start();
}

void ManagedWorld::write_request(uint32_t user, const std::string &uuid, uint32_t evlan,
                                 uint32_t mac_type, const mac6 &mac) {
    l3mac_row row(user, uuid, evlan, mac_type, mac.data());
    ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &row.res.base, 0, 0);
}

void ManagedWorld::erase_request(uint32_t user, const std::string &uuid) {
    l3mac_row row(user, uuid, 0, 0, mac6{}.data());
    ss_rt_tbl_del_str(l3mac_ctx.tbl_res, &row.res.base, 0, 0);
}

int ManagedWorld::request(uint32_t user, const std::string &uuid, uint32_t evlan,
                          uint32_t mac_type, const mac6 &mac, uint32_t phyid) {
    l3mac_row row(user, uuid, evlan, mac_type, mac.data(), phyid);
    ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &row.res.base, 0, 0);
    return l3mac_set_msg_proc(row.get());
}

int ManagedWorld::withdraw(uint32_t user, const std::string &uuid) {
    erase_request(user, uuid);
    l3mac_row row(user, uuid, 0, 0, mac6{}.data());
    return l3mac_del_msg_proc(&row.res);
}

void ManagedWorld::want(const mac6 &mac, std::initializer_list<uint32_t> vlans,
                        uint32_t mac_type, uint32_t user, bool keep) {
    for (uint32_t v : vlans)
        keep ? request(user, managed_uuid(mac, mac_type, v), v, mac_type, mac)
             : withdraw(user, managed_uuid(mac, mac_type, v));
}

std::vector<tcam_entry *> ManagedWorld::entries_of(const mac_entry *mac) {
    std::vector<tcam_entry *> out;
    for (list_head *p = mac ? mac->tcam_head.next : nullptr; mac && p != &mac->tcam_head; p = p->next)
        out.push_back(l3mac_tcam_of(p));
    return out;
}

std::vector<std::array<uint32_t, 3>> ManagedWorld::placed(const mac_entry *mac) {
    std::vector<std::array<uint32_t, 3>> out;
    for (const tcam_entry *e : entries_of(mac)) out.push_back({e->key.evlan, e->key.evlan_mask, e->idx});
    std::sort(out.begin(), out.end());
    return out;
}

uint32_t ManagedWorld::in_use(int tcam_id) {
    const sw_res_rm *rm = l3mac_ctx.tcam_rm[tcam_id];
    return rm ? rm->in_use : 0;
}
