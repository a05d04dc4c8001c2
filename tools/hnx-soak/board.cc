// The built-in boards of the soak: small TCAMs, so that they fill up and
// the paths of a full TCAM are taken too.
#include "soak.h"

namespace {

struct soak_board {
    const char *name;
    bool tcam2_en, is_mng, is_mng2, copy;
    int tcam_cap, tcam2_cap;
};

// "two": both TCAMs managed and used apart; "copy": every type in the
// second; "direct": the second TCAM left to the direct path; "one": one
// TCAM only, so that the types of the second are refused.
constexpr soak_board kBoards[] = {
    {"two", true, true, true, false, 48, 32},
    {"copy", true, true, true, true, 48, 64},
    {"direct", true, true, false, false, 48, 32},
    {"one", false, true, true, true, 40, 256},
};

const char *soak_bool(bool v) { return v ? "true" : "false"; }

}  // namespace

std::string soak_board_json(const std::string &name) {
    for (const soak_board &b : kBoards) {
        if (name != b.name) continue;
        return std::string("{\"s_route\": {\"l3mac\": {\"capacity\": {\"tcam-cap\": ") +
               std::to_string(b.tcam_cap) + ", \"tcam2-cap\": " + std::to_string(b.tcam2_cap) +
               "}, \"ability\": {\"tcam2-en\": " + soak_bool(b.tcam2_en) +
               ", \"is-mng\": " + soak_bool(b.is_mng) + ", \"is-mng2\": " +
               soak_bool(b.is_mng2) + ", \"copy-to-tcam2\": " + soak_bool(b.copy) +
               "}}}, \"s_bridge\": {\"ebridge\": {\"capacity\": {\"evlan_num\": 20480}}}}\n";
    }
    return "";
}

std::string soak_board_names() {
    std::string names;
    for (const soak_board &b : kBoards) names += (names.empty() ? "" : ", ") + std::string(b.name);
    return names;
}
