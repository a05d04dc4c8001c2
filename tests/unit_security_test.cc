// The systemd unit as systemd itself rates it: an exposure of 3.0 or lower
// by `systemd-analyze security`, where the machine has it, and no restart
// loop on the exits that a restart cannot mend.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

const std::string kUnit = std::string(HNX_SOURCE_DIR) + "/packaging/hnx-l3table-l3mac.service";

std::string run_out(const std::string &cmd) {
    std::string out;
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    pclose(p);
    return out;
}

TEST(Unit, ExposureIsAtMost3) {
    if (std::system("command -v systemd-analyze >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no systemd-analyze on this machine";
    const std::string out =
        run_out("systemd-analyze security --offline=true --no-pager " + kUnit + " 2>&1");
    const std::string head = "Overall exposure level for hnx-l3table-l3mac.service: ";
    const size_t at = out.find(head);
    ASSERT_NE(at, std::string::npos) << out;
    const double exposure = std::stod(out.substr(at + head.size()));
    EXPECT_LE(exposure, 3.0) << out;
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
