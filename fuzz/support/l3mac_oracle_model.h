// The oracle's records, shared by its request model (l3mac_oracle.cc) and
// its table mirrors (l3mac_oracle_mirror.cc). Plain values in ordered
// containers: a fuzz input holds a few dozen keys at most.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "s_route.pb-c.h"

namespace oracle {

using mac6 = std::array<uint8_t, 6>;

// The MAC of the managed path: {mac_type, mac, phyid}.
struct mac_key {
    uint32_t type = 0;
    mac6 mac{};
    uint32_t phyid = 0;
    auto operator<=>(const mac_key &) const = default;
};

// What a row of the output, backup or VRRP table holds about one entry.
struct ent {
    uint32_t evlan = 0;
    uint32_t mask = 0;
    uint32_t type = 0;
    mac6 mac{};
    uint32_t phyid = 0;
    auto operator<=>(const ent &) const = default;
    mac_key owner() const { return {type, mac, phyid}; }
};

// Position of an output row: {hw_id, phase}.
using pos = std::pair<uint32_t, uint32_t>;

// A row of s_route.l3mac_res as a user (or the service) wrote it.
struct user_row {
    bool has_attr = false;
    uint32_t status = 0;
    bool match = false;
    uint32_t evlan = 0;
    uint32_t type = 0;
    uint32_t phyid = 0;
    int mac_len = -1;  // -1: no mac at all
    mac6 mac{};
    bool operator==(const user_row &) const = default;
};
using row_key = std::pair<uint32_t, std::string>;  // {t_user, uuid} as written

// A request that the service keeps: {user as one byte, uuid}.
using req_key = std::pair<uint32_t, std::string>;
struct req {
    bool managed = false;
    uint32_t type = 0;
    mac6 mac{};  // zero unless the row had exactly 6 bytes
    uint32_t evlan = 0;
    uint32_t phyid = 0;
    bool match = false;
    bool operator==(const req &) const = default;
    mac_key owner() const { return {type, mac, phyid}; }
    ent direct() const { return {evlan, 0, type, mac, 0}; }
};

struct mac_state {
    std::set<req_key> users;
    bool dirty = false;        // queued for the next round
    bool failed = false;       // its last round found no room
    bool stale_out = false;    // failed in a restart's round: output rows may be gone
    std::set<uint32_t> bmp;    // the VLAN set that its last round built
};

// The mirrors of the three tables that the service writes.
struct mirror {
    std::map<pos, ent> hw;
    std::map<mac_key, std::map<ent, pos>> hw_by_mac;
    std::map<ent, uint32_t> bak;  // content -> hw_id
    std::map<mac_key, std::map<ent, uint32_t>> bak_by_mac;
    std::set<ent> vrrp;
};

// Table writes of one step, sorted out by the mirror.
struct step_writes {
    std::set<mac_key> entry_macs;  // MACs whose output or backup rows changed
    bool vrrp = false;             // a VRRP row was written
    std::vector<std::pair<req_key, user_row>> failed_rows;  // STATUS_FAILED rows
    std::vector<std::string> odd;  // writes that the service never makes
};

// l3mac_oracle_mirror.cc
void mirror_load(mirror *m);  // from the tables as they stand
void mirror_apply_journal(mirror *m, step_writes *w);
// Takes out of `m` the output rows that `after` no longer has as they were:
// those that a restart's smoothing dropped without a write of the service,
// or that the service wrote over. An entry whose backup row the restore
// refused stands at a new index, and its old row stays until smoothing ends.
void mirror_forget_dropped(mirror *m, const mirror &after);
std::string mirror_diff(const mirror &a, const mirror &b);  // "" when equal
user_row user_row_of(const SRoute__L3macRes *row);

// Whether the entries `es` of one MAC match exactly the numbers `want`
// within the space 0 .. `space` (all ones), with value 0 allowed but never
// needed and no entry for 0 alone. "" when they do, else why not.
std::string cover_mismatch(const std::vector<ent> &es, const std::set<uint32_t> &want,
                           uint32_t space);

std::string ent_text(const ent &e);
std::string mac_text(const mac_key &k);

}  // namespace oracle
