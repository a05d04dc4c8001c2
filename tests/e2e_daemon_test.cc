// The real daemon under a temporary root: the instance lock and its pid
// file, the debug level file, rows written with hnx-tbl reaching the
// handlers, and the direct path's row in s_route.l3mac_vrrp_hw_res. Every
// wait is a poll with a deadline.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/l3mac_world.h"

namespace fs = std::filesystem;

namespace {

const std::string kDaemon = std::string(HNX_BIN_DIR) + "/hnx-l3table-l3mac";
const std::string kTbl = std::string(HNX_BIN_DIR) + "/hnx-tbl";

// Polls `cond` every 20 ms for at most 10 s.
bool poll_until(const std::function<bool()> &cond) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// One daemon process, its standard output in a file of the root.
class daemon_proc {
public:
    daemon_proc(const std::string &root, const std::string &name)
        : root_(root), out_(root + "/" + name + ".out") {
        pid_ = fork();
        if (pid_ == 0) {
            setenv("HNX_ROOT", root.c_str(), 1);
            int fd = open(out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            int err = open((root + "/" + name + ".err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(fd, 1);
            dup2(err, 2);
            execl(kDaemon.c_str(), kDaemon.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
    }
    ~daemon_proc() {
        if (status_ < 0 && pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    pid_t pid() const { return pid_; }
    std::string out() const { return slurp(out_); }
    bool running() {
        return status_ < 0 && !poll_exit(false);
    }
    // The exit status once the process has ended within the deadline, or -1.
    int wait_exit() {
        poll_until([&] { return poll_exit(false); });
        return status_;
    }
    int stop() {
        if (status_ < 0) kill(pid_, SIGTERM);
        return wait_exit();
    }

private:
    bool poll_exit(bool block) {
        if (status_ >= 0) return true;
        int st = 0;
        if (waitpid(pid_, &st, block ? 0 : WNOHANG) != pid_) return false;
        status_ = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
        return true;
    }
    std::string root_, out_;
    pid_t pid_ = -1;
    int status_ = -1;
};

class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/l3mac-e2e-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        fs::create_directories(root_ + "/var/run");
        fs::create_directories(root_ + "/etc/route/debug");
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(root_, ec);
    }
    void level_file(const std::string &text) {
        std::ofstream(root_ + "/etc/route/debug/l3mac.dbg") << text;
    }
    void profile(const l3mac_caps &caps) {
        fs::create_directories(root_ + "/etc/hnx");
        std::ofstream(root_ + "/etc/hnx/capability.json") << l3mac_caps_json(caps);
    }
    std::string pid_file() const { return slurp(root_ + "/var/run/de.res_l3mac.route.ss.pid"); }
    // The daemon holds its lock once its pid stands in the file.
    bool locked(const daemon_proc &d) const {
        return pid_file() == std::to_string(d.pid()) + std::string(1, '\0');
    }
    // Its loop runs, and handles SIGTERM, once the connect callback has
    // opened the module's debug command socket.
    bool serving() const {
        return fs::exists(root_ + "/var/run/hnx/hnx-l3table-l3mac.sock");
    }
    // Runs hnx-tbl on this root; its standard output, or "!" on failure.
    std::string tbl(const std::string &args) const {
        const std::string cmd = kTbl + " --root " + root_ + " " + args + " 2>/dev/null";
        FILE *p = popen(cmd.c_str(), "r");
        if (!p) return "!";
        std::string out;
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
        return pclose(p) == 0 ? out : "!";
    }
    std::string request(uint32_t user, const std::string &uuid, uint32_t evlan,
                        const std::string &type) const {
        return tbl("set s_route.l3mac_res index.t_user=" + std::to_string(user) +
                   " index.uuid=" + uuid + " status=STATUS_REQUEST attr.evlan=" +
                   std::to_string(evlan) + " attr.mac_type=" + type +
                   " attr.mac=00:0a:00:00:00:01");
    }
    int vrrp_rows() const {
        const std::string out = tbl("dump s_route.l3mac_vrrp_hw_res");
        return out == "!" ? -1 : l3mac_count_of(out, "\n");
    }

    std::string root_;
};

TEST_F(DaemonTest, PidFileHoldsThePidAndASecondInstanceExitsWithMinusSix) {
    level_file("1");
    daemon_proc first(root_, "first");
    ASSERT_TRUE(poll_until([&] { return locked(first) && serving(); })) << pid_file();

    daemon_proc second(root_, "second");
    EXPECT_EQ(second.wait_exit(), 250);  // -6 as an exit status
    EXPECT_NE(second.out().find("|\n[/de.res_l3mac.route.ss.pid] check running, rv:-6, "
                                "another process is already running\n\n"),
              std::string::npos)
        << second.out();
    EXPECT_TRUE(first.running());
    EXPECT_EQ(first.stop(), 0);
}

struct level_case {
    const char *name;
    const char *file;
    const char *status;  // the two status lines, or "" for none
};

class DaemonLevelTest : public DaemonTest, public ::testing::WithParamInterface<level_case> {};

TEST_P(DaemonLevelTest, LevelFileSetsTheLog) {
    level_file(GetParam().file);
    daemon_proc d(root_, "daemon");
    ASSERT_TRUE(poll_until([&] { return locked(d) && serving(); }));
    EXPECT_EQ(d.stop(), 0);
    const std::string out = d.out();
    if (*GetParam().status == '\0') {
        EXPECT_EQ(out, "");
    } else {
        EXPECT_EQ(out.find("\n dbg level                 name\n"), 0u) << out;
        EXPECT_NE(out.find(GetParam().status), std::string::npos) << out;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Files, DaemonLevelTest,
    ::testing::Values(
        level_case{"Zero", "0", ""},
        level_case{"Nine", "9", "\nlevel:9 log_cnt:-1 dbg_info:0\nlevel:ALL log_cnt:-1\n"},
        level_case{"MinusOne", "-1", "\nlevel:-1 log_cnt:-1 dbg_info:0\nlevel:CLOSE log_cnt:-1\n"},
        level_case{"Empty", "", "\nlevel:7 log_cnt:-1 dbg_info:0\nlevel:ALL log_cnt:-1\n"},
        level_case{"Letter", "x", "\nlevel:7 log_cnt:-1 dbg_info:0\nlevel:ALL log_cnt:-1\n"}),
    [](const ::testing::TestParamInfo<level_case> &i) { return std::string(i.param.name); });

TEST_F(DaemonTest, RowsReachTheHandlersAndARefusedRowPrintsItsFailure) {
    level_file("5");
    daemon_proc d(root_, "daemon");
    ASSERT_TRUE(poll_until([&] { return locked(d) && serving(); }));

    ASSERT_NE(request(1, "e2e-accepted", 10, "L3MAC_NORMAL"), "!");
    EXPECT_TRUE(poll_until([&] {
        const std::string out = d.out();
        return l3mac_count_lines(out, "IN   ", "l3mac_get_or_add_user_db", "user entry 0\n") == 1 &&
               out.find("e2e-accepted") != std::string::npos;
    })) << d.out();

    ASSERT_NE(request(1, "e2e-refused", 10, "L3MAC_MAX"), "!");
    EXPECT_TRUE(poll_until([&] {
        return l3mac_count_lines(d.out(), "WARN ", "l3mac_set_msg_proc",
                                 "fail:rv == SS_E_NONE data1:-4 data2:0\n") == 1;
    })) << d.out();
    EXPECT_EQ(l3mac_count_lines(d.out(), "ERROR", "sw_l3mac_user_param_check",
                                "fail:msg->attr.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX "
                                "code:53 data1:5 data2:0\n"),
              1);
    EXPECT_EQ(d.stop(), 0);
}

TEST_F(DaemonTest, UnmanagedBoardPublishesSharesAndWithdrawsTheDirectRow) {
    l3mac_caps caps;
    caps.is_mng = false;
    caps.is_mng2 = false;
    profile(caps);
    level_file("5");
    daemon_proc d(root_, "daemon");
    ASSERT_TRUE(poll_until([&] { return locked(d) && serving(); }));

    ASSERT_NE(request(1, "u1", 20, "L3MAC_VRRP"), "!");
    ASSERT_TRUE(poll_until([&] { return vrrp_rows() == 1; })) << d.out();
    const std::string row = tbl("dump s_route.l3mac_vrrp_hw_res");
    EXPECT_NE(row.find("index.evlan=20"), std::string::npos) << row;

    ASSERT_NE(request(2, "u2", 20, "L3MAC_VRRP"), "!");
    ASSERT_NE(tbl("del s_route.l3mac_res index.t_user=1 index.uuid=u1"), "!");
    // The first user's delete leaves the record to the second.
    ASSERT_TRUE(poll_until([&] {
        return l3mac_count_lines(d.out(), "IN   ", "l3mac_del_hw_entry",
                                 "mac hw user head is not empty\n") == 1;
    })) << d.out();
    EXPECT_EQ(vrrp_rows(), 1);

    ASSERT_NE(tbl("del s_route.l3mac_res index.t_user=2 index.uuid=u2"), "!");
    EXPECT_TRUE(poll_until([&] { return vrrp_rows() == 0; })) << d.out();
    EXPECT_EQ(d.stop(), 0);
}

}  // namespace
