// hnx-load against the real daemon under a temporary root: its figures
// agree with the workload and with the tables (not its speed); it loads
// only a daemon that answers, and takes back every row it wrote, also when
// a signal ends it, unless told to keep them.
#include <csignal>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/managed_proc.h"

namespace {

const std::string kBin = HNX_BIN_DIR;
const std::string kCap = std::string(HNX_SOURCE_DIR) + "/examples/capability-two-tcam.json";

struct load_result {
    int status = -1;
    std::map<std::string, double> fig;
    std::string said;         // its own lines ("hnx-load: ...")
    int left_requests = -1;   // rows of s_route.l3mac_res after the run
    int left_entries = -1;    // rows of s_route.l3mac_hw_res after the run
};

// Rows of a table under `root`, by hnx-tbl dump (one line a row).
int rows_of(const std::string &root, const std::string &table) {
    const managed_result r = managed_run(kBin, root, "hnx-tbl", {"--root", root, "dump", table});
    if (r.status != 0) return -1;
    int n = 0;
    for (char c : r.out) n += c == '\n';
    return n;
}

// Runs hnx-load with these arguments under `root`, to its end; then
// counts the rows left (-1: no store).
load_result load_at(const std::string &root, const std::string &args) {
    const std::string cmd = kBin + "/hnx-load --root " + root + " " + args + " 2>&1";
    const managed_result run = managed_shell(cmd);
    load_result r;
    r.status = run.status;
    std::istringstream lines(run.out);
    for (std::string s; std::getline(lines, s);) {
        const size_t colon = s.find(": ");
        if (s.rfind("hnx-load: ", 0) == 0) r.said += s + "\n";
        else if (colon != std::string::npos && s.rfind("workload", 0) != 0)
            r.fig[s.substr(0, colon)] = std::stod(s.substr(colon + 2));
    }
    r.left_requests = rows_of(root, "s_route.l3mac_res");
    r.left_entries = rows_of(root, "s_route.l3mac_hw_res");
    return r;
}

// A root of the test's own on the two-TCAM board; its daemon runs once the
// test starts it.
class HnxLoad : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/hnx-load-test.XXXXXX";
        root_ = mkdtemp(tmpl);
        std::filesystem::create_directories(root_ + "/etc/hnx");
        std::filesystem::copy_file(kCap, root_ + "/etc/hnx/capability.json");
    }
    void TearDown() override {
        managed_daemon_kill(daemon_);
        std::filesystem::remove_all(root_);
    }
    void start() {
        daemon_ = managed_daemon_start(kBin, root_);
        ASSERT_TRUE(managed_wait([&] {
            return std::filesystem::exists(root_ + "/var/run/hnx/hnx-l3table-l3mac.sock");
        }));
    }
    load_result load(const std::string &args) { return load_at(root_, args); }

    std::string root_;
    pid_t daemon_ = 0;
};

}  // namespace

// scale2 is what the restart figure of full TCAMs stands on: exactly 4096
// entries in each, every request served, and with the requests unchanged
// across a SIGKILL no entry moves, the hardware side sees nothing, and the
// end of smoothing was seen. hnx-load starts the daemon (--daemon) here.
TEST_F(HnxLoad, Scale2FillsBothTcamsExactly) {
    load_result r = load("restart --with scale2 --requests 32768 --daemon " + kBin +
                         "/hnx-l3table-l3mac --cap " HNX_SOURCE_DIR "/bench/capability-4096.json");
    ASSERT_EQ(r.status, 0) << r.said;
    EXPECT_EQ(r.fig["requests"], 32768);
    EXPECT_EQ(r.fig["mac_vlan_pairs"], 32768);
    EXPECT_EQ(r.fig["unresolved"], 0);
    EXPECT_EQ(r.fig["tcam_entries"], 2 * 4096);
    EXPECT_GT(r.fig["restart_smoothing_end_ms"], 0);
    EXPECT_EQ(r.fig["restart_hw_changes"], 0);
    EXPECT_EQ(r.fig["restart_entries_moved"], 0);
}

// One root through hnx-load's life: refused untouched while no daemon
// answers; then 254 VRRP groups (group g on (g mod 4) + 1 VLANs) whose
// figures agree with the tables and whose rows it takes back; a churn that
// SIGTERM ends through its clean-up; rows kept when told, which are
// another run's then; and no second daemon.
TEST_F(HnxLoad, ARootThroughFiguresASignalAndKeptRows) {
    load_result r = load("vrrp");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.said, "hnx-load: no daemon answers under the root " + root_ +
                          " (no daemon holds the instance lock " + root_ +
                          "/var/run/de.res_l3mac.route.ss.pid): start hnx-l3table-l3mac there "
                          "first, or give --daemon to have hnx-load start one\n");
    EXPECT_TRUE(r.fig.empty());
    EXPECT_EQ(r.left_requests, -1);  // not even a store is made
    EXPECT_FALSE(std::filesystem::exists(root_ + "/var/run/hnx/store-16.db"));

    start();
    r = load("vrrp");
    ASSERT_EQ(r.status, 0) << r.said;
    double wanted = 0;
    for (int g = 1; g <= 254; g++) wanted += g % 4 + 1;
    EXPECT_EQ(r.fig["requests"], wanted);
    EXPECT_EQ(r.fig["mac_vlan_pairs"], wanted);
    EXPECT_EQ(r.fig["unresolved"], 0);
    double entries = r.fig["tcam_entries"];
    EXPECT_GE(entries, 254);
    EXPECT_LE(entries, wanted);
    EXPECT_EQ(r.fig["l3mac_hw_res_sets"] - r.fig["l3mac_hw_res_dels"], entries);
    EXPECT_EQ(r.fig["l3mac_bak_sets"] - r.fig["l3mac_bak_dels"], entries);
    EXPECT_LE(r.fig["latency_p50_ms"], r.fig["latency_p99_ms"]);
    EXPECT_LE(r.fig["latency_p99_ms"], r.fig["latency_max_ms"]);
    EXPECT_GT(r.fig["latency_max_ms"], 0);
    EXPECT_GT(r.fig["daemon_peak_rss_mb"], 0);
    EXPECT_EQ(r.left_requests, 0);
    EXPECT_EQ(r.left_entries, 0);  // the daemon's entries went with the rows
    EXPECT_EQ(r.said, "hnx-load: the 635 request rows written are deleted\n");

    const pid_t churn = managed_start(
        kBin, root_, "hnx-load",
        {"--root", root_, "churn", "--rate", "200", "--secs", "60", "--macs", "10"},
        root_ + "/load.out");
    ASSERT_TRUE(managed_wait([&] { return rows_of(root_, "s_route.l3mac_res") > 0; }));
    kill(churn, SIGTERM);
    EXPECT_EQ(child_wait(churn), 128 + SIGTERM);
    EXPECT_EQ(rows_of(root_, "s_route.l3mac_res"), 0);
    const std::string said =
        managed_slurp(root_ + "/load.out") + managed_slurp(root_ + "/load.out.err");
    EXPECT_NE(said.find("request rows written are deleted"), std::string::npos) << said;
    EXPECT_NE(said.find("hnx-load: stopped by signal 15\n"), std::string::npos) << said;

    r = load("vrrp --keep");
    ASSERT_EQ(r.status, 0) << r.said;
    EXPECT_EQ(r.left_requests, 635);
    EXPECT_EQ(r.said, "hnx-load: 635 request rows kept in s_route.l3mac_res (--keep)\n");
    r = load("vrrp");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.said.find("already holds 635 rows with keys of this workload (user 4 uuid "
                          "vrrp-1-0, ...)"), std::string::npos) << r.said;
    EXPECT_EQ(r.left_requests, 635);
    r = load("l3intf --daemon " + kBin + "/hnx-l3table-l3mac");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.said.find("hnx-load: a daemon (pid " + std::to_string(daemon_) + ") already runs"),
              std::string::npos) << r.said;
}
