// The system log's mirror file under the root.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/printk_syslog.h"

namespace fs = std::filesystem;

namespace {

class Syslog : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/hnx-syslog-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        hnx_host_set_root(root_);
    }
    void TearDown() override { fs::remove_all(root_); }
    std::string mirror() const {
        std::ifstream in(root_ + "/var/log/hnx.log");
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    std::string root_;
};

TEST_F(Syslog, EachMessageAppendsOneStampedLine) {
    EXPECT_EQ(printk_syslog_lc(4, "EFHW", "L3MAC_NO_RESOURCE", "L3MAC table is full."), 0);
    EXPECT_EQ(printk_syslog_lc(6, "EFHW", "L3MAC_TEST", "%d entries on %s\n", 3, "tcam2"), 0);
    std::regex line(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3} )");
    std::string text = mirror();
    EXPECT_TRUE(std::regex_search(text, line)) << text;
    std::string first = text.substr(0, text.find('\n') + 1);
    EXPECT_EQ(first.substr(24), "warning [EFHW][L3MAC_NO_RESOURCE] L3MAC table is full.\n");
    std::string second = text.substr(first.size());
    EXPECT_EQ(second.substr(24), "info [EFHW][L3MAC_TEST] 3 entries on tcam2\n");
}

TEST_F(Syslog, AMirrorThatCannotBeWrittenGivesACode) {
    std::ofstream(root_ + "/var") << "a file where a directory should be";
    EXPECT_NE(printk_syslog_lc(4, "EFHW", "L3MAC_NO_RESOURCE", "L3MAC table is full."), 0);
    testing::internal::CaptureStderr();
    EXPECT_NE(printk_syslog_lc(9, "EFHW", "X", "bad level"), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("level 9"), std::string::npos);
}

}  // namespace
