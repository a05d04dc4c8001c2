// The store opened read-only through the table store's interface, on
// either backend: the checker must work beside a running service and must
// never change what it checks. One snapshot reads all four tables, so that
// a running service's later writes do not mix into what is checked.
#include "store.h"

#include <filesystem>
#include <memory>

#include "platform/host/tbl_store.h"
#include "platform/host/tbl_where.h"
#include "s_route.pb-c.h"

namespace {

const ProtobufCMessageDescriptor *const kTables[] = {
    &s_route__l3mac_res__descriptor,
    &s_route__l3mac_hw_res__descriptor,
    &s_route__l3mac_bak__descriptor,
    &s_route__l3mac_vrrp_hw_res__descriptor,
};

}  // namespace

bool hnx_check_read_store(const std::string &path, l3mac_check_rows *rows,
                          l3mac_check_report *rep, std::string *err) {
    // Most likely a forgotten HNX_ROOT or a mistyped --root: an empty
    // answer would read as a consistent store.
    tbl_where where;
    std::error_code ec;
    if (tbl_where_now(&where).empty() && !where.redis && !std::filesystem::exists(path, ec)) {
        *err = "no table store at " + path + " (is HNX_ROOT set?)";
        return false;
    }
    std::unique_ptr<tbl_store> st = tbl_store::open(16, path, tbl_open::read_only);
    if (!st) {
        *err = "cannot open the table store at " + (where.redis ? where.url : path);
        return false;
    }
    std::vector<std::string> names;
    for (const ProtobufCMessageDescriptor *desc : kTables) names.push_back(desc->name);
    std::vector<std::vector<tbl_row>> tables;
    int64_t top = 0;
    if (st->snapshot(names, &tables, &top) != 0) {
        *err = "cannot read the table store: " + st->last_error();
        return false;
    }
    for (size_t i = 0; i < tables.size(); i++) {
        for (const tbl_row &r : tables[i]) {
            ProtobufCMessage *msg =
                protobuf_c_message_unpack(kTables[i], nullptr, r.val.size(), r.val.data());
            if (!msg) {
                rep->violation("a row of %s does not unpack", kTables[i]->name);
                continue;
            }
            l3mac_check_add_row(rows, msg);
            protobuf_c_message_free_unpacked(msg, nullptr);
        }
    }
    return true;
}
