// The debug commands end to end: the real daemon under a temporary root,
// driven with hnx-cmd, its output table read with hnx-tbl.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

const std::string BIN = HNX_BIN_DIR;
constexpr const char *MOD = "hnx-l3table-l3mac";

struct ran {
    int status;       // exit status, or -1 when the program did not end normally
    std::string out;  // standard output
};

ran sh(const std::string &cmd) {
    ran r{-1, {}};
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int st = pclose(p);
    if (WIFEXITED(st)) r.status = WEXITSTATUS(st);
    return r;
}

// Polls `ok` every 20 ms until `ms` have passed; true as soon as it holds.
template <class F> bool wait_for(F ok, int ms = 10000) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (std::chrono::steady_clock::now() < end) {
        if (ok()) return true;
        usleep(20 * 1000);
    }
    return ok();
}

class E2eCmd : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        char tmpl[] = "/tmp/l3mac-e2e-cmd-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        fs::create_directories(root_ + "/var/run");
        fs::create_directories(root_ + "/etc/route/debug");
        pid_ = fork();
        ASSERT_GE(pid_, 0);
        if (pid_ == 0) {
            setenv("HNX_ROOT", root_.c_str(), 1);
            if (!freopen((root_ + "/daemon.log").c_str(), "w", stdout)) _exit(127);
            execl((BIN + "/hnx-l3table-l3mac").c_str(), "hnx-l3table-l3mac", (char *)nullptr);
            _exit(127);
        }
        bool up = wait_for([] { return daemon_ended() || cmd("help").status == 0; }) && pid_ > 0;
        ASSERT_TRUE(up) << "the daemon's command socket did not answer";
    }

    static void TearDownTestSuite() {
        stop_daemon();
        std::error_code ec;
        fs::remove_all(root_, ec);
    }

    // True once the daemon has ended by itself (reaped here).
    static bool daemon_ended() {
        int st = 0;
        if (pid_ > 0 && waitpid(pid_, &st, WNOHANG) == pid_) pid_ = -1;
        return pid_ <= 0;
    }

    static void stop_daemon() {
        if (pid_ <= 0) return;
        kill(pid_, SIGTERM);
        int st = 0;
        bool gone = wait_for([&] { return waitpid(pid_, &st, WNOHANG) == pid_; });
        if (!gone) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &st, 0);
        }
        pid_ = -1;
    }

    static ran cmd(const std::string &words, const std::string &module = MOD) {
        return sh(BIN + "/hnx-cmd --root " + root_ + " " + module + " " + words + " 2>/dev/null");
    }

    static std::string root_;
    static pid_t pid_;
};

std::string E2eCmd::root_;
pid_t E2eCmd::pid_ = -1;

TEST_F(E2eCmd, ShowCapPrintsTwelveLines) {
    ran r = cmd("show-cap");
    ASSERT_EQ(r.status, 0);
    const std::string bar = "==============L3TB L3MAC CAP DUMP==============\r\n";
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 12);
    EXPECT_EQ(r.out.rfind(bar, 0), 0u);
    EXPECT_NE(r.out.find("tcam cap   = 256\n"), std::string::npos);
}

TEST_F(E2eCmd, InjectedUsersBecomeOutputRows) {
    ran add = cmd("add-mul-user-entry 1 100 3 1 1 10 0 00:11:22:33:44:55");
    ASSERT_EQ(add.status, 0);
    EXPECT_NE(add.out.find("user add end at uuid : 102"), std::string::npos) << add.out;
    // Rounds work once smoothing is over; until then trigger-decision
    // leaves the MAC pending.
    auto rows = [] {
        return sh(BIN + "/hnx-tbl --root " + root_ + " dump s_route.l3mac_hw_res --json").out;
    };
    bool published = wait_for([&] {
        return cmd("trigger-decision").status == 0 &&
               rows().find("00:11:22:33:44:55") != std::string::npos;
    });
    EXPECT_TRUE(published) << rows();

    ran mem = cmd("check-memory");
    ASSERT_EQ(mem.status, 0);
    int live = 0;
    ASSERT_EQ(sscanf(mem.out.c_str(), "malloc db = %d\n", &live), 1) << mem.out;
    EXPECT_GT(live, 4);  // three users, their MAC and its entries
}

TEST_F(E2eCmd, DebugSetsLevelAndBudget) {
    ran r = cmd("debug 5 -1");
    ASSERT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("\nlevel:5 log_cnt:-1 dbg_info:0\nlevel:INFO log_cnt:-1\n"),
              std::string::npos) << r.out;
    cmd("debug 0 -1");
}

TEST_F(E2eCmd, RefusalsAndResultsShowInTheExitStatus) {
    EXPECT_EQ(cmd("dump-evlan-mbr 1").status, 2);
    EXPECT_EQ(cmd("no-such-command").status, 2);
    EXPECT_EQ(cmd("del-mac-user 1 nobody").status, 1);  // -7 from the delete
    EXPECT_EQ(cmd("help", "hnx-no-such-module").status, 3);
}

// Last: the daemon goes away.
TEST_F(E2eCmd, StoppedModuleIsReportedAsNotRunning) {
    stop_daemon();
    ran r = sh(BIN + "/hnx-cmd --root " + root_ + " " + MOD + " show-cap 2>&1");
    EXPECT_EQ(r.status, 3);
    EXPECT_NE(r.out.find("hnx-l3table-l3mac is not running"), std::string::npos) << r.out;
}

}  // namespace
