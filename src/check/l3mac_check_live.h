// Inside the in-process check (private to src/check): what one run has
// gathered from the stores, shared by its parts.
#pragma once

#include <array>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "decision/l3mac_mac.h"
#include "check/l3mac_check_model.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "store/l3mac_db.h"
#include "tcam/l3mac_tcam.h"
#include "vrrp/l3mac_vrrp.h"

struct l3mac_check_live_ctx {
    l3mac_check_live_ctx(const l3mac_check_live_opts &o, l3mac_check_report *r)
        : opts(o), board(l3mac_check_board_live()), rep(r) {}

    const l3mac_check_live_opts &opts;
    l3mac_check_board board;
    l3mac_check_report *rep;
    std::set<const void *> macs, entries, users, hws;  // live records by store
    std::map<const void *, const void *> owner;        // user -> record that lists it
    std::map<const void *, const void *> entry_owner;  // entry -> MAC that lists it
    std::array<uint32_t, 2> in_tcam{};                 // entries per TCAM
    std::array<uint32_t, 2> in_tcam_now{};             // the pools' count in use
    size_t bound = 0;                                  // longest possible list
    std::set<const void *> strays;                     // MACs holding a user of another MAC
};

l3mac_mac_key l3mac_check_key_of(const mac_entry *mac);

// A MAC's name in the lines of the check, formatted when a line first needs
// it: a sound service gives none, and naming every MAC of every check took a
// tenth of a fuzz input's time.
class l3mac_check_who {
public:
    explicit l3mac_check_who(const mac_entry *mac) : mac_(mac) {}
    const char *c_str() const {
        if (text_.empty()) text_ = l3mac_check_mac_text(l3mac_check_key_of(mac_));
        return text_.c_str();
    }

private:
    const mac_entry *mac_;
    mutable std::string text_;
};

// Stores, lists, pending list, pools and counts.
void l3mac_check_state(l3mac_check_live_ctx &c);

// A settled MAC's bitmap and entries against the users bound to it.
void l3mac_check_mac_cover(l3mac_check_live_ctx &c, const mac_entry *mac,
                           const l3mac_check_who &who);
