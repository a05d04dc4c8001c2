// The command framework: reading words by a format, the registry's checks
// and refusals, and one round trip through a module's socket.
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/host/ssat_args.h"
#include "platform/host/ssat_client.h"
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

TEST(SsatRead, ArgumentsByKinds) {
    std::vector<std::string_view> words = ssat_split_words("  7\tu-1  0:1:2:3:4:5 \r\n");
    ssat_read r;
    std::string err;
    ASSERT_TRUE(ssat_read_args("dsm", words, &r, &err)) << err;
    auto args = r.args();
    ASSERT_EQ(args.size(), 3u);
    EXPECT_EQ(args[0].num, 7);
    EXPECT_EQ(args[0].str, nullptr);
    EXPECT_STREQ(args[1].str, "u-1");
    EXPECT_EQ(args[2].mac[5], 5);

    EXPECT_FALSE(ssat_read_args("dsmd", words, &r, &err));
    EXPECT_EQ(err, "missing argument 4: a number, decimal or 0x hexadecimal");
    EXPECT_FALSE(ssat_read_args("dmm", words, &r, &err));
    EXPECT_EQ(err, "argument 2 \"u-1\" is not a MAC address like 00:11:22:33:44:55");
    EXPECT_FALSE(ssat_read_args("ds", words, &r, &err));
    EXPECT_EQ(err, "too many arguments: 3 given, the command takes 2");
    EXPECT_TRUE(ssat_read_args("", {}, &r, &err));
}

// What the probe handler saw at its last call.
struct seen_t {
    int calls = 0;
    int32_t num = 0;
    std::string text;
    uint8_t mac[6] = {};
    uint32_t extra = 99;
} seen;

int probe(int32_t num, const char *text, const uint8_t *mac, uint32_t extra) {
    seen.calls++;
    seen.num = num;
    seen.text = text;
    memcpy(seen.mac, mac, 6);
    seen.extra = extra;
    std::printf("probe %d %s\n", num, text);
    return num < 0 ? -7 : 0;
}

constexpr const char *MOD = "ssat-test";

// A module served on a loop of the test's own, under a temporary root.
class SsatModule : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/ssat-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        path_ = root_ + "/var/run/hnx/" + MOD + ".sock";
        uv_loop_init(&loop_);
        ASSERT_EQ(ssat_serve(&loop_, MOD, path_), 0);
        ASSERT_EQ(ssat_reg_mod_cmd(MOD, "probe", 0, "num=%d, text=%s, mac=%m", probe), 0);
        seen = seen_t{};
    }
    void TearDown() override {
        ssat_host_reset();
        uv_run(&loop_, UV_RUN_NOWAIT);  // let the closed handles go
        EXPECT_EQ(uv_loop_close(&loop_), 0);
        std::filesystem::remove_all(root_);
    }

    // Runs the loop while `client` runs on another thread; bounded.
    void run_with(const std::function<void()> &client) {
        std::atomic<bool> done{false};
        uv_async_t wake;
        uv_async_init(&loop_, &wake, [](uv_async_t *a) { uv_stop(a->loop); });
        uv_timer_t limit;
        uv_timer_init(&loop_, &limit);
        uv_timer_start(&limit, [](uv_timer_t *t) { uv_stop(t->loop); }, 5000, 0);
        std::thread t([&] {
            client();
            done = true;
            uv_async_send(&wake);
        });
        while (!done && uv_run(&loop_, UV_RUN_DEFAULT) != 0 && uv_is_active((uv_handle_t *)&limit)) {}
        t.join();
        EXPECT_TRUE(done) << "client did not finish within the bound";
        uv_close((uv_handle_t *)&wake, nullptr);
        uv_close((uv_handle_t *)&limit, nullptr);
        uv_run(&loop_, UV_RUN_NOWAIT);
    }

    std::string root_, path_;
    uv_loop_t loop_;
};

TEST_F(SsatModule, HandlerGetsItsArgumentsAndOutputIsCaptured) {
    ssat_reply r = ssat_run_line(MOD, "probe 0x10 abc 00:11:22:33:44:55");
    EXPECT_TRUE(r.ran);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.text, "probe 16 abc\n");
    EXPECT_EQ(seen.calls, 1);
    EXPECT_EQ(seen.mac[5], 0x55);
    EXPECT_EQ(seen.extra, 0u);  // not in the format: reads 0

    r = ssat_run_line(MOD, "probe -1 x 0:0:0:0:0:0");
    EXPECT_TRUE(r.ran);
    EXPECT_EQ(r.result, -7);
}

TEST_F(SsatModule, RefusedLinesCallNothingAndShowTheFormat) {
    const char *usage = "usage: probe num=%d, text=%s, mac=%m\n";
    struct { const char *line; std::string text; } cases[] = {
        {"probe 1 abc", std::string("probe: missing argument 3: a MAC address like "
                                    "00:11:22:33:44:55\n") + usage},
        {"probe one abc 0:0:0:0:0:0", std::string("probe: argument 1 \"one\" is not a number, "
                                                  "decimal or 0x hexadecimal\n") + usage},
        {"nosuch 1", "unknown command \"nosuch\"; \"help\" lists the commands\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        ssat_reply r = ssat_run_line(MOD, c.line);
        EXPECT_FALSE(r.ran);
        EXPECT_EQ(r.text, c.text);
    }
    EXPECT_EQ(seen.calls, 0);
}

TEST_F(SsatModule, RoundTripThroughTheSocket) {
    struct stat st;
    ASSERT_EQ(stat(path_.c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    ssat_reply ok, bad;
    ssat_call_result rc1 = SSAT_CALL_IO, rc2 = SSAT_CALL_IO;
    std::string err;
    run_with([&] {
        rc1 = ssat_client_call(path_, "probe 5 hello 1:2:3:4:5:6", &ok, &err);
        rc2 = ssat_client_call(path_, "probe 5", &bad, &err);
    });
    ASSERT_EQ(rc1, SSAT_CALL_OK) << err;
    EXPECT_TRUE(ok.ran);
    EXPECT_EQ(ok.text, "probe 5 hello\n");
    ASSERT_EQ(rc2, SSAT_CALL_OK) << err;
    EXPECT_FALSE(bad.ran);
    EXPECT_EQ(seen.calls, 1);
}

}  // namespace
