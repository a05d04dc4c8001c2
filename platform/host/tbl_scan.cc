// Scans of whole tables and lookups of single rows: see tbl_scan.h.
#include "platform/host/tbl_scan.h"

namespace {

constexpr int kInvalid = -4;
constexpr int kFail = -11;
constexpr int kPage = 256;

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
    return tbl_scan_rows(tbl->db, tbl->name, [tbl](const tbl_row &r) {
        if (tbl_msg row = tbl_unpack(tbl->row, r.val, tbl->name)) tbl->on_set(row.get());
    });
}

int kw_mom_scan_sync(kw_global *, int db, const ProtobufCMessage *tpl, int, kw_mom_scan_fn cb,
                     int) {
    if (!tpl || !cb) return kInvalid;
    const ProtobufCMessageDescriptor *desc = tpl->descriptor;
    return tbl_scan_rows(db, desc->name, [desc, cb](const tbl_row &r) {
        tbl_msg row = tbl_unpack(desc, r.val, desc->name);
        if (!row) return;
        kw_mom_scan_rec rec{};
        rec.row = row.get();
        cb(nullptr, &rec);
    });
}

std::vector<std::vector<uint8_t>> hnx_host_tbl_rows(std::string_view table) {
    std::vector<std::vector<uint8_t>> rows;
    tbl_scan_rows(16, table, [&rows](const tbl_row &r) { rows.push_back(r.val); });
    return rows;
}
