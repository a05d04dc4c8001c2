// The host runtime's file root: from the environment, then as set, joined
// with the service's real paths. (Its loop, timers and SIGTERM: the daemon
// tests, whose daemons tick and end on SIGTERM with the timer armed.)
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/kw_runtime.h"

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

}  // namespace
