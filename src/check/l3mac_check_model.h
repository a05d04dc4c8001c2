// Inside the consistency check (private to src/check): what the requests
// want and what the tables hold, keyed as the service keys its records, and
// the rule for one MAC.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "check/l3mac_check.h"

// A record of the direct path: one per {evlan, mac_type, mac}.
struct l3mac_direct_key {
    uint32_t evlan;
    uint32_t mac_type;
    std::array<uint8_t, 6> mac;
    auto operator<=>(const l3mac_direct_key &) const = default;
};

// {evlan, evlan_mask} of a MAC's entries.
using l3mac_pairs = std::set<std::pair<uint32_t, uint32_t>>;

// The numbers that a MAC's requests need served, and those that may be
// served without being needed.
struct l3mac_check_wanted {
    std::set<uint32_t> need;
    std::set<uint32_t> may;
};

struct l3mac_check_model {
    std::map<l3mac_mac_key, l3mac_check_wanted> macs;
    std::map<l3mac_mac_key, l3mac_pairs> placed;      // output entries per MAC
    std::map<l3mac_entry_key, uint32_t> output;       // output entries' indexes
    // Numbers of rows that the service marked failed, by {mac_type, mac}:
    // the mark carries phyid 0 whatever the user asked for.
    std::map<std::pair<uint8_t, std::array<uint8_t, 6>>, std::set<uint32_t>> failed;
    std::map<l3mac_direct_key, int> direct_need;
    std::set<l3mac_direct_key> direct_may;
    // Rows of a user that the service does not take (refused, or of a
    // status other than STATUS_REQUEST and its own failure mark), each with
    // the reason. The service leaves its stores as they were for such a
    // row, so a running service still serves what its key asked before:
    // these rows name who last asked for an entry that no request wants.
    std::vector<std::pair<const l3mac_check_res *, std::string>> untaken;
    uint32_t refused = 0;
    uint32_t aliases = 0;
    // The service has just started: it never took what such rows' keys
    // asked before, so an entry that only they explain was left over.
    bool restarted = false;
};

inline bool l3mac_check_managed(const l3mac_check_board &b, uint32_t mac_type) {
    return b.is_mng[l3mac_check_tcam_of(b, mac_type)];
}

// The cover of a set of numbers as TCAM entries of the mac_type's space.
// On a compact board: the entries match exactly the wanted numbers (value 0
// aside) and are no more than the default cover's.
bool l3mac_check_compact_fits(const l3mac_check_board &b, const l3mac_pairs &placed,
                              const l3mac_pairs &cover, const l3mac_check_wanted &w,
                              uint32_t top);
l3mac_pairs l3mac_check_cover(const std::set<uint32_t> &numbers, bool is_vfi,
                              uint32_t vfi_mask);

// The numbers of the mac_type's space on this board that a request can ask
// for end below its top value: 4095 for VLANs, the VFI mask for VFIs. An
// entry's value/mask is judged on the numbers 1 to that top value: the
// hardware compares only the bits of the cut mask.
uint32_t l3mac_check_top(const l3mac_check_board &b, bool is_vfi);

// True when the entries serve every needed number and match no number of
// the space that is neither needed nor allowed (value 0 aside).
bool l3mac_check_serves(const l3mac_pairs &entries, const l3mac_check_wanted &w,
                        uint32_t top);

// The rule of each MAC: its entries are the cover of what its requests
// need, or the MAC is reported unserved; unserved with room is a violation.
void l3mac_check_macs(const l3mac_check_board &b, const l3mac_check_model &m,
                      l3mac_check_report *rep);

// What the rows that the service does not take tell of an entry that no
// standing request wants: those that `asks` says show the entry's number,
// else those of the same MAC address (or without attr), which may have
// asked for it before. "" when there are none; otherwise a clause that
// begins with "; ".
std::string l3mac_check_untaken_text(const l3mac_check_model &m, const std::array<uint8_t, 6> &mac,
                                     const std::function<bool(const l3mac_check_res &)> &asks);

std::string l3mac_check_direct_text(const l3mac_direct_key &k);

// The entry that a cover template stands for, cut to the space of the
// mac_type as the TCAM entries are; false for the filler template.
bool l3mac_check_cut(uint32_t key, uint32_t mask, bool is_vfi, uint32_t vfi_mask,
                     uint32_t *evlan, uint32_t *evlan_mask);
