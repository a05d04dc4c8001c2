// Report forms: the three level gates, the line budget, counting with the
// log off, and the failure table's shared layout.
#include <cstring>
#include <tuple>

#include "request/l3mac_msg.h"
#include "support/l3mac_world.h"

namespace {

const uint8_t kMac[6] = {0x02, 0, 0, 0, 0, 0x01};

class LogTest : public L3macWorld {
protected:
    // Both TCAMs managed, set by hand: these reports come before any
    // store is needed.
    void SetUp() override {
        L3macWorld::SetUp();
        l3mac_ctx.is_mng = 1;
        l3mac_ctx.is_mng2 = 1;
    }
    // One ERROR line (code 53) and one WARN line of the set handler; with
    // user 0, one IN line (code 126) and one WARN line.
    static void refused_set(uint32_t mac_type = 5, uint32_t evlan = 10, uint32_t user = 1) {
        l3mac_row r(user, "k", evlan, mac_type, kMac);
        EXPECT_EQ(l3mac_set_msg_proc(r.get()), -4);
    }
};

TEST_F(LogTest, LevelsOneFourAndFiveOpenTheThreeWordsAndZeroStillCounts) {
    // {level, ERROR lines, WARN lines, IN lines}
    const std::array<int, 4> cases[] = {{0, 0, 0, 0}, {1, 1, 0, 0}, {3, 1, 0, 0},
                                        {4, 1, 2, 0}, {5, 1, 2, 1}, {7, 1, 2, 1}};
    uint32_t n = 0;
    for (const auto &[level, error, warn, info] : cases) {
        SCOPED_TRACE(level);
        set_log(level);
        const std::string out = out_of([] { return refused_set(), refused_set(0, 10, 0), 0; });
        EXPECT_EQ(std::tuple(l3mac_count_of(out, "[ERROR]"), l3mac_count_of(out, "[WARN ]"),
                             l3mac_count_of(out, "[IN   ]")), std::tuple(error, warn, info));
        ++n;  // counted at every level
        EXPECT_EQ(std::pair(err_count(53), err_count(126)), std::pair(n, n));
        if (level == 1) {
            EXPECT_EQ(out, l3mac_line("ERROR", "sw_l3mac_user_param_check", err_slot(53).line,
                                      "fail:msg->attr.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX "
                                      "code:53 data1:5 data2:0\n"));
        }
        if (level == 4) {
            EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_set_msg_proc",
                                        "fail:rv == SS_E_NONE data1:-4 data2:0\n"), 2) << out;
        }
    }
}

TEST_F(LogTest, BudgetGivesItsLinesThenSilenceWhileCountersGoOn) {
    auto lines_of = [](int sets) {
        return l3mac_count_of(out_of([=] { for (int i = 0; i < sets; i++) refused_set(); return 0; }), "\n");
    };
    set_log(5, 3);
    EXPECT_EQ(lines_of(3), 3);
    EXPECT_EQ(std::pair(g_rt_l3tb_log_cnt, err_count(53)), std::pair(0, 3u));
    set_log(5, -1);
    EXPECT_EQ(lines_of(10), 20);
    EXPECT_EQ(g_rt_l3tb_log_cnt, -1);
}

// Slot N lies at byte 28 N; a second site of one code leaves its own data
// and line.
TEST_F(LogTest, SlotLayoutAndTwoSitesOfOneCode) {
    refused_set(S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX, 10);
    const int first_line = err_slot(53).line;
    refused_set(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, 4096);
    EXPECT_NE(err_slot(53).line, first_line);
    const auto *bytes = reinterpret_cast<const uint8_t *>(g_sw_rt_res_ss_err_cnt);
    auto word = [&](size_t off) {
        int32_t v;
        std::memcpy(&v, bytes + 28 * 53 + off, 4);
        return v;
    };
    EXPECT_EQ(sizeof g_sw_rt_res_ss_err_cnt, 5460u);
    EXPECT_EQ(word(8), 2);
    EXPECT_EQ(word(16), 4096);
    EXPECT_EQ(word(20), 0);
    EXPECT_EQ(word(24), err_slot(53).line);
    EXPECT_EQ(word(0), 0);  // the library's bytes are never written
    EXPECT_EQ(word(12), 0);
}

}  // namespace
