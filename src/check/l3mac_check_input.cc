// The rules of what the users wrote: every input row that gives the service
// no request, with the reason, and the all-zero MAC in requests and in the
// entries made for them. The service reads a MAC that is not 6 bytes as
// 00:00:00:00:00:00 and programs that address; no station has it, so such
// an entry is always a user's slip that reached the hardware.
#include <cstdio>
#include <vector>

#include "check/l3mac_check.h"
#include "check/l3mac_check_intake.h"
#include "check/l3mac_check_model.h"

namespace {

constexpr uint32_t kRequest = 1;    // STATUS_REQUEST
constexpr size_t kNamesShown = 8;   // input rows named in one line at most

bool l3mac_check_zero(const std::array<uint8_t, 6> &mac) {
    for (uint8_t b : mac)
        if (b) return false;
    return true;
}

// How a request's MAC came to be zero.
std::string l3mac_check_zero_how(const l3mac_check_res &r) {
    if (r.mac_len < 0) return " (it has no attr.mac)";
    if (r.mac_len != 6)
        return " (its attr.mac has " + std::to_string(r.mac_len) +
               " bytes; the service reads a MAC that is not 6 bytes as zero)";
    return "";
}

// The requests of the all-zero MAC that the service takes in.
std::vector<const l3mac_check_res *> l3mac_check_zero_requests(const l3mac_check_rows &rows,
                                                               const l3mac_check_board &b) {
    std::vector<const l3mac_check_res *> out;
    for (const l3mac_check_res &r : rows.res)
        if ((r.status & 0xFF) == kRequest && l3mac_check_refusal(r, b).empty() &&
            l3mac_check_zero(r.mac))
            out.push_back(&r);
    return out;
}

// "user 19 uuid "a", user 19 uuid "b"", at most kNamesShown of them.
template <class Fits>
std::string l3mac_check_names(const std::vector<const l3mac_check_res *> &reqs, Fits fits) {
    std::string out;
    size_t n = 0;
    for (const l3mac_check_res *r : reqs) {
        if (!fits(*r)) continue;
        if (n++ < kNamesShown) out += (out.empty() ? "" : ", ") + l3mac_check_key_text(*r);
    }
    if (n > kNamesShown) out += " and " + std::to_string(n - kNamesShown) + " more";
    return n ? "from the input rows " + out : "from no standing request";
}

void l3mac_check_refused_rows(const l3mac_check_rows &rows, const l3mac_check_board &b,
                              l3mac_check_report *rep) {
    for (const l3mac_check_res &r : rows.res) {
        const std::string why = l3mac_check_refusal(r, b);
        if (!why.empty()) rep->refused.push_back(l3mac_check_key_text(r) + ": " + why);
    }
}

void l3mac_check_zero_entries(const l3mac_check_rows &rows,
                              const std::vector<const l3mac_check_res *> &reqs,
                              l3mac_check_report *rep) {
    for (const l3mac_check_hw &e : rows.hw_res) {
        if (!e.has_attr || !e.mac_ok || !l3mac_check_zero(e.mac)) continue;
        const std::string from = l3mac_check_names(reqs, [&](const l3mac_check_res &r) {
            return (r.mac_type & 0xFF) == e.mac_type && r.phyid == e.phyid &&
                   ((r.evlan ^ e.evlan) & e.evlan_mask) == 0;
        });
        char head[160];
        std::snprintf(head, sizeof head, "output row hw_id %u programs the all-zero MAC (type %u "
                      "phyid %u evlan %u mask %#x), ", e.hw_id, e.mac_type, e.phyid, e.evlan,
                      e.evlan_mask);
        rep->violations.push_back(head + from);
    }
    for (const l3mac_check_hw &e : rows.vrrp) {
        if (!e.has_attr || !e.mac_ok || !l3mac_check_zero(e.mac)) continue;
        const std::string from = l3mac_check_names(reqs, [&](const l3mac_check_res &r) {
            return (r.mac_type & 0xFF) == e.mac_type && r.evlan == e.evlan;
        });
        rep->violations.push_back("direct row type " + std::to_string(e.mac_type) + " evlan " +
                                  std::to_string(e.evlan) + " programs the all-zero MAC, " + from);
    }
}

// "user 19 uuid "a" (why), user 19 uuid "b" (why)", at most kNamesShown.
std::string l3mac_check_untaken_names(
    const std::vector<const std::pair<const l3mac_check_res *, std::string> *> &rows) {
    std::string out;
    for (size_t i = 0; i < rows.size() && i < kNamesShown; i++)
        out += (i ? ", " : "") + l3mac_check_key_text(*rows[i]->first) + " (" + rows[i]->second +
               ")";
    if (rows.size() > kNamesShown) out += " and " + std::to_string(rows.size() - kNamesShown) +
                                          " more";
    return out;
}

}  // namespace

std::string l3mac_check_untaken_text(const l3mac_check_model &m, const std::array<uint8_t, 6> &mac,
                                     const std::function<bool(const l3mac_check_res &)> &asks) {
    std::vector<const std::pair<const l3mac_check_res *, std::string> *> shown, near;
    for (const auto &u : m.untaken) {
        const l3mac_check_res &r = *u.first;
        if (r.has_attr && asks(r)) shown.push_back(&u);
        else if (!r.has_attr || r.mac == mac) near.push_back(&u);
    }
    if (!shown.empty()) {
        const bool one = shown.size() == 1;
        std::string out = std::string("; the input ") + (one ? "row " : "rows ") +
                          l3mac_check_untaken_names(shown) + (one ? " asks" : " ask") +
                          " for it, but the service does not take " + (one ? "that row" : "them");
        if (m.restarted) return out + ": the entry was left over from before the start";
        return out + ", and keeps serving what " + (one ? "its key" : "their keys") +
               " asked before: write " + (one ? "it" : "them") +
               " again as a request that the service takes, or delete " + (one ? "it" : "them");
    }
    if (near.empty()) return "";
    return "; of the input rows that the service does not take, these name this MAC address or "
           "no MAC and may have asked for it before: " + l3mac_check_untaken_names(near);
}

void l3mac_check_input(const l3mac_check_rows &rows, const l3mac_check_board &b,
                       l3mac_check_report *rep) {
    l3mac_check_refused_rows(rows, b, rep);
    const std::vector<const l3mac_check_res *> zero = l3mac_check_zero_requests(rows, b);
    for (const l3mac_check_res *r : zero)
        rep->violations.push_back("request " + l3mac_check_key_text(*r) +
                                  " asks for the all-zero MAC 00:00:00:00:00:00" +
                                  l3mac_check_zero_how(*r));
    l3mac_check_zero_entries(rows, zero, rep);
}
