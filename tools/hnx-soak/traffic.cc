// The users of the soak: random requests written into the input table
// through the table service, as other processes of the switch write them.
// MACs keep a home type and a home block of VLANs, so that their covers
// aggregate and the TCAMs fill up.
#include <cstring>

#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"
#include "soak.h"

namespace {

ss_rt_tbl *g_res;

constexpr uint32_t kTypes = 5;
constexpr uint32_t kOl = 1;

uint32_t soak_pick(std::mt19937 &rng, uint32_t lo, uint32_t hi) {
    return std::uniform_int_distribution<uint32_t>(lo, hi)(rng);
}

bool soak_chance(std::mt19937 &rng, int percent) {
    return static_cast<int>(soak_pick(rng, 0, 99)) < percent;
}

}  // namespace

void soak_tables_open() {
    SRoute__L3macRes res = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    g_res = ss_rt_tbl_create_detail(16, 1, &res.base, 24, 12, &key.base, 20, 0);
}

soak_traffic::soak_traffic(const soak_opts &o, std::mt19937 &rng)
    : o_(o), rng_(rng), bound_(o.keys) {}

// A MAC's home type and block; now and then another type or a stray number,
// the edges of the space included.
soak_traffic::request soak_traffic::random_request() {
    request r;
    r.mac = static_cast<int>(soak_pick(rng_, 0, o_.macs - 1));
    r.mac_type = soak_chance(rng_, 85) ? r.mac % kTypes : soak_pick(rng_, 0, kTypes - 1);
    const uint32_t top = r.mac_type == kOl ? 8191 : 4095;
    const uint32_t base = (r.mac * 97u) % (top - 64) + 1;
    r.evlan = soak_chance(rng_, 90) ? base + soak_pick(rng_, 0, 31) : soak_pick(rng_, 0, top);
    r.user = soak_pick(rng_, 1, 41);
    r.phyid = soak_chance(rng_, 90) ? 0 : soak_pick(rng_, 1, 3);
    return r;
}

void soak_traffic::write(const std::string &uuid, const request &r) {
    uint8_t mac[6] = {0x02, 0x5a, 0, 0, static_cast<uint8_t>(r.mac >> 8),
                      static_cast<uint8_t>(r.mac)};
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    key.t_user = r.user;
    key.uuid = const_cast<char *>(uuid.c_str());
    PLibpub__Mac m = P_LIBPUB__MAC__INIT;
    m.data.len = 6;
    m.data.data = mac;
    SRoute__L3macAttr attr = S_ROUTE__L3MAC_ATTR__INIT;
    attr.evlan = r.evlan;
    attr.mac_type = static_cast<SRoute__L3macTypeE>(r.mac_type);
    attr.mac = &m;
    attr.phyid = r.phyid;
    SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
    row.index = &key;
    row.status = S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST;
    row.attr = &attr;
    ss_rt_tbl_add_str(g_res, &row.base, 0, 0);
}

void soak_traffic::add(soak_figures *f) {
    const std::string uuid = "soak-" + std::to_string(next_uuid_++);
    const request r = random_request();
    standing_[uuid] = r;
    write(uuid, r);
    f->requests++;
}

// A new number for the same MAC, or a move to another MAC altogether.
void soak_traffic::update(soak_figures *f) {
    auto it = std::next(standing_.begin(), soak_pick(rng_, 0, standing_.size() - 1));
    request r = random_request();
    if (soak_chance(rng_, 60)) {
        r.mac = it->second.mac;
        r.mac_type = it->second.mac_type;
        r.phyid = it->second.phyid;
    }
    r.user = it->second.user;
    it->second = r;
    write(it->first, r);
    f->requests++;
}

void soak_traffic::remove(soak_figures *f) {
    auto it = std::next(standing_.begin(), soak_pick(rng_, 0, standing_.size() - 1));
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    key.t_user = it->second.user;
    key.uuid = const_cast<char *>(it->first.c_str());
    SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
    row.index = &key;
    ss_rt_tbl_del_str(g_res, &row.base, 0, 0);
    standing_.erase(it);
    f->requests++;
}

// Mostly adds while few requests stand, mostly deletes near the bound.
void soak_traffic::burst(int n, soak_figures *f) {
    for (int i = 0; i < n; i++) {
        const size_t now = standing_.size();
        const size_t bound = static_cast<size_t>(bound_);
        const uint32_t adds = now < bound / 3 ? 70 : now >= bound ? 15 : 40;
        const uint32_t dice = soak_pick(rng_, 0, 99);
        if (now == 0 || dice < adds) add(f);
        else if (dice < adds + 30) update(f);
        else remove(f);
    }
}
