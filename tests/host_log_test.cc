// at_snprintf (the MAC conversion beside snprintf's own) and the dump of
// the failure table.
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "platform/ssat.h"
#include "platform/sw_rt_res.h"

// The cut cases below truncate on purpose.
#pragma GCC diagnostic ignored "-Wformat-truncation"

namespace {

const uint8_t kMac[6] = {0x00, 0x1b, 0x2c, 0xaa, 0xbb, 0xfe};

// Formats with both functions into buffers of `size` and compares text and
// result.
#define EXPECT_LIKE_SNPRINTF(size, ...)                           \
    do {                                                          \
        char want[size], got[size];                               \
        std::memset(got, 'Z', sizeof got);                        \
        int w = std::snprintf(want, sizeof want, __VA_ARGS__);    \
        int g = at_snprintf(got, sizeof got, __VA_ARGS__);        \
        EXPECT_EQ(g, w) << #__VA_ARGS__;                          \
        EXPECT_STREQ(got, want) << #__VA_ARGS__;                  \
    } while (0)

TEST(AtSnprintf, MacIsLowerHexWithColons) {
    char buf[64];
    EXPECT_EQ(at_snprintf(buf, sizeof buf, "%m", kMac), 17);
    EXPECT_STREQ(buf, "00:1b:2c:aa:bb:fe");
}

TEST(AtSnprintf, MacHonoursWidthAndLeftFlag) {
    char buf[64];
    at_snprintf(buf, sizeof buf, "[%20m]", kMac);
    EXPECT_STREQ(buf, "[   00:1b:2c:aa:bb:fe]");
    at_snprintf(buf, sizeof buf, "[%-20m]", kMac);
    EXPECT_STREQ(buf, "[00:1b:2c:aa:bb:fe   ]");
    at_snprintf(buf, sizeof buf, "[%*m][%5m]", -19, kMac, kMac);
    EXPECT_STREQ(buf, "[00:1b:2c:aa:bb:fe  ][00:1b:2c:aa:bb:fe]");
}

TEST(AtSnprintf, MacAmongOtherConversions) {
    char buf[128];
    int n = at_snprintf(buf, sizeof buf, "[%s]%s:%4d|mac:%-18m evlan:%#x user:%u %%\n",
                        "IN   ", "sw_l3mac_add", 42, kMac, 0x64, 7u);
    EXPECT_STREQ(buf, "[IN   ]sw_l3mac_add:  42|mac:00:1b:2c:aa:bb:fe  evlan:0x64 user:7 %\n");
    EXPECT_EQ(n, static_cast<int>(std::strlen(buf)));
}

TEST(AtSnprintf, StandardConversionsMatchSnprintf) {
    int x = 0;
    EXPECT_LIKE_SNPRINTF(128, "%d %i %u %x %X %o %#x %-#10x|", -5, 6, 7u, 255u, 255u, 8u, 0u, 0xabu);
    EXPECT_LIKE_SNPRINTF(128, "%s|%-30s|%.3s|%10.2s|", "abc", "left", "truncate", "xy");
    EXPECT_LIKE_SNPRINTF(128, "%p %-15p|%p", static_cast<void *>(&x), static_cast<void *>(&x),
                         static_cast<void *>(nullptr));
    EXPECT_LIKE_SNPRINTF(128, "%ld %lu %lld %llx %hd %hhd %hhu", -1L, 2UL, -3LL, 0xfffffffffULL,
                         70000, 300, 300);
    EXPECT_LIKE_SNPRINTF(128, "%zu %zd %jd %td %c|%5c", size_t{9}, ssize_t{-9}, intmax_t{-10},
                         ptrdiff_t{11}, 'q', 'r');
    EXPECT_LIKE_SNPRINTF(128, "%+d % d %05d %-5d| %'d", 3, 4, 42, 42, 1234567);
    EXPECT_LIKE_SNPRINTF(128, "%5.2f %e %g %a %Lf %10.3E", 3.14159, 1e10, 0.0001, 1.5,
                         2.5L, -123.456);
    EXPECT_LIKE_SNPRINTF(128, "%*d|%-*d|%*d|%.*s|%*.*s|%.*d", 6, 1, 4, 2, -4, 3, 2, "abcdef",
                         8, 3, "uvwxyz", -1, 77);
    EXPECT_LIKE_SNPRINTF(128, "100%%|%s", "done");
}

TEST(AtSnprintf, CutsLikeSnprintfAndCountsTheWholeLine) {
    EXPECT_LIKE_SNPRINTF(8, "%s and %d more", "words", 12345);
    EXPECT_LIKE_SNPRINTF(1, "%d", 42);
    EXPECT_LIKE_SNPRINTF(5, "abcdefgh%x", 0xffu);

    char buf[10];
    EXPECT_EQ(at_snprintf(buf, sizeof buf, "%-20m|", kMac), 21);
    EXPECT_STREQ(buf, "00:1b:2c:");
    EXPECT_EQ(at_snprintf(buf, sizeof buf, "ab%mcd", kMac), 21);
    EXPECT_STREQ(buf, "ab00:1b:2");
    EXPECT_EQ(at_snprintf(nullptr, 0, "%m %d", kMac, 5), 19);
}

TEST(AtSnprintf, CountConversionAndOddFormats) {
    char buf[64];
    int at = -1;
    at_snprintf(buf, sizeof buf, "%m%n!", kMac, &at);
    EXPECT_EQ(at, 17);
    EXPECT_EQ(at_snprintf(buf, sizeof buf, "50%"), 3);
    EXPECT_STREQ(buf, "50%");
    at_snprintf(buf, sizeof buf, "%m", static_cast<const uint8_t *>(nullptr));
    EXPECT_STREQ(buf, "(null)");
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

TEST_F(ShowInfo, PrintsCountedSlotsInCodeOrderAndKeepsThem) {
    fail(134, 2, -2, 0, 311);
    fail(57, 1, -1, 0, 88);
    EXPECT_EQ(show(0, 0),
              "code:57   count:1          data1:-1          data2:0           line:88\n"
              "code:134  count:2          data1:-2          data2:0           line:311\n");
    EXPECT_EQ(g_sw_rt_res_ss_err_cnt[134].count, 2u);
}

TEST_F(ShowInfo, DetailAddsHeaderAndTotalsAndCleanEmptiesTheTable) {
    fail(59, 40, 0, 0, 0);
    fail(194, 2, 1, 2, 3);
    std::string out = show(1, 1);
    EXPECT_EQ(out.rfind("==== failure counters (195 codes) ====\n", 0), 0u) << out;
    EXPECT_NE(out.find("code:194  count:2 "), std::string::npos) << out;
    EXPECT_NE(out.find("total: 42 failures under 2 codes\n"), std::string::npos) << out;
    for (const sw_rt_res_err_slot &s : g_sw_rt_res_ss_err_cnt) EXPECT_EQ(s.count, 0u);
    EXPECT_EQ(g_sw_rt_res_ss_err_cnt[194].line, 0);
    EXPECT_EQ(show(0, 0), "");
}

TEST(LogVariables, StartClosedWithAnUnlimitedBudget) {
    EXPECT_EQ(g_rt_l3tb_log_level, 0u);
    EXPECT_EQ(g_rt_l3tb_log_cnt, -1);
}

}  // namespace
