// hnx-load against the real daemon under a temporary root: its figures
// agree with the workload and with the tables it leaves (not its speed).
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

const std::string kBin = HNX_BIN_DIR;
const std::string kCap = std::string(HNX_SOURCE_DIR) + "/examples/capability-two-tcam.json";

struct load_result {
    int status = -1;
    std::map<std::string, double> fig;
};

// Runs hnx-load under a fresh root with a daemon of its own.
load_result run_load(const std::string &args, const std::string &cap = kCap) {
    char tmpl[] = "/tmp/hnx-load-test.XXXXXX";
    std::string root = mkdtemp(tmpl);
    std::string cmd = kBin + "/hnx-load --root " + root + " " + args + " --daemon " + kBin +
                      "/hnx-l3table-l3mac --cap " + cap + " 2>&1";
    load_result r;
    FILE *p = popen(cmd.c_str(), "r");
    char line[512];
    while (p && std::fgets(line, sizeof line, p)) {
        std::string s(line);
        size_t colon = s.find(": ");
        if (colon != std::string::npos && s.rfind("workload", 0) != 0)
            r.fig[s.substr(0, colon)] = std::stod(s.substr(colon + 2));
    }
    r.status = p ? pclose(p) : -1;
    std::filesystem::remove_all(root);
    return r;
}

}  // namespace

// 254 VRRP groups, group g on (g mod 4) + 1 VLANs.
TEST(HnxLoad, VrrpFiguresMatchTheTables) {
    load_result r = run_load("vrrp");
    ASSERT_EQ(r.status, 0);
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
}

// Unchanged requests across a SIGKILL: no entry moves, the hardware side
// sees nothing, and the end of smoothing was seen.
TEST(HnxLoad, RestartWithUnchangedRequestsChangesNothing) {
    load_result r = run_load("restart --with vrrp");
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.fig["unresolved"], 0);
    EXPECT_GT(r.fig["restart_smoothing_end_ms"], 0);
    EXPECT_EQ(r.fig["restart_hw_changes"], 0);
    EXPECT_EQ(r.fig["restart_entries_moved"], 0);
}

// scale2 is what the restart figure of full TCAMs stands on: exactly 4096
// entries in each, every request served, and nothing moves across the kill.
TEST(HnxLoad, Scale2FillsBothTcamsExactly) {
    load_result r = run_load("restart --with scale2 --requests 32768",
                             std::string(HNX_SOURCE_DIR) + "/bench/capability-4096.json");
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.fig["requests"], 32768);
    EXPECT_EQ(r.fig["mac_vlan_pairs"], 32768);
    EXPECT_EQ(r.fig["unresolved"], 0);
    EXPECT_EQ(r.fig["tcam_entries"], 2 * 4096);
    EXPECT_EQ(r.fig["restart_hw_changes"], 0);
    EXPECT_EQ(r.fig["restart_entries_moved"], 0);
}

TEST(HnxLoad, BadWorkloadIsRefused) {
    std::string cmd = kBin + "/hnx-load nonsense >/dev/null 2>&1";
    int st = std::system(cmd.c_str());
    EXPECT_EQ(WEXITSTATUS(st), 1);
}
