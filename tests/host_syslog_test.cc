// The system log's mirror file under the root.
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/printk_syslog.h"

namespace fs = std::filesystem;

namespace {

// "2024-05-01T12:00:00.123 ": 'd' stands for a digit.
bool stamped(const std::string &line) {
    const std::string form = "dddd-dd-ddTdd:dd:dd.ddd ";
    if (line.size() < form.size()) return false;
    for (size_t i = 0; i < form.size(); i++)
        if (form[i] == 'd' ? !isdigit(static_cast<unsigned char>(line[i])) : line[i] != form[i])
            return false;
    return true;
}

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
    std::string text = mirror();
    std::string first = text.substr(0, text.find('\n') + 1);
    std::string second = text.substr(first.size());
    EXPECT_TRUE(stamped(first)) << first;
    EXPECT_TRUE(stamped(second)) << second;
    EXPECT_EQ(first.substr(24), "warning [EFHW][L3MAC_NO_RESOURCE] L3MAC table is full.\n");
    EXPECT_EQ(second.substr(24), "info [EFHW][L3MAC_TEST] 3 entries on tcam2\n");
}

}  // namespace
