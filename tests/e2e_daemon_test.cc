// The real daemon under a temporary root: the instance lock and its pid
// file, the debug level file, its command socket through hnx-cmd, and rows
// written with hnx-tbl reaching the handlers on the direct path. Every wait
// is a poll with a deadline.
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/l3mac_world.h"
#include "support/managed_proc.h"
#include "support/redis_server.h"

namespace fs = std::filesystem;

namespace {

const std::string kBin = HNX_BIN_DIR;

// The service world's root, for daemons of its own.
class DaemonTest : public OverStores<L3macWorld> {
protected:
    void SetUp() override {
        OverStores::SetUp();
        if (IsSkipped()) return;
        fs::create_directories(root_ + "/etc/route/debug");
        write_caps({});  // the platform's complaint about a missing one goes to the output too
    }
    void TearDown() override {
        for (pid_t &p : pids_) managed_daemon_kill(p);
        OverStores::TearDown();
    }
    // Starts a daemon with this level file, its output fresh; with `ready`,
    // waits until it holds its lock (its pid in the file) and serves its
    // debug socket (its loop runs and handles SIGTERM).
    pid_t start(const std::string &level, bool ready = true) {
        std::ofstream(root_ + "/etc/route/debug/l3mac.dbg") << level;
        if (ready) fs::remove(root_ + "/daemon.out");
        const pid_t pid = pids_.emplace_back(managed_daemon_start(kBin, root_));
        const bool up = !ready || managed_wait([&] {
            return pid_file() == std::to_string(pid) + std::string(1, '\0') && fs::exists(sock());
        });
        EXPECT_TRUE(up) << pid_file();
        return pid;
    }
    // The exit status of a daemon that ends within the deadline, or -1.
    int exit_of(pid_t pid, int sig = 0) {
        if (sig) kill(pid, sig);
        int st = 0;
        if (!managed_wait([&] { return waitpid(pid, &st, WNOHANG) == pid; })) return -1;
        for (pid_t &p : pids_) p = p == pid ? 0 : p;
        return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    }
    std::string sock() const { return root_ + "/var/run/hnx/hnx-l3table-l3mac.sock"; }
    std::string pid_file() const { return managed_slurp(root_ + "/var/run/de.res_l3mac.route.ss.pid"); }
    std::string out() const { return managed_slurp(root_ + "/daemon.out"); }
    managed_result cmd(std::vector<std::string> words) const {
        words.insert(words.begin(), "hnx-l3table-l3mac");
        return managed_run(kBin, root_, "hnx-cmd", words);
    }
    // Runs hnx-tbl on this root; its output, or "!" on failure.
    std::string tbl(std::vector<std::string> args) const {
        args.insert(args.begin(), {"--root", root_});
        const managed_result r = managed_run(kBin, root_, "hnx-tbl", args);
        return r.status == 0 ? r.out : "!";
    }
    std::string request(uint32_t user, const std::string &uuid, const std::string &type) const {
        return tbl({"set", "s_route.l3mac_res", "index.t_user=" + std::to_string(user),
                    "index.uuid=" + uuid, "status=STATUS_REQUEST", "attr.evlan=20",
                    "attr.mac_type=" + type, "attr.mac=00:0a:00:00:00:01"});
    }
    std::string del(uint32_t user, const std::string &uuid) const {
        return tbl({"del", "s_route.l3mac_res", "index.t_user=" + std::to_string(user),
                    "index.uuid=" + uuid});
    }
    int vrrp_rows() const {
        const std::string o = tbl({"dump", "s_route.l3mac_vrrp_hw_res"});
        return o == "!" ? -1 : l3mac_count_of(o, "\n");
    }
    bool logged(const std::string &word, const std::string &func, const std::string &text) const {
        return managed_wait([&] { return l3mac_count_lines(out(), word, func, text) == 1; });
    }

    std::vector<pid_t> pids_;
};

TEST_P(DaemonTest, OneInstanceHoldsTheLockAndServesItsOwnerOnly) {
    const pid_t first = start("1");  // its pid and a zero byte in the file
    EXPECT_EQ(exit_of(start("1", false)), 250);  // -6 as an exit status
    EXPECT_NE(out().find("|\n[/de.res_l3mac.route.ss.pid] check running, rv:-6, "
                         "another process is already running\n\n"), std::string::npos) << out();
    struct stat st;
    ASSERT_EQ(stat(sock().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    // hnx-cmd: 2 for a line the format refuses, 1 for a failed command.
    EXPECT_EQ(cmd({"dump-evlan-mbr", "1"}).status, 2);
    EXPECT_EQ(cmd({"del-mac-user", "1", "nobody"}).status, 1);
    EXPECT_EQ(exit_of(first, SIGTERM), 0);
    const managed_result gone = cmd({"show-cap"});
    EXPECT_EQ(gone.status, 3);
    EXPECT_NE((gone.out + gone.err).find("hnx-l3table-l3mac is not running"), std::string::npos);
}

TEST_P(DaemonTest, LevelFileSetsTheLog) {
    const std::pair<const char *, std::string> cases[] = {
        {"0", ""}, {"x", "\nlevel:7 log_cnt:-1 dbg_info:0\nlevel:ALL log_cnt:-1\n"}};
    for (const auto &[file, status] : cases) {
        SCOPED_TRACE(file);
        EXPECT_EQ(exit_of(start(file), SIGTERM), 0);
        // Level 0 prints neither table nor status (the table service's own
        // lines may come); any other prints the table first, then its status.
        EXPECT_EQ(out().find("\n dbg level                 name\n"),
                  status.empty() ? std::string::npos : 0u) << out();
        EXPECT_EQ(out().find("level:") == std::string::npos, status.empty()) << out();
        EXPECT_NE(out().find(status), std::string::npos) << out();
    }
}

TEST_P(DaemonTest, UnmanagedBoardPublishesSharesAndWithdrawsTheDirectRow) {
    write_caps({false, false, false});
    const pid_t d = start("5");
    ASSERT_NE(request(1, "u1", "L3MAC_VRRP"), "!");
    ASSERT_TRUE(managed_wait([&] { return vrrp_rows() == 1; })) << out();
    EXPECT_NE(tbl({"dump", "s_route.l3mac_vrrp_hw_res"}).find("index.evlan=20"), std::string::npos);
    ASSERT_NE(request(2, "u2", "L3MAC_VRRP"), "!");
    ASSERT_NE(del(1, "u1"), "!");  // the record stays with the second user
    ASSERT_TRUE(logged("IN   ", "l3mac_del_hw_entry", "mac hw user head is not empty\n")) << out();
    EXPECT_EQ(vrrp_rows(), 1);
    ASSERT_NE(del(2, "u2"), "!");
    EXPECT_TRUE(managed_wait([&] { return vrrp_rows() == 0; })) << out();

    ASSERT_NE(request(1, "refused", "L3MAC_MAX"), "!");
    EXPECT_TRUE(logged("WARN ", "l3mac_set_msg_proc", "fail:rv == SS_E_NONE data1:-4 data2:0\n"));
    EXPECT_TRUE(logged("ERROR", "sw_l3mac_user_param_check",
                       "fail:msg->attr.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX "
                       "code:53 data1:5 data2:0\n")) << out();
    EXPECT_EQ(exit_of(d, SIGTERM), 0);
}

INSTANTIATE_TEST_SUITE_P(Stores, DaemonTest, all_store_backends(), store_backend_name);

}  // namespace
