// The host runtime: timers on a running loop, the end on SIGTERM or SIGINT,
// the clock seam and the file root.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/kw_runtime.h"

namespace {

// Before main: the runtime reads both once, at first use.
const bool kEnvSet = [] {
    setenv("HNX_TIMER_UNIT_MS", "1", 1);
    setenv("HNX_ROOT", "/tmp/hnx-env-root/", 1);
    return true;
}();

class Runtime : public ::testing::Test {
protected:
    void SetUp() override {
        global_ = kw_global_init("hnx-l3table-l3mac", 0);
        ASSERT_NE(global_, nullptr);
    }
    void TearDown() override { kw_global_finish(global_); }

    int arm(kw_timer **slot, kw_timer_fn fn, void *arg, uint32_t units) {
        return kw_thread_insert_timer(global_->thread, slot, fn, arg, units, "test");
    }
    // Runs the loop until nothing is armed: bounded by the timers themselves.
    void run_out() { uv_run(hnx_host_loop(global_), UV_RUN_DEFAULT); }

    kw_global *global_ = nullptr;
};

struct ticker {
    Runtime *test;
    kw_thread *thread;
    kw_timer *slot = nullptr;
    int fired = 0;
};

int count_fire(void *arg) {
    static_cast<ticker *>(arg)->fired++;
    return 0;
}

TEST_F(Runtime, TimerFiresOnceOnTheRunningLoop) {
    ticker t{this, global_->thread};
    ASSERT_EQ(arm(&t.slot, count_fire, &t, 2), 0);
    EXPECT_NE(t.slot, nullptr);
    run_out();
    EXPECT_EQ(t.fired, 1);
}

int raise_term(void *) { return raise(SIGTERM); }

TEST_F(Runtime, RunEndsOnSigtermWithTimersStillArmed) {
    kw_timer *stop = nullptr, *late = nullptr;
    ticker t{this, global_->thread};
    ASSERT_EQ(arm(&stop, raise_term, nullptr, 2), 0);
    ASSERT_EQ(arm(&late, count_fire, &t, 600000), 0);
    EXPECT_EQ(kw_global_run(global_), 0);
    EXPECT_EQ(t.fired, 0);  // finish in TearDown frees the armed timer
}

kw_timeval g_fake{};
int fake_clock(kw_timeval *tv) {
    *tv = g_fake;
    return 0;
}

TEST(Clock, SeamReplacesTheMonotonicClockUntilReset) {
    g_fake = {12, 345678};
    hnx_host_set_clock(fake_clock);
    kw_timeval tv{};
    EXPECT_EQ(kw_monotime(&tv), 0);
    EXPECT_EQ(kw_timeval_to_us(tv), 12345678);
    hnx_host_set_clock(nullptr);
    ASSERT_EQ(kw_monotime(&tv), 0);
    EXPECT_NE(kw_timeval_to_us(tv), 12345678);
}

TEST(Root, EnvironmentRootThenSetRootsAndRealPaths) {
    char buf[64];
    EXPECT_EQ(hnx_host_root(), "/tmp/hnx-env-root");
    EXPECT_STREQ(kw_root_path("/var/run/x.pid", buf, sizeof buf), "/tmp/hnx-env-root/var/run/x.pid");

    hnx_host_set_root("/tmp/t1//");
    EXPECT_EQ(hnx_host_path("/etc/hnx/capability.json"), "/tmp/t1/etc/hnx/capability.json");
    EXPECT_EQ(hnx_host_path("rel"), "/tmp/t1/rel");
    EXPECT_STREQ(kw_root_path("/var/run/x.pid", buf, 12), "/tmp/t1/var");

    hnx_host_set_root("");
    EXPECT_STREQ(kw_root_path("/etc/route/debug/l3mac.dbg", buf, sizeof buf),
                 "/etc/route/debug/l3mac.dbg");
    hnx_host_set_root("/");
    EXPECT_EQ(hnx_host_path("/var/log/hnx.log"), "/var/log/hnx.log");
    hnx_host_set_root(std::getenv("HNX_ROOT"));
}

}  // namespace
