// The host capability service: the board profile read by path, its
// refusals that leave the caller's value, and a missing or broken file;
// the check of a profile before a start, and the runtime that refuses one.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/host/cap.h"
#include "platform/host/cap_check.h"
#include "platform/host/hnx_host.h"
#include "platform/libkw_cap.h"
#include "support/l3mac_world.h"

namespace fs = std::filesystem;

namespace {

using said = std::pair<bool, std::string>;

class Cap : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        fs::create_directories(root_ + "/etc/hnx");
    }

    std::string file() const { return root_ + HNX_CAP_FILE; }
    // Writes the profile and runs init; what it says on stderr in *err.
    int init(const std::string &text, std::string *err = nullptr) {
        if (!text.empty()) std::ofstream(file()) << text;
        int rv = 0;
        const std::string said = err_of([&] { rv = libkw_cap_init(nullptr, "hnx-l3table-l3mac"); });
        if (err) *err = said;
        return rv;
    }
    // Whether the runtime of process `name` starts, and what it says.
    static said start(const char *name = "hnx-l3table-l3mac") {
        kw_global *g = nullptr;
        const std::string err = err_of([&] { g = kw_global_init(name, 0); });
        if (g) kw_global_finish(g);
        return {g != nullptr, err};
    }
};

const char *const kStringCap = R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": "4096"}}}})";

// Before a readable file nothing is served. Then each case: path, result,
// and the value read (the caller's 7 when refused). A broken file after a
// good one forgets the good one. (Which value of any profile is read, and
// which left at its default; every init reading the file as it stands, one
// start after another: cap_fuzz, against its own reading of the text.)
TEST_F(Cap, ValuesAreServedByPathFromTheFileAsItStands) {
    std::string err;
    EXPECT_EQ(init("", &err), HNX_CAP_E_NO_FILE);
    EXPECT_NE(err.find(file()), std::string::npos) << err;
    int32_t v = 3;
    uint8_t f = 3;
    EXPECT_EQ(libkw_cap_get_capacity_int32(nullptr, "a/one", &v), HNX_CAP_E_NOT_READY);
    EXPECT_EQ(libkw_cap_get_capacity_bool(nullptr, "a/yes", &f), HNX_CAP_E_NOT_READY);
    EXPECT_EQ(v + f, 6);

    ASSERT_EQ(init(R"({"a": {"text": "2048", "yes": true, "no": false, "one": 1,
                             "big": 3000000000, "min": -2147483648, "max": 2147483647,
                             "under": -2147483649}})"), 0);
    const struct { const char *path; bool flag; int rv; int64_t want; } cases[] = {
        {"a/min", false, 0, INT32_MIN}, {"a/max", false, 0, INT32_MAX}, {"a/no", true, 0, 0},
        {"a/text", false, HNX_CAP_E_TYPE, 7}, {"a/yes", false, HNX_CAP_E_TYPE, 7},
        {"a/big", false, HNX_CAP_E_TYPE, 7},  {"a/under", false, HNX_CAP_E_TYPE, 7},
        {"a/one", true, HNX_CAP_E_TYPE, 7},   {"a", false, HNX_CAP_E_TYPE, 7},
        {"a/none", false, HNX_CAP_E_NO_VALUE, 7}, {"b/none", true, HNX_CAP_E_NO_VALUE, 7},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        v = f = 7;
        EXPECT_EQ(c.flag ? libkw_cap_get_capacity_bool(nullptr, c.path, &f)
                         : libkw_cap_get_capacity_int32(nullptr, c.path, &v), c.rv);
        EXPECT_EQ(c.flag ? f : v, c.want);
    }

    EXPECT_EQ(init(R"({"a": {"one": 1,}})", &err), HNX_CAP_E_BAD_FILE);
    EXPECT_NE(err.find(file() + " is not valid JSON: "), std::string::npos) << err;
    EXPECT_NE(err.find("parse error"), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_EQ(libkw_cap_get_capacity_int32(nullptr, "a/min", &v), HNX_CAP_E_NOT_READY);
}

const hnx_cap_schema &daemon_schema() { return hnx_cap_schema_of("hnx-l3table-l3mac"); }

// Each case: the text, the faults and warnings after "capability profile
// F" (in schema order), and the value shown for tcam-cap.
TEST(CapCheck, FaultsAndWarningsNameTheFileThePositionOrTheKey) {
    const struct {
        const char *text;
        std::vector<std::string> errors, warnings;
        std::string tcam_cap;
    } cases[] = {
        {R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 2048, "algo": -1},
             "ability": {"tcam2-en": false, "compact-cover": true}}},
             "s_bridge": {"ebridge": {"capacity": {"evlan_num": 2147483647}}}})", {}, {}, "2048"},
        {"{}", {}, {}, ""},
        {"{\n  \"s_route\": {\"l3mac\": 1,}\n}",
         {" is not valid JSON at line 2, column 26: syntax error while parsing object key - "
          "unexpected '}'; expected string literal"}, {}, ""},
        {"\"x\"", {": the top is a JSON string, not an object"}, {}, ""},
        {R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 12.0, "tcam2-cap": null,
             "rsvd-size": -2147483649}, "ability": {"is-mng": 0}}},
             "s_bridge": {"ebridge": []}})",
         {": s_route/l3mac/capacity/tcam-cap is 12.0, not a whole number",
          ": s_route/l3mac/capacity/tcam2-cap is null, not an integer",
          ": s_route/l3mac/capacity/rsvd-size is -2147483649, beyond a 32-bit integer",
          ": s_bridge/ebridge is an array ([]), not an object of keys",
          ": s_route/l3mac/ability/is-mng is a number (0), not true or false"}, {}, "12.0"},
        {R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 4, "tcam_cap": 8, "x": {"y": 1}},
             "l3mac-dec-cnt": 3, "abilities": {}}, "l3intf": {"other": true}}, "s_other": {}})",
         {},
         {": unknown key s_route/l3mac/capacity/tcam_cap, ignored (did you mean "
          "s_route/l3mac/capacity/tcam-cap?)",
          ": unknown key s_route/l3mac/capacity/x, ignored",
          ": unknown key s_route/l3mac/l3mac-dec-cnt, ignored (did you mean "
          "s_route/l3intf/capacity/l3mac-dec-cnt?)",
          ": unknown key s_route/l3mac/abilities, ignored (did you mean s_route/l3mac/ability?)"},
         "4"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const hnx_cap_findings f = hnx_cap_check_text("F", c.text, daemon_schema());
        auto headed = [](std::vector<std::string> v) {
            for (std::string &s : v) s = "capability profile F" + s;
            return v;
        };
        EXPECT_EQ(f.errors, headed(c.errors));
        const std::vector<std::string> warned = headed(c.warnings);
        EXPECT_EQ(std::multiset<std::string>(f.warnings.begin(), f.warnings.end()),
                  std::multiset<std::string>(warned.begin(), warned.end()));
        if (f.values.size() == daemon_schema().keys.size()) {
            EXPECT_EQ(f.values[1].first, "s_route/l3mac/capacity/tcam-cap");
            EXPECT_EQ(f.values[1].second, c.tcam_cap);
        }
    }
    EXPECT_EQ(daemon_schema().keys.size(), 11u);
    EXPECT_TRUE(hnx_cap_schema_of("hnx-tbl").keys.empty());
}

// The runtime of the daemon is refused on a bad profile, with one line;
// a missing file, a typo's warning and a process that reads no profile
// start as before.
TEST_F(Cap, TheDaemonsRuntimeIsRefusedOnABadProfileOnly) {
    EXPECT_EQ(start(), said(true, ""));  // no file
    std::ofstream(file()) << kStringCap;
    EXPECT_EQ(start(), said(false, "hnx-l3table-l3mac: capability profile " + file() +
                                       ": s_route/l3mac/capacity/tcam-cap is a string (\"4096\"), "
                                       "not an integer; not started: mend the file (hnx-l3mac-check "
                                       "--profile " + file() + " lists every fault) or remove it to "
                                       "start on the built-in defaults\n"));
    EXPECT_EQ(start("hnx-tbl"), said(true, ""));
    std::ofstream(file()) << R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 4096, "cap": 1}}}})";
    // A start again over the same text says the same; a changed file is
    // checked afresh.
    for (int again = 0; again < 2; again++)
        EXPECT_EQ(start(), said(true, "hnx-l3table-l3mac: capability profile " + file() +
                                          ": unknown key s_route/l3mac/capacity/cap, ignored\n"));
    std::ofstream(file()) << kStringCap;
    EXPECT_FALSE(start().first);
}

// A harness's profile in memory stands for the file, for the start check
// and the service alike, until the file is given back.
TEST_F(Cap, AGivenProfileStandsForTheFile) {
    auto tcam_cap = [] {
        int32_t v = -1;
        libkw_cap_get_capacity_int32(nullptr, "s_route/l3mac/capacity/tcam-cap", &v);
        return v;
    };
    hnx_host_set_profile(R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 64}}}})");
    ASSERT_EQ(init(""), 0);  // no file at all
    EXPECT_EQ(tcam_cap(), 64);
    ASSERT_EQ(init(R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 128}}}})"), 0);
    EXPECT_EQ(tcam_cap(), 64);
    hnx_host_set_profile(kStringCap);
    const said refused = start();
    EXPECT_FALSE(refused.first);
    EXPECT_NE(refused.second.find("s_route/l3mac/capacity/tcam-cap is a string (\"4096\")"),
              std::string::npos) << refused.second;
    hnx_host_set_profile(std::nullopt);
    EXPECT_TRUE(start().first);
    std::string err;
    EXPECT_EQ(init("", &err), HNX_CAP_E_NO_FILE);
    EXPECT_EQ(err, "hnx: no capability profile given\n");
    hnx_host_profile_from_file();
    ASSERT_EQ(init(""), 0);
    EXPECT_EQ(tcam_cap(), 128);
}

}  // namespace
