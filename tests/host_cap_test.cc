// The host capability service: the board profile read by path, its
// refusals, and the shipped two-TCAM example.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
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
    void write(const std::string &text) { std::ofstream(file()) << text; }

    // init, with what it says on stderr
    int init(std::string *err = nullptr) {
        ::testing::internal::CaptureStderr();
        int rv = libkw_cap_init(nullptr, "hnx-l3table-l3mac");
        std::string text = ::testing::internal::GetCapturedStderr();
        if (err) *err = text;
        return rv;
    }
    static int i32(const char *path, int32_t *v) {
        return libkw_cap_get_capacity_int32(nullptr, path, v);
    }
    static int flag(const char *path, uint8_t *v) {
        return libkw_cap_get_capacity_bool(nullptr, path, v);
    }

    std::string root_;
};

TEST_F(Cap, TwoTcamExampleGivesAllTenValues) {
    fs::copy_file(HNX_SOURCE_DIR "/examples/capability-two-tcam.json", file());
    ASSERT_EQ(init(), 0);
    struct { const char *path; int32_t want; } ints[] = {
        {"s_route/l3mac/capacity/algo", 2},
        {"s_route/l3mac/capacity/tcam-cap", 2048},
        {"s_route/l3mac/capacity/tcam2-cap", 1024},
        {"s_route/l3mac/capacity/rsvd-size", 0},
        {"s_route/l3intf/capacity/l3mac-dec-cnt", 5},
        {"s_bridge/ebridge/capacity/evlan_num", 4096 + 16384},
    };
    for (auto &c : ints) {
        int32_t v = -99;
        EXPECT_EQ(i32(c.path, &v), 0) << c.path;
        EXPECT_EQ(v, c.want) << c.path;
    }
    struct { const char *path; uint8_t want; } flags[] = {
        {"s_route/l3mac/ability/tcam2-en", 1},
        {"s_route/l3mac/ability/is-mng", 1},
        {"s_route/l3mac/ability/is-mng2", 1},
        {"s_route/l3mac/ability/copy-to-tcam2", 0},
    };
    for (auto &c : flags) {
        uint8_t v = 0x55;
        EXPECT_EQ(flag(c.path, &v), 0) << c.path;
        EXPECT_EQ(v, c.want) << c.path;
    }
}

TEST_F(Cap, PartialProfileServesWhatItHolds) {
    write(R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 512}, "ability": {"is-mng": false}}}})");
    ASSERT_EQ(init(), 0);
    int32_t v = -99;
    EXPECT_EQ(i32("s_route/l3mac/capacity/tcam-cap", &v), 0);
    EXPECT_EQ(v, 512);
    uint8_t f = 0x55;
    EXPECT_EQ(flag("s_route/l3mac/ability/is-mng", &f), 0);
    EXPECT_EQ(f, 0);

    v = -99;
    EXPECT_EQ(i32("s_route/l3mac/capacity/tcam2-cap", &v), HNX_CAP_E_NO_VALUE);
    EXPECT_EQ(i32("s_bridge/ebridge/capacity/evlan_num", &v), HNX_CAP_E_NO_VALUE);
    EXPECT_EQ(i32("s_route/l3mac", &v), HNX_CAP_E_TYPE);
    EXPECT_EQ(v, -99);
}

TEST_F(Cap, WrongTypesAndRangesAreRefusedAndLeaveTheValue) {
    write(R"({"a": {"text": "2048", "real": 2048.5, "yes": true, "one": 1,
                    "big": 3000000000, "neg": -5, "min": -2147483648, "max": 2147483647,
                    "under": -2147483649, "null": null}})");
    ASSERT_EQ(init(), 0);
    int32_t v = 7;
    for (const char *p : {"a/text", "a/real", "a/yes", "a/big", "a/under", "a/null"})
        EXPECT_EQ(i32(p, &v), HNX_CAP_E_TYPE) << p;
    EXPECT_EQ(v, 7);
    EXPECT_EQ(i32("a/neg", &v), 0);
    EXPECT_EQ(v, -5);
    uint8_t f = 0xaa;
    EXPECT_EQ(flag("a/one", &f), HNX_CAP_E_TYPE);
    EXPECT_EQ(f, 0xaa);
}

TEST_F(Cap, NoFileLeavesNothingToRead) {
    std::string err;
    EXPECT_EQ(init(&err), HNX_CAP_E_NO_FILE);
    EXPECT_NE(err.find(file()), std::string::npos) << err;
    int32_t v = 3;
    uint8_t f = 3;
    EXPECT_EQ(i32("s_route/l3mac/capacity/tcam-cap", &v), HNX_CAP_E_NOT_READY);
    EXPECT_EQ(flag("s_route/l3mac/ability/is-mng", &f), HNX_CAP_E_NOT_READY);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(f, 3);
}

TEST_F(Cap, InvalidJsonIsNamedAndForgetsTheEarlierProfile) {
    write(R"({"s": {"n": 1}})");
    ASSERT_EQ(init(), 0);
    write(R"({"s": {"n": 1,}})");
    std::string err;
    EXPECT_EQ(init(&err), HNX_CAP_E_BAD_FILE);
    EXPECT_NE(err.find(file() + " is not valid JSON: "), std::string::npos) << err;
    EXPECT_NE(err.find("parse error"), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    int32_t v = 0;
    EXPECT_EQ(i32("s/n", &v), HNX_CAP_E_NOT_READY);
}

}  // namespace
