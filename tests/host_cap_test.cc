// The host capability service: the board profile read by path, its
// refusals that leave the caller's value, and a missing or broken file.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/host/cap.h"
#include "platform/host/hnx_host.h"
#include "platform/libkw_cap.h"

namespace fs = std::filesystem;

namespace {

class Cap : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/hnx-cap-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        hnx_host_set_root(root_);
        fs::create_directories(root_ + "/etc/hnx");
    }
    void TearDown() override { fs::remove_all(root_); }

    std::string file() const { return root_ + HNX_CAP_FILE; }
    // Writes the profile and runs init; what it says on stderr in *err.
    int init(const std::string &text, std::string *err = nullptr) {
        if (!text.empty()) std::ofstream(file()) << text;
        ::testing::internal::CaptureStderr();
        const int rv = libkw_cap_init(nullptr, "hnx-l3table-l3mac");
        const std::string said = ::testing::internal::GetCapturedStderr();
        if (err) *err = said;
        return rv;
    }
    std::string root_;
};

// Each case: path, result, and the value read (the caller's 7 when refused).
TEST_F(Cap, ValuesAreServedByPathAndRefusalsLeaveTheCallersValue) {
    ASSERT_EQ(init(R"({"a": {"text": "2048", "real": 2048.5, "yes": true, "no": false, "one": 1,
                             "big": 3000000000, "neg": -5, "min": -2147483648,
                             "max": 2147483647, "under": -2147483649, "null": null}})"), 0);
    const struct { const char *path; bool flag; int rv; int64_t want; } cases[] = {
        {"a/neg", false, 0, -5}, {"a/min", false, 0, INT32_MIN}, {"a/max", false, 0, INT32_MAX},
        {"a/yes", true, 0, 1}, {"a/no", true, 0, 0},
        {"a/text", false, HNX_CAP_E_TYPE, 7}, {"a/real", false, HNX_CAP_E_TYPE, 7},
        {"a/yes", false, HNX_CAP_E_TYPE, 7}, {"a/big", false, HNX_CAP_E_TYPE, 7},
        {"a/under", false, HNX_CAP_E_TYPE, 7}, {"a/null", false, HNX_CAP_E_TYPE, 7},
        {"a/one", true, HNX_CAP_E_TYPE, 7}, {"a", false, HNX_CAP_E_TYPE, 7},
        {"a/none", false, HNX_CAP_E_NO_VALUE, 7}, {"b/none", true, HNX_CAP_E_NO_VALUE, 7},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        int32_t v = 7;
        uint8_t f = 7;
        EXPECT_EQ(c.flag ? libkw_cap_get_capacity_bool(nullptr, c.path, &f)
                         : libkw_cap_get_capacity_int32(nullptr, c.path, &v), c.rv);
        EXPECT_EQ(c.flag ? f : v, c.want);
    }
}

TEST_F(Cap, NoFileOrInvalidJsonIsNamedAndLeavesNothingToRead) {
    std::string err;
    EXPECT_EQ(init("", &err), HNX_CAP_E_NO_FILE);
    EXPECT_NE(err.find(file()), std::string::npos) << err;
    int32_t v = 3;
    uint8_t f = 3;
    EXPECT_EQ(libkw_cap_get_capacity_int32(nullptr, "s/n", &v), HNX_CAP_E_NOT_READY);
    EXPECT_EQ(libkw_cap_get_capacity_bool(nullptr, "s/f", &f), HNX_CAP_E_NOT_READY);
    EXPECT_EQ(v + f, 6);

    ASSERT_EQ(init(R"({"s": {"n": 1}})"), 0);
    EXPECT_EQ(init(R"({"s": {"n": 1,}})", &err), HNX_CAP_E_BAD_FILE);  // forgets the earlier one
    EXPECT_NE(err.find(file() + " is not valid JSON: "), std::string::npos) << err;
    EXPECT_NE(err.find("parse error"), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(libkw_cap_get_capacity_int32(nullptr, "s/n", &v), HNX_CAP_E_NOT_READY);
}

}  // namespace
