// The systemd unit as systemd itself rates it: an exposure of 3.0 or lower
// by `systemd-analyze security`, where the machine has it, and no restart
// loop on the exits that a restart cannot mend.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/managed_proc.h"

namespace {

const std::string kUnit = std::string(HNX_SOURCE_DIR) + "/packaging/hnx-l3table-l3mac.service";

std::string run_out(const std::string &cmd) { return managed_shell(cmd).out; }

bool have_analyze() { return std::system("command -v systemd-analyze >/dev/null 2>&1") == 0; }

// The exposure that `systemd-analyze security` reports in `out`; 99 when none.
double exposure(const std::string &out) {
    const std::string head = "Overall exposure level for hnx-l3table-l3mac.service: ";
    const size_t at = out.find(head);
    return at == std::string::npos ? 99.0 : std::stod(out.substr(at + head.size()));
}

TEST(Unit, ExposureIsAtMost3) {
    if (!have_analyze()) GTEST_SKIP() << "no systemd-analyze on this machine";
    const std::string out =
        run_out("systemd-analyze security --offline=true --no-pager " + kUnit + " 2>&1");
    EXPECT_LE(exposure(out), 3.0) << out;
}

// The unit with a drop-in for a Redis store, as systemd merges them under
// a root of its own: `systemd-analyze security` of the result.
std::string analyze_with(const std::string &drop_in) {
    char dir[] = "/tmp/hnx-unit-XXXXXX";
    if (!mkdtemp(dir)) return "";
    const std::string root = dir, units = root + "/etc/systemd/system";
    const std::string src = std::string(HNX_SOURCE_DIR) + "/packaging/";
    run_out("mkdir -p " + units + "/hnx-l3table-l3mac.service.d && cp " + kUnit + " " + units +
            "/ && cp " + src + drop_in + " " + units + "/hnx-l3table-l3mac.service.d/");
    const std::string out = run_out("systemd-analyze security --offline=true --no-pager --root=" +
                                    root + " hnx-l3table-l3mac.service 2>&1");
    run_out("rm -rf " + root);
    return out;
}

// A remote store opens the host's network and the Internet families, and
// keeps an allow list; a local socket opens no network. Both stay at 3.0 or
// lower.
TEST(Unit, RedisDropInsOpenOnlyWhatTheStoreNeeds) {
    if (!have_analyze()) GTEST_SKIP() << "no systemd-analyze on this machine";
    // The line that names `what` begins with `mark` (a tick or a cross).
    auto says = [](const std::string &out, const std::string &mark, const std::string &what) {
        const size_t at = out.find(what);
        if (at == std::string::npos) return false;
        const size_t nl = out.rfind('\n', at);
        return out.compare(nl == std::string::npos ? 0 : nl + 1, mark.size(), mark) == 0;
    };
    const std::string remote = analyze_with("redis-remote.conf");
    EXPECT_LE(exposure(remote), 3.0) << remote;
    EXPECT_TRUE(says(remote, "\u2717", "PrivateNetwork=")) << remote;
    EXPECT_TRUE(says(remote, "\u2717", "RestrictAddressFamilies=~AF_(INET|INET6)")) << remote;
    EXPECT_TRUE(says(remote, "\u2717", "IP address allow list with non-localhost entries")) << remote;
    EXPECT_TRUE(says(remote, "\u2713", "RestrictAddressFamilies=~AF_NETLINK")) << remote;
    const std::string local = analyze_with("redis-local.conf");
    EXPECT_LE(exposure(local), 3.0) << local;
    EXPECT_TRUE(says(local, "\u2713", "PrivateNetwork=")) << local;
    EXPECT_TRUE(says(local, "\u2713", "RestrictAddressFamilies=~AF_(INET|INET6)")) << local;
}

// 250: another instance holds the lock; 245: the lock file cannot be
// opened; 239: a broken profile or a store that cannot be opened.
TEST(Unit, ExitsThatARestartCannotMendStopIt) {
    std::stringstream text;
    text << std::ifstream(kUnit).rdbuf();
    EXPECT_NE(text.str().find("\nRestartPreventExitStatus=250 245 239\n"), std::string::npos);
    EXPECT_NE(text.str().find("\nType=notify\n"), std::string::npos);
}

}  // namespace
