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
// counts the rows left, unless `count` is false.
load_result load_at(const std::string &root, const std::string &args, bool count = true) {
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
    if (!count) return r;
    r.left_requests = rows_of(root, "s_route.l3mac_res");
    r.left_entries = rows_of(root, "s_route.l3mac_hw_res");
    return r;
}

std::string fresh_root() {
    char tmpl[] = "/tmp/hnx-load-test.XXXXXX";
    return mkdtemp(tmpl);
}

// Runs hnx-load under a fresh root with a daemon of its own.
load_result run_load(const std::string &args, const std::string &cap = kCap) {
    const std::string root = fresh_root();
    load_result r = load_at(root, args + " --daemon " + kBin + "/hnx-l3table-l3mac --cap " + cap);
    std::filesystem::remove_all(root);
    return r;
}

// A root with a daemon of the test's own, on the two-TCAM board.
class LiveRoot : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = fresh_root();
        std::filesystem::create_directories(root_ + "/etc/hnx");
        std::filesystem::copy_file(kCap, root_ + "/etc/hnx/capability.json");
        daemon_ = managed_daemon_start(kBin, root_);
        ASSERT_TRUE(managed_wait([&] {
            return std::filesystem::exists(root_ + "/var/run/hnx/hnx-l3table-l3mac.sock");
        }));
    }
    void TearDown() override {
        managed_daemon_kill(daemon_);
        std::filesystem::remove_all(root_);
    }
    std::string root_;
    pid_t daemon_ = 0;
};

}  // namespace

// 254 VRRP groups, group g on (g mod 4) + 1 VLANs.
TEST(HnxLoad, VrrpFiguresMatchTheTables) {
    load_result r = run_load("vrrp");
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
    // Its rows are gone at the end, and with them the daemon's entries.
    EXPECT_EQ(r.left_requests, 0);
    EXPECT_EQ(r.left_entries, 0);
    EXPECT_EQ(r.said, "hnx-load: the 635 request rows written are deleted\n");
}

// scale2 is what the restart figure of full TCAMs stands on: exactly 4096
// entries in each, every request served, and with the requests unchanged
// across a SIGKILL no entry moves, the hardware side sees nothing, and the
// end of smoothing was seen.
TEST(HnxLoad, Scale2FillsBothTcamsExactly) {
    load_result r = run_load("restart --with scale2 --requests 32768",
                             std::string(HNX_SOURCE_DIR) + "/bench/capability-4096.json");
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.fig["requests"], 32768);
    EXPECT_EQ(r.fig["mac_vlan_pairs"], 32768);
    EXPECT_EQ(r.fig["unresolved"], 0);
    EXPECT_EQ(r.fig["tcam_entries"], 2 * 4096);
    EXPECT_GT(r.fig["restart_smoothing_end_ms"], 0);
    EXPECT_EQ(r.fig["restart_hw_changes"], 0);
    EXPECT_EQ(r.fig["restart_entries_moved"], 0);
}

// Without --daemon a root where none answers is refused before anything
// is written: not even a store is made.
TEST(HnxLoad, ARootWithoutADaemonIsRefusedUntouched) {
    const std::string root = fresh_root();
    const load_result r = load_at(root, "vrrp", false);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.said, "hnx-load: no daemon answers under the root " + root +
                          " (no daemon holds the instance lock " + root +
                          "/var/run/de.res_l3mac.route.ss.pid): start hnx-l3table-l3mac there "
                          "first, or give --daemon to have hnx-load start one\n");
    EXPECT_TRUE(r.fig.empty());
    EXPECT_FALSE(std::filesystem::exists(root + "/var/run/hnx/store-16.db"));
    std::filesystem::remove_all(root);
}

// Kept rows stay (their taking back: VrrpFiguresMatchTheTables).
TEST_F(LiveRoot, TheRowsWrittenAreKeptWhenToldAndNeverTakenOver) {
    load_result r = load_at(root_, "vrrp --keep");
    ASSERT_EQ(r.status, 0) << r.said;
    EXPECT_EQ(r.left_requests, 635);
    EXPECT_EQ(r.said, "hnx-load: 635 request rows kept in s_route.l3mac_res (--keep)\n");

    // The kept rows are another run's now: refused, and left standing.
    r = load_at(root_, "vrrp");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.said.find("already holds 635 rows with keys of this workload (user 4 uuid "
                          "vrrp-1-0, ...)"), std::string::npos) << r.said;
    EXPECT_EQ(r.left_requests, 635);
    // A second daemon under a root that has one is refused too.
    r = load_at(root_, "l3intf --daemon " + kBin + "/hnx-l3table-l3mac");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.said.find("hnx-load: a daemon (pid " + std::to_string(daemon_) + ") already runs"),
              std::string::npos) << r.said;
}

// SIGTERM in the middle of a long churn: the run ends through its clean-up.
TEST_F(LiveRoot, ASignalEndsTheRunWithItsRowsTakenBack) {
    const pid_t load = managed_start(
        kBin, root_, "hnx-load",
        {"--root", root_, "churn", "--rate", "200", "--secs", "60", "--macs", "10"},
        root_ + "/load.out");
    ASSERT_TRUE(managed_wait([&] { return rows_of(root_, "s_route.l3mac_res") > 0; }));
    kill(load, SIGTERM);
    EXPECT_EQ(child_wait(load), 128 + SIGTERM);
    EXPECT_EQ(rows_of(root_, "s_route.l3mac_res"), 0);
    const std::string said =
        managed_slurp(root_ + "/load.out") + managed_slurp(root_ + "/load.out.err");
    EXPECT_NE(said.find("request rows written are deleted"), std::string::npos) << said;
    EXPECT_NE(said.find("hnx-load: stopped by signal 15\n"), std::string::npos) << said;
}
