// The debug commands end to end: the real daemon under a temporary root,
// driven with hnx-cmd, its output table read with hnx-tbl.
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/managed_proc.h"

namespace fs = std::filesystem;

namespace {

const std::string BIN = HNX_BIN_DIR;

class E2eCmd : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        char tmpl[] = "/tmp/l3mac-e2e-cmd-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        fs::create_directories(root_ + "/var/run");
        fs::create_directories(root_ + "/etc/route/debug");
        pid_ = managed_daemon_start(BIN, root_);
        ASSERT_TRUE(managed_wait([] { return run("help").first == 0; }))
            << "the daemon's command socket did not answer";
    }
    static void TearDownTestSuite() {
        managed_daemon_kill(pid_);
        std::error_code ec;
        fs::remove_all(root_, ec);
    }
    // hnx-cmd on this root: its exit status (-1 when it did not end
    // normally) and its standard output.
    static std::pair<int, std::string> run(const std::string &words,
                                           const std::string &module = "hnx-l3table-l3mac") {
        FILE *p = popen((BIN + "/hnx-cmd --root " + root_ + " " + module + " " + words + " 2>&1").c_str(), "r");
        std::string out;
        char buf[4096];
        for (size_t n; p && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
        const int st = p ? pclose(p) : -1;
        return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, out};
    }
    static inline std::string root_;
    static inline pid_t pid_ = 0;
};

TEST_F(E2eCmd, ShowCapDebugAndRefusals) {
    auto [st, out] = run("show-cap");
    ASSERT_EQ(st, 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 12);
    EXPECT_EQ(out.rfind("==============L3TB L3MAC CAP DUMP==============\r\n", 0), 0u);
    EXPECT_NE(out.find("tcam cap   = 256\n"), std::string::npos);
    EXPECT_NE(run("debug 5 -1").second.find("\nlevel:5 log_cnt:-1 dbg_info:0\nlevel:INFO log_cnt:-1\n"),
              std::string::npos);
    run("debug 0 -1");
    EXPECT_EQ(run("dump-evlan-mbr 1").first, 2);
    EXPECT_EQ(run("del-mac-user 1 nobody").first, 1);  // -7 from the delete
    EXPECT_EQ(run("help", "hnx-no-such-module").first, 3);
}

TEST_F(E2eCmd, InjectedUsersBecomeOutputRows) {
    auto [st, out] = run("add-mul-user-entry 1 100 3 1 1 10 0 00:11:22:33:44:55");
    ASSERT_EQ(st, 0);
    EXPECT_NE(out.find("user add end at uuid : 102"), std::string::npos) << out;
    // Rounds work once smoothing is over; until then trigger-decision
    // leaves the MAC pending.
    auto rows = [] {
        fs::remove(root_ + "/hnx-tbl.out");
        managed_tbl(BIN, root_, {"dump", "s_route.l3mac_hw_res", "--json"});
        std::ifstream in(root_ + "/hnx-tbl.out");
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    EXPECT_TRUE(managed_wait([&] {
        return run("trigger-decision").first == 0 && rows().find("00:11:22:33:44:55") != std::string::npos;
    })) << rows();
}

// Last: the daemon goes away.
TEST_F(E2eCmd, StoppedModuleIsReportedAsNotRunning) {
    kill(pid_, SIGTERM);
    ASSERT_TRUE(managed_wait([] { return waitpid(pid_, nullptr, WNOHANG) == pid_; }));
    pid_ = 0;
    auto [st, out] = run("show-cap");
    EXPECT_EQ(st, 3);
    EXPECT_NE(out.find("hnx-l3table-l3mac is not running"), std::string::npos) << out;
}

}  // namespace
