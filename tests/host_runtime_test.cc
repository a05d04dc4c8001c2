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
    int rearm = 0;  // times the handler arms its own slot again
};

int count_fire(void *arg) {
    static_cast<ticker *>(arg)->fired++;
    return 0;
}

int tick_and_rearm(void *arg) {
    auto *t = static_cast<ticker *>(arg);
    t->fired++;
    if (t->rearm-- > 0) kw_thread_insert_timer(t->thread, &t->slot, tick_and_rearm, t, 1, "re");
    return 0;
}

TEST_F(Runtime, RecordShowsItsTwoPublicWordsAndLoop) {
    EXPECT_NE(global_->rt, nullptr);
    EXPECT_NE(global_->thread, nullptr);
    EXPECT_NE(hnx_host_loop(global_), nullptr);
    EXPECT_EQ(hnx_host_global(), global_);
    EXPECT_EQ(reg_process_exit_action(getpid(), 2), 0);
}

TEST_F(Runtime, TimerFiresOnceOnTheRunningLoop) {
    ticker t{this, global_->thread};
    ASSERT_EQ(arm(&t.slot, count_fire, &t, 2), 0);
    EXPECT_NE(t.slot, nullptr);
    run_out();
    EXPECT_EQ(t.fired, 1);
}

TEST_F(Runtime, HandlerRearmsThroughItsOwnSlot) {
    ticker t{this, global_->thread};
    t.rearm = 3;
    ASSERT_EQ(arm(&t.slot, tick_and_rearm, &t, 1), 0);
    kw_timer *first = t.slot;
    run_out();
    EXPECT_EQ(t.fired, 4);
    EXPECT_EQ(t.slot, first);
}

TEST_F(Runtime, ArmingAFilledSlotReplacesItsTimer) {
    ticker old_t{this, global_->thread}, new_t{this, global_->thread};
    kw_timer *slot = nullptr;
    ASSERT_EQ(arm(&slot, count_fire, &old_t, 60000), 0);
    kw_timer *first = slot;
    ASSERT_EQ(arm(&slot, count_fire, &new_t, 1), 0);
    EXPECT_EQ(slot, first);
    run_out();  // would wait a minute if the first timer still stood
    EXPECT_EQ(old_t.fired, 0);
    EXPECT_EQ(new_t.fired, 1);
}

TEST_F(Runtime, SlotsAreIndependentAndBadArgumentsAreRefused) {
    ticker a{this, global_->thread}, b{this, global_->thread};
    ASSERT_EQ(arm(&a.slot, count_fire, &a, 3), 0);
    ASSERT_EQ(arm(&b.slot, count_fire, &b, 1), 0);
    EXPECT_NE(a.slot, b.slot);
    EXPECT_EQ(kw_thread_insert_timer(nullptr, &a.slot, count_fire, &a, 1, "x"), -4);
    EXPECT_EQ(arm(nullptr, count_fire, &a, 1), -4);
    EXPECT_EQ(arm(&a.slot, nullptr, &a, 1), -4);
    run_out();
    EXPECT_EQ(a.fired, 1);
    EXPECT_EQ(b.fired, 1);
}

int raise_term(void *) { return raise(SIGTERM); }
int raise_int(void *) { return raise(SIGINT); }

TEST_F(Runtime, RunEndsOnSigtermWithTimersStillArmed) {
    kw_timer *stop = nullptr, *late = nullptr;
    ticker t{this, global_->thread};
    ASSERT_EQ(arm(&stop, raise_term, nullptr, 2), 0);
    ASSERT_EQ(arm(&late, count_fire, &t, 600000), 0);
    EXPECT_EQ(kw_global_run(global_), 0);
    EXPECT_EQ(t.fired, 0);  // finish in TearDown frees the armed timer
}

TEST_F(Runtime, RunEndsOnSigintAndCanRunAgain) {
    kw_timer *stop = nullptr;
    ASSERT_EQ(arm(&stop, raise_int, nullptr, 1), 0);
    EXPECT_EQ(kw_global_run(global_), 0);
    ASSERT_EQ(arm(&stop, raise_term, nullptr, 1), 0);
    EXPECT_EQ(kw_global_run(global_), 0);
}

TEST(RuntimeRecord, FinishForgetsTheLastGlobal) {
    kw_global *a = kw_global_init("a", 0);
    kw_global *b = kw_global_init("b", 0);
    EXPECT_EQ(hnx_host_global(), b);
    kw_global_finish(a);
    EXPECT_EQ(hnx_host_global(), b);
    kw_global_finish(b);
    EXPECT_EQ(hnx_host_global(), nullptr);
    kw_global_finish(nullptr);
    EXPECT_EQ(kw_global_run(nullptr), -4);
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
    kw_timeval a{}, b{};
    ASSERT_EQ(kw_monotime(&a), 0);
    ASSERT_EQ(kw_monotime(&b), 0);
    EXPECT_GE(kw_timeval_to_us(b), kw_timeval_to_us(a));
    EXPECT_LT(a.tv_usec, 1000000);
    EXPECT_EQ(kw_monotime(nullptr), -4);
}

TEST(Clock, MicrosecondsOfNegativeAndLargeValues) {
    EXPECT_EQ(kw_timeval_to_us({-1, 0}), -1000000);
    EXPECT_EQ(kw_timeval_to_us({-2, 999999}), -1000001);
    EXPECT_EQ(kw_timeval_to_us({INT32_MAX, 999999}), int64_t{INT32_MAX} * 1000000 + 999999);
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
