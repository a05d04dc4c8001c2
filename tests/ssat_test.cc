// The command framework: reading words by a format, and a module's
// commands run with their arguments or refused with their format.
#include <cstdio>
#include <filesystem>
#include <tuple>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/host/ssat_args.h"
#include "platform/host/ssat_help.h"
#include "platform/host/ssat_host.h"
#include "platform/ssat.h"

namespace {

TEST(SsatRead, Numbers) {
    int64_t v = 0;
    struct { const char *w; bool ok; int64_t v; } cases[] = {
        {"12", true, 12}, {"-1", true, -1}, {"+7", true, 7}, {"0x1F", true, 31},
        {"0XfF", true, 255}, {"-0x10", true, -16}, {"4294967295", true, 4294967295LL},
        {"0xFFFFFFFF", true, 4294967295LL}, {"-2147483648", true, -2147483648LL},
        {"4294967296", false, 0}, {"-2147483649", false, 0}, {"0x100000000", false, 0},
        {"", false, 0}, {"0x", false, 0}, {"12a", false, 0}, {"--1", false, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.w);
        v = 0;
        EXPECT_EQ(ssat_read_num(c.w, &v), c.ok);
        EXPECT_EQ(v, c.v);
    }
}

TEST(SsatRead, MacAddresses) {
    uint8_t m[6] = {};
    ASSERT_TRUE(ssat_read_mac("00:1a:2B:33:44:ff", m));
    const uint8_t want[6] = {0x00, 0x1a, 0x2b, 0x33, 0x44, 0xff};
    EXPECT_EQ(0, memcmp(m, want, 6));
    for (const char *bad : {"00:11:22:33:44", "00:11:22:33:44:55:66", "00:11:22:33:44:5g",
                            "001:11:22:33:44:55", "00-11-22-33-44-55", "", "00::22:33:44:55"})
        EXPECT_FALSE(ssat_read_mac(bad, m)) << bad;
}

// Each conversion is named by the word before it, whatever stands between.
TEST(SsatRead, FormatNamesItsArguments) {
    const std::pair<const char *, std::vector<std::string>> cases[] = {
        {"dbg on/off, level=%d log_cnt:%d[-1:unlimited]", {"level", "log_cnt"}},
        {" size = %d", {"size"}},
        {"type=%d, mac=%m, phyid=%d", {"type", "mac", "phyid"}},
        {" void ", {}},
        {"100%% of %d, then %s", {"of", "then"}},
        {"%d=%s", {"arg1", "arg2"}},
    };
    std::vector<std::string> names;
    for (const auto &[fmt, want] : cases) {
        EXPECT_TRUE(ssat_fmt_names(fmt, &names)) << fmt;
        EXPECT_EQ(names, want) << fmt;
    }
    EXPECT_FALSE(ssat_fmt_names("level=%q", &names));
}

// What the probe handler saw: calls, and the words of the last one.
int g_calls;
std::string g_seen;

int probe(int32_t num, const char *text, const uint8_t *mac, uint32_t extra) {
    g_calls++;
    char buf[96];
    std::snprintf(buf, sizeof buf, "%d %s %02x %u", num, text, mac[5], extra);
    g_seen = buf;
    std::printf("probe %d %s\n", num, text);
    return num < 0 ? -7 : 0;
}

constexpr const char *MOD = "ssat-test";

// A module served on a loop of the test's own, under a temporary root; its
// socket is met end to end through hnx-cmd.
class SsatModule : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/ssat-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        uv_loop_init(&loop_);
        ASSERT_EQ(ssat_serve(&loop_, MOD, root_ + "/var/run/hnx/" + MOD + ".sock"), 0);
        ASSERT_EQ(ssat_reg_mod_cmd(MOD, "probe", 0, "num=%d, text=%s, mac=%m", probe), 0);
        g_calls = 0;
    }
    void TearDown() override {
        ssat_host_reset();
        uv_run(&loop_, UV_RUN_NOWAIT);  // let the closed handles go
        EXPECT_EQ(uv_loop_close(&loop_), 0);
        std::filesystem::remove_all(root_);
    }
    std::string root_;
    uv_loop_t loop_;
};

TEST_F(SsatModule, HandlerGetsItsArgumentsAndRefusedLinesCallNothing) {
    ssat_reply r = ssat_run_line(MOD, "  probe\t0x10 abc 00:11:22:33:44:55 \r\n");
    EXPECT_TRUE(r.ran);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.text, "probe 16 abc\n");
    EXPECT_EQ(g_seen, "16 abc 55 0");  // the last, not in the format, reads 0
    r = ssat_run_line(MOD, "probe -1 x 0:0:0:0:0:0");
    EXPECT_EQ(std::tie(r.ran, r.result), std::make_tuple(true, -7));

    const char *usage = "usage: probe num=%d, text=%s, mac=%m\n";
    const std::pair<const char *, std::string> refused[] = {
        {"probe 1 abc", std::string("probe: missing argument 3: a MAC address like "
                                    "00:11:22:33:44:55\n") + usage},
        {"probe one abc 0:0:0:0:0:0", std::string("probe: argument 1 \"one\" is not a number, "
                                                  "decimal or 0x hexadecimal\n") + usage},
        {"probe 1 abc x", std::string("probe: argument 3 \"x\" is not a MAC address like "
                                      "00:11:22:33:44:55\n") + usage},
        {"probe 1 abc 0:0:0:0:0:0 1 2", std::string("probe: too many arguments: 5 given, the "
                                                    "command takes 3\n") + usage},
        {"nosuch 1", "unknown command \"nosuch\"; \"help\" lists the commands\n"},
    };
    for (const auto &[line, text] : refused) {
        SCOPED_TRACE(line);
        r = ssat_run_line(MOD, line);
        EXPECT_FALSE(r.ran);
        EXPECT_EQ(r.text, text);
    }
    EXPECT_EQ(g_calls, 2);
}

int noop() { return 0; }

// "help" answers the registered names and formats exactly, one a line, for
// hnx-cmd to show; a format that would break that line is not registered.
TEST_F(SsatModule, HelpListsNamesAndFormatsAsRegistered) {
    ASSERT_EQ(ssat_reg_mod_cmd(MOD, "nothing", 0, " void ", noop), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(MOD, "tab", 0, "a=%d\tb=%d", probe), SSAT_E_FORMAT);
    EXPECT_EQ(ssat_reg_mod_cmd(MOD, "two-lines", 0, "a=%d\n", probe), SSAT_E_FORMAT);
    const ssat_reply r = ssat_run_line(MOD, "help");
    EXPECT_TRUE(r.ran);
    EXPECT_EQ(r.text, "probe\tnum=%d, text=%s, mac=%m\nnothing\t void \n");
    std::vector<ssat_cmd_info> cmds;
    ASSERT_TRUE(ssat_help_parse(r.text, &cmds));
    ASSERT_EQ(cmds.size(), 2u);
    EXPECT_EQ(ssat_help_entry(cmds[0], "probe the framework"),
              "probe NUM TEXT MAC\n    probe the framework\n    format: \"num=%d, text=%s, mac=%m\"\n");
    EXPECT_EQ(ssat_help_entry(cmds[1], nullptr), "nothing\n    format: \" void \"\n");
    EXPECT_FALSE(ssat_help_parse("probe num=%d\n", &cmds));
}

}  // namespace
