// l3mac-cover, run as the operator runs it: the batch answers, the
// single-set report, and the error exits.
#include <cstdio>
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/managed_proc.h"

namespace {

const std::string &scratch() { return managed_scratch("l3mac-cover"); }

// Runs the tool with `args` and `input` on standard input.
managed_result run_tool(std::vector<std::string> args, const std::string &input = "") {
    return managed_run(HNX_BIN_DIR, scratch(), "l3mac-cover", args, input);
}

// The lists themselves are the search's (mask_test, on every known set).
// The batch reads sets of several ranges, and none, and writes each list;
// a bad line, a blank one and a comment get an empty answer, a bad line a
// reason and status 2.
TEST(L3macCoverTool, BatchAnswersEachLineInOrder) {
    const managed_result o = run_tool({"--batch"}, "vlan -\nvlan 3,5-7 # three\nvfi 4096-4099\n"
                                                    "# plan\n\n  \nvlan 1-x\nvlx 3\nvfi 16384\n"
                                                    "vfi 1\nvlan 4000-5000\n");
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "0/0xFFF/0\n0/0xFFF/0 3/0xFFB/1 5/0xFFD/1 6/0xFFE/1\n0/0x2FFF/1 4096/0x3FFC/2\n"
                     "\n\n\n\n\n\n0/0x3FFE/1\n\n");
    EXPECT_EQ(o.err,
              "l3mac-cover: line 7: 'x' is not a number\n"
              "l3mac-cover: line 8: expected 'vlan SET' or 'vfi SET'\n"
              "l3mac-cover: line 9: number 16384 is out of range (0-16383)\n"
              "l3mac-cover: line 11: 4095-5000 not in the VLANs 1-4094, so never covered; VFI "
              "numbers go on a 'vfi SET' line\n");
}

TEST(L3macCoverTool, SingleSetReportsTemplatesWithTheirNumbers) {
    const managed_result o = run_tool({"100-103"});
    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.out,
              "    0  0xFFF  0  0\n"
              "  100  0xFFC  2  100-103\n"
              "4 members + value 0; 2 templates, 1 TCAM entry; "
              "filler template 0 0xFFF 0 takes no TCAM entry\n");
}

// --compact in each mode: the batch's lines, "-" for a cover without
// entries; the report's summary says whether value 0 is matched; the plan
// puts both modes' entries side by side.
TEST(L3macCoverTool, CompactGivesTheCompactCoverInEveryMode) {
    managed_result o = run_tool({"--batch", "--compact"}, "vlan -\nvlan 10-20\nvfi 4096-4099\n");
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, "-\n16/0xFFB/1 10/0xFFA/2 12/0xFFC/2 16/0xFFC/2\n4096/0x3FFC/2\n");

    o = run_tool({"--compact", "4-7"});
    EXPECT_EQ(o.out, "    4  0xFFC  2  4-7\n4 members (value 0 not matched); 1 template, 1 TCAM entry\n");

    const std::string plan = scratch() + "/compact-plan.txt";
    std::FILE *f = std::fopen(plan.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("00:1e:08:00:00:01 2-3001\n00:00:5e:00:01:01 11-14,20\n", f);
    std::fclose(f);
    o = run_tool({"--compact", "--plan", plan});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out,
              "MAC                 space  numbers  entries  compact  set\n"
              "00:00:5e:00:01:01   vlan         5        4        4  11-14,20\n"
              "00:1e:08:00:00:01   vlan      3000       18       11  2-3001\n"
              "total: 2 MACs, 22 TCAM entries, compact 15 (one entry per {MAC, number}: 3005)\n");

    o = run_tool({"--compact", "--compact", "1"});
    EXPECT_EQ(o.status, 2);
}

TEST(L3macCoverTool, BadSetsAndArgumentsExitWithStatus2) {
    managed_result o = run_tool({"16384"});
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err, "l3mac-cover: bad set '16384': number 16384 is out of range (0-16383)\n");

    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"9-7"}, {"1,,2"}, {}, {"--vfi"}, {"--bogus", "1"}}) {
        o = run_tool(args);
        EXPECT_EQ(o.status, 2) << o.err;
        EXPECT_EQ(o.out, "");
        EXPECT_NE(o.err, "");
    }
}

}  // namespace
