// The intake in words (l3mac_check_refusal) held to the service's own
// set handler: on every board, a row gives the service a request exactly
// when the words find nothing to say about it.
#include <ostream>
#include <string>
#include <vector>

#include "check/l3mac_check.h"
#include "request/l3mac_msg.h"
#include "support/managed_world.h"

namespace {

struct intake_board {
    const char *name;
    l3mac_caps caps;
};

// Test lists show a board by its name, not its bytes.
void PrintTo(const intake_board &b, std::ostream *os) { *os << b.name; }

const intake_board kBoards[] = {
    {"one", {}},
    {"two", {.tcam2_en = true, .copy_to_tcam2 = false, .evlan_num = 4096 + 16384}},
    {"copy", {.tcam2_en = true}},
    {"direct_second", {.tcam2_en = true, .is_mng2 = false, .copy_to_tcam2 = false}},
    // The first TCAM's range check is off: numbers past the bitmap reach
    // the managed path of the second.
    {"second_only", {.tcam2_en = true, .is_mng = false, .copy_to_tcam2 = false}},
    {"unmanaged", {.is_mng = false, .is_mng2 = false}},
};

class Intake : public ManagedWorld, public ::testing::WithParamInterface<intake_board> {
protected:
    // Hands the row to the set handler; whether the service now holds a
    // request of its key, against what the words say.
    void expect_agree(l3mac_row &row, const l3mac_check_board &b) {
        l3mac_check_rows rows;
        ASSERT_TRUE(l3mac_check_add_row(&rows, &row.res.base));
        const std::string why = l3mac_check_refusal(rows.res.front(), b);
        l3mac_set_msg_proc(row.get());
        const bool taken = user_of(row.key.t_user & 0xFF, row.uuid) != nullptr;
        EXPECT_EQ(taken, why.empty())
            << "user " << row.key.t_user << " type " << row.attr.mac_type << " evlan "
            << row.attr.evlan << " status " << row.res.status << (row.res.attr ? "" : " no attr")
            << ": " << (why.empty() ? "no words" : why);
    }
};

TEST_P(Intake, TheWordsAgreeWithTheSetHandler) {
    start(GetParam().caps);
    const l3mac_check_board b = l3mac_check_board_live();
    int n = 0;
    for (uint32_t user : {0u, 1u, 41u, 42u, 257u, 298u})
        for (uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 257u})
            for (uint32_t evlan : {0u, 4095u, 4096u, 8191u, 8192u, 16383u, 16384u})
                for (uint32_t status : {1u, 0u, 2u}) {
                    l3mac_row row(user, "r" + std::to_string(n++), evlan, type, kMacA, 0, status);
                    expect_agree(row, b);
                }
    l3mac_row bare(1, "bare", 10, NORMAL, kMacA);
    bare.res.attr = nullptr;
    expect_agree(bare, b);
}

// The tools judge by the board that they read from the profile through the
// capability service: it must be the board that the service brings up from
// the same file, and reading another profile must leave the running
// service's own alone (bring-up's reader would overwrite it).
TEST_P(Intake, ToolsReadTheBoardThatTheServiceBringsUp) {
    start(GetParam().caps);
    const l3mac_check_board live = l3mac_check_board_live();
    EXPECT_TRUE(l3mac_check_board_of_profile() == live);
    write_caps({.tcam2_en = true, .tcam_cap = 64, .tcam2_cap = 32, .evlan_num = 8192});
    const l3mac_check_board other = l3mac_check_board_of_profile();
    EXPECT_EQ(other.cap[0], 64);
    EXPECT_EQ(other.vfi_mask, 4095u);
    EXPECT_TRUE(l3mac_check_board_live() == live);
}

INSTANTIATE_TEST_SUITE_P(Boards, Intake, ::testing::ValuesIn(kBoards),
                         [](const auto &info) { return std::string(info.param.name); });

}  // namespace
