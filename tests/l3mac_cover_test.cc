// l3mac-cover, run as the operator runs it: the batch answers for the known
// sets, the single-set report, and the error exits.
#include <cstdio>

#include <gtest/gtest.h>

#include "support/cover_cases.h"
#include "support/managed_proc.h"

namespace {

// Runs the tool with `args` and `input` on standard input.
managed_result run_tool(std::vector<std::string> args, const std::string &input = "") {
    return managed_run(HNX_BIN_DIR, testing::TempDir(), "l3mac-cover", args, input);
}

// The batch line of a known set: "vlan 1-3,6" ("-" when empty).
std::string batch_line(const known_case &c) {
    std::string set;
    for (auto [lo, hi] : c.set)
        set += (set.empty() ? "" : ",") + std::to_string(lo) + (lo == hi ? "" : "-" + std::to_string(hi));
    return (c.vfi ? "vfi " : "vlan ") + (set.empty() ? "-" : set);
}

// Its answer: "key/0xMASK/level" for each template, in order.
std::string batch_answer(const known_case &c) {
    std::string line;
    for (auto [key, mask, level] : c.want) {
        char t[40];
        std::snprintf(t, sizeof t, "%s%u/0x%0*X/%d", line.empty() ? "" : " ", key, c.vfi ? 4 : 3, mask, level);
        line += t;
    }
    return line;
}

TEST(L3macCoverTool, BatchAnswersEveryKnownSetInOrder) {
    std::string input, want;
    for (const known_case &c : KNOWN) {
        if (!c.vfi && c.set.size() > 0 && c.set.back().second > 4095) continue;  // no such VLAN line
        input += batch_line(c) + "\n";
        want += batch_answer(c) + "\n";
    }
    const managed_result o = run_tool({"--batch"}, input);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, want);
    EXPECT_EQ(o.err, "");
}

TEST(L3macCoverTool, BadBatchLinesGetAnEmptyAnswerAndStatus2) {
    const managed_result o = run_tool({"--batch"}, "vlan 1\nvlan 1-x\nvlx 3\nvfi 16384\nvfi 1\n");
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "0/0xFFE/1\n\n\n\n0/0x3FFE/1\n");
    EXPECT_EQ(o.err,
              "l3mac-cover: line 2: 'x' is not a number\n"
              "l3mac-cover: line 3: expected 'vlan SET' or 'vfi SET'\n"
              "l3mac-cover: line 4: number 16384 is out of range (0-16383)\n");
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

TEST(L3macCoverTool, BadSetsAndArgumentsExitWithStatus2) {
    managed_result o = run_tool({"16384"});
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err, "l3mac-cover: bad set '16384': number 16384 is out of range (0-16383)\n");

    for (const std::vector<std::string> &args : std::vector<std::vector<std::string>>{
             {"9-7"}, {"1,,2"}, {}, {"--vfi"}, {"1", "2"}, {"--bogus", "1"}}) {
        o = run_tool(args);
        EXPECT_EQ(o.status, 2) << o.err;
        EXPECT_EQ(o.out, "");
        EXPECT_NE(o.err, "");
    }
}

}  // namespace
