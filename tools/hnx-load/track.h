// Follows the output tables: which written requests have reached an output
// row, how long after their commit, and how many rows each table received.
#pragma once

#include <map>
#include <tuple>
#include <vector>

#include "load.h"

struct load_track {
    struct wait {
        uint32_t vlan;
        load_clock::time_point committed;
        std::string uuid;
    };
    using mac_key = std::pair<uint32_t, uint64_t>;  // mac_type, MAC
    std::map<mac_key, std::vector<wait>> pending;
    std::map<std::string, mac_key> waiting;  // uuid of a waiting request
    size_t pending_count = 0;
    std::vector<double> latency_ms;
    load_clock::time_point last_resolved{};
    std::map<std::string, long> sets, dels;  // rows received per output table

    // A request committed at `t` waits for an output row covering it.
    void expect(const load_req &r, load_clock::time_point t);
    // A request deleted or changed before its row came waits no more.
    void forget(const load_req &r);
    void resolve(uint32_t type, const uint8_t *mac, uint32_t evlan, uint32_t mask);
    void clear_counts() { sets.clear(); dels.clear(); }
    long changes() const;
};

// Subscribes `t` to the three output tables of store 16. 0 or a code.
int load_track_start(load_track *t);
