// The system log's mirror file under the root: one stamped line a message.
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/printk_syslog.h"

TEST(Syslog, EachMessageAppendsOneStampedLine) {
    char tmpl[] = "/tmp/hnx-syslog-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    hnx_host_set_root(tmpl);
    EXPECT_EQ(printk_syslog_lc(4, "EFHW", "L3MAC_NO_RESOURCE", "L3MAC table is full."), 0);
    EXPECT_EQ(printk_syslog_lc(6, "EFHW", "L3MAC_TEST", "%d entries on %s\n", 3, "tcam2"), 0);
    std::stringstream text;
    text << std::ifstream(std::string(tmpl) + "/var/log/hnx.log").rdbuf();
    const std::string stamp = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3} )";
    EXPECT_TRUE(std::regex_match(text.str(), std::regex(stamp + R"(warning \[EFHW\]\[L3MAC_NO_RESOURCE\] )"
                                                         R"(L3MAC table is full\.\n)" + stamp +
                                                         R"(info \[EFHW\]\[L3MAC_TEST\] 3 entries on tcam2\n)")))
        << text.str();
    std::filesystem::remove_all(tmpl);
}
