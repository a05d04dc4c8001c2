// Report forms: the three level gates, the line budget, counting with the
// log off, the failure table's shared layout, and the debug level setting.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "frame/l3mac_ctx.h"
#include "frame/l3mac_main.h"
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
    // One ERROR line (code 53) and one WARN line of the set handler.
    static void refused_set(uint32_t mac_type = 5, uint32_t evlan = 10) {
        l3mac_row r(1, "k", evlan, mac_type, kMac);
        EXPECT_EQ(l3mac_set_msg_proc(r.get()), -4);
    }
    // One IN line (and a count under 126) and one WARN line.
    static void invalid_user_set() {
        l3mac_row r(0, "k", 10, 0, kMac);
        EXPECT_EQ(l3mac_set_msg_proc(r.get()), -4);
    }
};

TEST_F(LogTest, LevelsOneFourAndFiveOpenTheThreeWords) {
    struct expect {
        uint32_t level;
        int error, warn, info;
    };
    for (const expect &e : {expect{1, 1, 0, 0}, expect{3, 1, 0, 0}, expect{4, 1, 2, 0},
                            expect{5, 1, 2, 1}, expect{7, 1, 2, 1}}) {
        SCOPED_TRACE(e.level);
        set_log(e.level);
        capture_stdout();
        refused_set();
        invalid_user_set();
        const std::string out = captured_stdout();
        EXPECT_EQ(l3mac_count_of(out, "[ERROR]"), e.error);
        EXPECT_EQ(l3mac_count_of(out, "[WARN ]"), e.warn);
        EXPECT_EQ(l3mac_count_of(out, "[IN   ]"), e.info);
    }
}

TEST_F(LogTest, FailureFormNamesItsSiteCodeAndData) {
    set_log(1);
    capture_stdout();
    refused_set();
    EXPECT_EQ(captured_stdout(),
              l3mac_line("ERROR", "sw_l3mac_user_param_check", err_slot(53).line,
                         "fail:msg->attr.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX code:53 "
                         "data1:5 data2:0\n"));
}

TEST_F(LogTest, LevelZeroPrintsNothingAndStillCounts) {
    set_log(0);
    capture_stdout();
    refused_set();
    invalid_user_set();
    EXPECT_EQ(captured_stdout(), "");
    EXPECT_EQ(err_count(53), 1u);
    EXPECT_EQ(err_slot(53).data1, 5);
    EXPECT_EQ(err_slot(53).data2, 0);
    EXPECT_GT(err_slot(53).line, 0);
    EXPECT_EQ(err_count(126), 1u);
}

TEST_F(LogTest, BudgetGivesItsLinesThenSilenceWhileCountersGoOn) {
    set_log(5, 3);
    capture_stdout();
    refused_set();
    refused_set();
    refused_set();
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_of(out, "\n"), 3);
    EXPECT_EQ(g_rt_l3tb_log_cnt, 0);
    EXPECT_EQ(err_count(53), 3u);

    set_log(5, -1);
    capture_stdout();
    for (int i = 0; i < 10; i++) refused_set();
    EXPECT_EQ(l3mac_count_of(captured_stdout(), "\n"), 20);
    EXPECT_EQ(g_rt_l3tb_log_cnt, -1);
}

TEST_F(LogTest, SlotNLiesAtByte28N) {
    refused_set(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, 4096);
    const auto *bytes = reinterpret_cast<const uint8_t *>(g_sw_rt_res_ss_err_cnt);
    auto word = [&](size_t off) {
        int32_t v;
        std::memcpy(&v, bytes + 28 * 53 + off, 4);
        return v;
    };
    EXPECT_EQ(sizeof g_sw_rt_res_ss_err_cnt, 5460u);
    EXPECT_EQ(word(8), 1);
    EXPECT_EQ(word(16), 4096);
    EXPECT_EQ(word(20), 0);
    EXPECT_EQ(word(24), err_slot(53).line);
    EXPECT_EQ(word(0), 0);  // the library's bytes are never written
    EXPECT_EQ(word(12), 0);
}

TEST_F(LogTest, TwoSitesOfOneCodeLeaveTheSecondSitesDataAndLine) {
    refused_set(S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX, 10);
    const int first_line = err_slot(53).line;
    refused_set(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, 4096);
    EXPECT_EQ(err_count(53), 2u);
    EXPECT_EQ(err_slot(53).data1, 4096);
    EXPECT_EQ(err_slot(53).data2, 0);
    EXPECT_NE(err_slot(53).line, first_line);
}

TEST_F(LogTest, DebugSetPrintsTheTableAndClampsTheLevel) {
    std::string table = "\n dbg level                 name\n";
    const char *names[] = {"CLOSE", "ERROR", "BRIEF", "EVENT", "WARNING", "INFO", "HIGH FREQ", "ALL"};
    for (int i = 0; i < 8; i++) {
        char line[64];
        std::snprintf(line, sizeof line, "%10d %20s\n", i, names[i]);
        table += line;
    }
    capture_stdout();
    l3mac_debug_set(9, -1);
    EXPECT_EQ(captured_stdout(), table + "\nlevel:9 log_cnt:-1 dbg_info:0\nlevel:ALL log_cnt:-1\n");
    EXPECT_EQ(g_rt_l3tb_log_level, 7u);
    EXPECT_EQ(g_rt_l3tb_log_cnt, -1);

    capture_stdout();
    l3mac_debug_set(-1, 3);
    EXPECT_EQ(captured_stdout(), table + "\nlevel:-1 log_cnt:3 dbg_info:0\nlevel:CLOSE log_cnt:3\n");
    EXPECT_EQ(g_rt_l3tb_log_level, 0u);
    EXPECT_EQ(g_rt_l3tb_log_cnt, 3);
}

}  // namespace
