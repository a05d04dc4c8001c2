// The host runtime: timers on a running loop, the end on SIGTERM, and the
// file root. (The clock seam is met by every paced or timed test.)
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

int count_fire(void *arg) {
    ++*static_cast<int *>(arg);
    return 0;
}

TEST_F(Runtime, TimerFiresOnceOnTheRunningLoop) {
    int fired = 0;
    kw_timer *slot = nullptr;
    ASSERT_EQ(arm(&slot, count_fire, &fired, 2), 0);
    EXPECT_NE(slot, nullptr);
    run_out();
    EXPECT_EQ(fired, 1);
}

int raise_term(void *) { return raise(SIGTERM); }

TEST_F(Runtime, RunEndsOnSigtermWithTimersStillArmed) {
    kw_timer *stop = nullptr, *late = nullptr;
    int fired = 0;
    ASSERT_EQ(arm(&stop, raise_term, nullptr, 2), 0);
    ASSERT_EQ(arm(&late, count_fire, &fired, 600000), 0);
    EXPECT_EQ(kw_global_run(global_), 0);
    EXPECT_EQ(fired, 0);  // finish in TearDown frees the armed timer
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
