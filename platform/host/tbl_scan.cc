// Scans of whole tables and lookups of single rows: see tbl_scan.h.
#include "platform/host/tbl_scan.h"

#include <cstdio>
#include <string>

#include <unistd.h>

namespace {

constexpr int kInvalid = -4;
constexpr int kFail = -11;
constexpr int kPage = 256;

bool smoothing() {
    for (auto &[id, t] : tbl_proc().tables)
        if (t->ds.open) return true;
    return false;
}

// A scan inside data smoothing that cannot hand every row over would let
// the service take the missing rows for deleted ones and remove what they
// stand for, and the service does not look at the result: the process ends
// instead, before the call returns, and its supervisor starts it again.
int scan_failed(int db, std::string_view name) {
    if (!smoothing()) return kFail;
    tbl_store *st = tbl_store_of(db);
    std::fprintf(stderr,
                 "ss_rt_tbl: store %d: %.*s cannot be read during data smoothing (%s): exiting "
                 "with status %d for a restart; nothing was removed\n",
                 db, int(name.size()), name.data(), st ? st->last_error().c_str() : "no store",
                 kTblExitStore);
    std::fflush(nullptr);
    _exit(kTblExitStore);
}

}  // namespace

int tbl_scan_rows(int db, std::string_view name, const std::function<void(const tbl_row &)> &fn) {
    tbl_store *st = tbl_store_of(db);
    if (!st) return kFail;
    std::vector<tbl_row> page;
    tbl_bytes last;
    const tbl_bytes *after = nullptr;
    do {
        page.clear();
        if (st->page(name, after, kPage, &page) != 0) return kFail;
        if (!page.empty()) last = page.back().key;
        after = &last;
        for (const tbl_row &r : page) fn(r);
    } while (int(page.size()) == kPage);
    return 0;
}

int tbl_find(ss_rt_tbl *tbl, const ProtobufCMessage *row, tbl_bytes *out, bool *found) {
    if (!tbl || !row || row->descriptor != tbl->row) return kInvalid;
    tbl_store *st = tbl_store_of(tbl->db);
    if (!st) return kFail;
    return st->get(tbl->name, tbl_key_of(row, tbl->key), out, found);
}

// Rows that do not unpack are skipped with their error line.
int ss_rt_tbl_scan_detail(ss_rt_tbl *tbl, int, int) {
    if (!tbl || !tbl->on_set) return kInvalid;
    int rv = tbl_scan_rows(tbl->db, tbl->name, [tbl](const tbl_row &r) {
        if (tbl_msg row = tbl_unpack(tbl->row, r.val, tbl->name)) {
            tbl->seen[std::string(r.key.begin(), r.key.end())] = tbl_row_hash(r.val);
            tbl->on_set(row.get());
        }
    });
    return rv == 0 ? 0 : scan_failed(tbl->db, tbl->name);
}

int kw_mom_scan_sync(kw_global *, int db, const ProtobufCMessage *tpl, int, kw_mom_scan_fn cb,
                     int) {
    if (!tpl || !cb) return kInvalid;
    const ProtobufCMessageDescriptor *desc = tpl->descriptor;
    int rv = tbl_scan_rows(db, desc->name, [desc, cb](const tbl_row &r) {
        tbl_msg row = tbl_unpack(desc, r.val, desc->name);
        if (!row) return;
        kw_mom_scan_rec rec{};
        rec.row = row.get();
        cb(nullptr, &rec);
    });
    return rv == 0 ? 0 : scan_failed(db, desc->name);
}

std::vector<std::vector<uint8_t>> hnx_host_tbl_rows(std::string_view table) {
    std::vector<std::vector<uint8_t>> rows;
    tbl_scan_rows(16, table, [&rows](const tbl_row &r) { rows.push_back(r.val); });
    return rows;
}
