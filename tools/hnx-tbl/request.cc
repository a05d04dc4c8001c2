// A row of s_route.l3mac_res as the service will read it: see request.h.
#include "request.h"

#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "check/l3mac_check.h"
#include "platform/host/cap.h"
#include "platform/host/hnx_host.h"
#include "s_route.pb-c.h"

namespace {

// The board that judges the row: the profile under the root, as the
// service reads it. Without one, the service runs on its built-in
// defaults: so does the judgement, without the platform's line about the
// missing file on every write.
l3mac_check_board request_board() {
    std::error_code ec;
    const bool present = std::filesystem::exists(hnx_host_path(HNX_CAP_FILE), ec);
    return l3mac_check_board_of_profile(!present);
}

}  // namespace

int request_review(const ProtobufCMessage *row) {
    if (row->descriptor != &s_route__l3mac_res__descriptor) return kExitOk;
    const auto *res = reinterpret_cast<const SRoute__L3macRes *>(row);
    if (res->attr && !res->attr->mac) {
        std::fprintf(stderr, "hnx-tbl: a request without attr.mac asks for the all-zero MAC "
                             "00:00:00:00:00:00: give attr.mac=aa:bb:cc:dd:ee:ff\n");
        return kExitBadInput;
    }
    l3mac_check_rows rows;
    l3mac_check_add_row(&rows, row);
    const l3mac_check_res &r = rows.res.front();
    const std::string why = l3mac_check_refusal(r, request_board());
    if (!why.empty())
        std::fprintf(stderr, "hnx-tbl: warning: the service will take no request from this row: "
                             "%s\n", why.c_str());
    else if ((r.status & 0xFF) == S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST &&
             r.mac == decltype(r.mac){})
        std::fprintf(stderr, "hnx-tbl: warning: the service will program the all-zero MAC "
                             "00:00:00:00:00:00 for this row\n");
    return kExitOk;
}
