// The request rows of one run: see rows.h.
#include "rows.h"

#include <algorithm>

#include "platform/host/tbl_scan.h"
#include "platform/host/tbl_state.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"

namespace {

constexpr int kStore = 16;

int delete_row(ss_rt_tbl *res, const load_key &k) {
    SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    key.t_user = k.first;
    key.uuid = const_cast<char *>(k.second.c_str());
    row.index = &key;
    return ss_rt_tbl_del_str(res, &row.base, 0, 0);
}

}  // namespace

void load_rows::committed(const load_req &r) {
    if (r.del) live.erase({r.user, r.uuid});
    else live.insert({r.user, r.uuid});
}

std::vector<load_key> load_rows_taken(const std::vector<load_req> &reqs) {
    std::set<load_key> mine;
    for (const load_req &r : reqs) mine.insert({r.user, r.uuid});
    std::vector<load_key> taken;
    tbl_scan_rows(kStore, "s_route.l3mac_res", [&](const tbl_row &r) {
        SRoute__L3macRes *row = s_route__l3mac_res__unpack(nullptr, r.val.size(), r.val.data());
        if (row && row->index && row->index->uuid) {
            load_key k{row->index->t_user, row->index->uuid};
            if (mine.count(k)) taken.push_back(std::move(k));
        }
        if (row) s_route__l3mac_res__free_unpacked(row, nullptr);
    });
    std::sort(taken.begin(), taken.end());
    return taken;
}

int load_rows_remove(ss_rt_tbl *res, load_rows *rows, int batch) {
    const size_t per = size_t(std::max(1, batch));
    while (!rows->live.empty()) {
        tbl_store *st = tbl_store_of(kStore);
        if (!st || st->begin() != 0) return -11;
        std::vector<load_key> done;
        int rv = 0;
        for (auto it = rows->live.begin(); it != rows->live.end() && done.size() < per && rv == 0;
             ++it) {
            rv = delete_row(res, *it);
            done.push_back(*it);
        }
        if (st->finish(rv) != 0) return -11;
        for (const load_key &k : done) rows->live.erase(k);
    }
    return 0;
}
