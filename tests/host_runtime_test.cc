// The host runtime's file root: from the environment, then as set, joined
// with the service's real paths; its in-process mode. (Its loop, timers and
// SIGTERM: the daemon tests, whose daemons tick and end on SIGTERM with the
// timer armed.)
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/host/ssat_host.h"
#include "platform/kw_runtime.h"
#include "platform/ssat.h"

namespace {

// Before main: the runtime reads it once, at first use.
const bool kEnvSet = [] { return setenv("HNX_ROOT", "/tmp/hnx-env-root/", 1) == 0; }();

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

int echo(int32_t n) { return n; }
int never(void *) { return 0; }

// In-process mode: commands run by direct calls, with no socket and no lock
// file made, and a finished runtime's loop serves the next one with nothing
// of the last left on it. Off again, a runtime serves its socket.
TEST(InProcess, CommandsWithoutSocketAndTheLoopKeptEmpty) {
    namespace fs = std::filesystem;
    char tmpl[] = "/tmp/hnx-inproc-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    hnx_host_set_root(tmpl);
    const std::string sock = ssat_sock_path("inproc");
    hnx_host_set_in_process(true);
    kw_global *g = kw_global_init("hnx-inproc", 0);
    ASSERT_NE(g, nullptr);
    ASSERT_EQ(ssat_lib_init(g, "inproc"), 0);
    ASSERT_EQ(ssat_reg_mod_cmd("inproc", "echo", 0, "n=%d", echo), 0);
    EXPECT_EQ(ssat_run_line("inproc", "echo 5").result, 5);
    EXPECT_FALSE(fs::exists(sock));
    EXPECT_FALSE(fs::exists(sock + ".lock"));
    // The end of a process forgets its commands, until its next init.
    ssat_host_forget_commands();
    EXPECT_EQ(ssat_run_line("inproc", "echo 5").text, "module inproc has no commands\n");
    EXPECT_EQ(ssat_reg_mod_cmd("inproc", "echo", 0, "n=%d", echo), SSAT_E_NOMOD);
    ASSERT_EQ(ssat_lib_init(g, "inproc"), 0);
    EXPECT_TRUE(ssat_host_commands("inproc").empty());
    ASSERT_EQ(ssat_reg_mod_cmd("inproc", "echo", 0, "n=%d", echo), 0);
    EXPECT_EQ(ssat_run_line("inproc", "echo 6").result, 6);
    kw_timer *t = nullptr;
    ASSERT_EQ(kw_thread_insert_timer(g->thread, &t, never, nullptr, 1000, "t"), 0);
    uv_loop_t *loop = hnx_host_loop(g);
    kw_global_finish(g);
    EXPECT_EQ(hnx_host_global(), nullptr);
    EXPECT_EQ(hnx_host_kept_handles(), 0u);
    kw_global *again = kw_global_init("hnx-inproc", 0);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(hnx_host_loop(again), loop);
    EXPECT_EQ(uv_loop_alive(loop), 0);
    kw_global_finish(again);

    hnx_host_set_in_process(false);
    kw_global *daemon = kw_global_init("hnx-inproc", 0);
    ASSERT_NE(daemon, nullptr);
    ASSERT_EQ(ssat_lib_init(daemon, "inproc"), 0);
    EXPECT_TRUE(fs::exists(sock));
    EXPECT_TRUE(ssat_host_commands("inproc").empty());
    ssat_host_reset();
    kw_global_finish(daemon);
    EXPECT_FALSE(fs::exists(sock));
    fs::remove_all(tmpl);
    hnx_host_set_root(std::getenv("HNX_ROOT"));
}

}  // namespace
