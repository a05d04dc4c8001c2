// at_snprintf (the MAC conversion beside snprintf's own) and the dump of
// the failure table.
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/ssat.h"
#include "platform/sw_rt_res.h"

namespace {

const uint8_t kMac[6] = {0x00, 0x1b, 0x2c, 0xaa, 0xbb, 0xfe};

TEST(AtSnprintf, MacHonoursWidthFlagsAndCutsLikeSnprintf) {
    char buf[128];
    at_snprintf(buf, sizeof buf, "[%20m][%-20m]", kMac, kMac);
    EXPECT_STREQ(buf, "[   00:1b:2c:aa:bb:fe][00:1b:2c:aa:bb:fe   ]");
    at_snprintf(buf, sizeof buf, "[%*m][%5m]", -19, kMac, kMac);
    EXPECT_STREQ(buf, "[00:1b:2c:aa:bb:fe  ][00:1b:2c:aa:bb:fe]");
    // A cut line still counts the whole of it.
    EXPECT_EQ(at_snprintf(buf, 10, "%-20m|", kMac), 21);
    EXPECT_STREQ(buf, "00:1b:2c:");
    EXPECT_EQ(at_snprintf(buf, 10, "ab%mcd", kMac), 21);
    EXPECT_STREQ(buf, "ab00:1b:2");
    EXPECT_EQ(at_snprintf(nullptr, 0, "%m %d", kMac, 5), 19);
    const int n = at_snprintf(buf, sizeof buf, "[%s]%s:%4d|mac:%-18m evlan:%#x user:%u %%\n",
                              "IN   ", "sw_l3mac_add", 42, kMac, 0x64, 7u);
    EXPECT_STREQ(buf, "[IN   ]sw_l3mac_add:  42|mac:00:1b:2c:aa:bb:fe  evlan:0x64 user:7 %\n");
    EXPECT_EQ(n, static_cast<int>(std::strlen(buf)));
}

class ShowInfo : public ::testing::Test {
protected:
    void SetUp() override { std::memset(g_sw_rt_res_ss_err_cnt, 0, sizeof g_sw_rt_res_ss_err_cnt); }
    static void fail(int code, uint32_t count, int d1, int d2, int line) {
        g_sw_rt_res_ss_err_cnt[code] = {{}, count, {}, d1, d2, line};
    }
    static std::string show(int clean, int detail) {
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(sw_rt_res_app_show_info(clean, detail), 0);
        return ::testing::internal::GetCapturedStdout();
    }
};

// Counted slots in code order, kept; with detail a header and the totals,
// and with clean an empty table afterwards.
TEST_F(ShowInfo, PrintsCountedSlotsInCodeOrderAndCleanEmptiesTheTable) {
    fail(134, 2, -2, 0, 311);
    fail(57, 1, -1, 0, 88);
    const std::string rows = "code:57   count:1          data1:-1          data2:0           line:88\n"
                             "code:134  count:2          data1:-2          data2:0           line:311\n";
    EXPECT_EQ(show(0, 0), rows);
    EXPECT_EQ(show(1, 1), "==== failure counters (195 codes) ====\n" + rows +
                              "total: 3 failures under 2 codes\n");
    for (const sw_rt_res_err_slot &s : g_sw_rt_res_ss_err_cnt) EXPECT_EQ(s.count, 0u);
    EXPECT_EQ(g_sw_rt_res_ss_err_cnt[134].line, 0);
    EXPECT_EQ(show(0, 0), "");
}

// Timer ticks count in slot 59 as a sign of life: the summary counts them
// apart from the failures, whose total they would otherwise swell.
TEST_F(ShowInfo, SummaryTellsTimerTicksFromFailures) {
    fail(59, 120, 0, 0, 0);
    EXPECT_EQ(show(0, 1), "==== failure counters (195 codes) ====\n"
                          "code:59   count:120        data1:0           data2:0           line:0\n"
                          "total: 0 failures under 0 codes\n"
                          "events, not failures: 120 decision timer ticks (code 59)\n");
    fail(53, 1, 5000, 0, 77);
    fail(134, 2, -2, 0, 311);
    const std::string out = show(0, 1);
    EXPECT_EQ(out.substr(out.find("total:")),
              "total: 3 failures under 2 codes\n"
              "events, not failures: 120 decision timer ticks (code 59)\n");
    fail(134, 0, 0, 0, 0);
    EXPECT_NE(show(0, 1).find("\ntotal: 1 failure under 1 code\n"), std::string::npos);
}

}  // namespace
