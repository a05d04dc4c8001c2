// The request rows of one run: the keys that another writer holds already
// (never taken over), the rows that the run wrote and that still stand,
// and their removal when the run ends.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "load.h"

struct ss_rt_tbl;

using load_key = std::pair<uint32_t, std::string>;  // user, uuid

struct load_rows {
    std::set<load_key> live;  // written by this run and not deleted since
    // After the commit of a batch: its adds stand, its deletes are gone.
    void committed(const load_req &r);
};

// The keys of `reqs` that already stand in s_route.l3mac_res, sorted.
std::vector<load_key> load_rows_taken(const std::vector<load_req> &reqs);

// Deletes every live row, `batch` to a transaction; each deleted row leaves
// `rows`. 0, or -11 when the store refused a batch (the rest stay live).
int load_rows_remove(ss_rt_tbl *res, load_rows *rows, int batch);
