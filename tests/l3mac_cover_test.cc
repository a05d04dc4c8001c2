// l3mac-cover, run as the operator runs it: the batch answers for the known
// sets, the single-set report, and the error exits.
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

struct outcome {
    int status;
    std::string out, err;
};

std::string slurp(const std::string &path) {
    std::stringstream ss;
    ss << std::ifstream(path).rdbuf();
    return ss.str();
}

// Runs the tool with `args` and `input` on standard input.
outcome run_tool(const std::string &args, const std::string &input = "") {
    const std::string tool = std::string(HNX_BIN_DIR) + "/l3mac-cover";
    if (access(tool.c_str(), X_OK) != 0) ADD_FAILURE() << tool << " is not built";
    const std::string dir = testing::TempDir() + "l3mac_cover." + std::to_string(getpid());
    const std::string in = dir + ".in", out = dir + ".out", err = dir + ".err";
    std::ofstream(in) << input;
    const std::string cmd = tool + " " + args + " <" + in + " >" + out + " 2>" + err;
    const int raw = std::system(cmd.c_str());
    outcome o{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
    std::remove(in.c_str());
    std::remove(out.c_str());
    std::remove(err.c_str());
    return o;
}

std::string whole_space(int bits, int level, int digits) {
    std::string line;
    for (int b = 0; b < bits; ++b) {
        char t[32];
        std::snprintf(t, sizeof t, "%s0/0x%0*X/%d", b ? " " : "", digits, 1u << b, level);
        line += t;
    }
    return line;
}

TEST(L3macCoverTool, BatchAnswersEveryKnownSetInOrder) {
    const std::pair<std::string, std::string> rows[] = {
        {"vlan -", "0/0xFFF/0"},
        {"vlan 0", "0/0xFFF/0"},
        {"vlan 4095", "0/0xFFF/0"},
        {"vlan 4094", "4094/0xFFF/0 0/0xFFF/0"},
        {"vlan 5", "5/0xFFF/0 0/0xFFF/0"},
        {"vlan 1", "0/0xFFE/1"},
        {"vlan 2", "0/0xFFD/1"},
        {"vlan 1,2", "0/0xFFD/1 0/0xFFE/1"},
        {"vlan 1-3", "0/0xFFC/2"},
        {"vlan 1-7", "0/0xFF8/3"},
        {"vlan 1-15", "0/0xFF0/4"},
        {"vlan 2,3", "2/0xFFE/1 0/0xFFD/1"},
        {"vlan 4,5", "4/0xFFE/1 0/0xFFB/1"},
        {"vlan 5,7", "0/0xFFF/0 5/0xFFD/1"},
        {"vlan 4-7", "0/0xFFB/1 4/0xFFC/2"},
        {"vlan 8-15", "0/0xFF7/1 8/0xFF8/3"},
        {"vlan 16-31", "0/0xFEF/1 16/0xFF0/4"},
        {"vlan 100-103", "0/0xFFF/0 100/0xFFC/2"},
        {"vlan 10,11,14,15", "0/0xFFF/0 10/0xFFA/2"},
        {"vlan 3,5,6", "6/0xFFF/0 5/0xFFF/0 3/0xFFF/0 0/0xFFF/0"},
        {"vlan 3,5-7", "0/0xFFF/0 3/0xFFB/1 5/0xFFD/1 6/0xFFE/1"},
        {"vlan 1,2,4,8", "0/0xFF7/1 0/0xFFB/1 0/0xFFD/1 0/0xFFE/1"},
        {"vlan 2047,2048", "2047/0xFFF/0 0/0x7FF/1"},
        {"vlan 1,3,15", "15/0xFFF/0 1/0xFFD/1 0/0xFFE/1"},
        {"vlan 1-3,6,7,9,11,13-15", "9/0xFF9/2 6/0xFF6/2 0/0xFFC/2"},
        {"vlan 1,3,6,7,14", "6/0xFF7/1 6/0xFFE/1 1/0xFFD/1 0/0xFFE/1"},
        {"vlan 1-4094", whole_space(12, 11, 3)},
        {"vfi 1", "0/0x3FFE/1"},
        {"vfi 16382", "16382/0x3FFF/0 0/0x3FFF/0"},
        {"vfi 16383", "0/0x3FFF/0"},
        {"vfi 8192,8193", "8192/0x3FFE/1 0/0x1FFF/1"},
        {"vfi 4096-4099", "0/0x2FFF/1 4096/0x3FFC/2"},
        {"vfi 1-16382", whole_space(14, 13, 4)},
    };
    std::string input, want;
    for (const auto &[line, answer] : rows) {
        input += line + "\n";
        want += answer + "\n";
    }
    const outcome o = run_tool("--batch", input);
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, want);
    EXPECT_EQ(o.err, "");
}

TEST(L3macCoverTool, BadBatchLinesGetAnEmptyAnswerAndStatus2) {
    const outcome o = run_tool("--batch", "vlan 1\nvlan 1-x\nvlx 3\nvfi 16384\nvfi 1\n");
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "0/0xFFE/1\n\n\n\n0/0x3FFE/1\n");
    EXPECT_EQ(o.err,
              "l3mac-cover: line 2: 'x' is not a number\n"
              "l3mac-cover: line 3: expected 'vlan SET' or 'vfi SET'\n"
              "l3mac-cover: line 4: number 16384 is out of range (0-16383)\n");
}

TEST(L3macCoverTool, SingleSetReportsTemplatesWithTheirNumbers) {
    const outcome o = run_tool("100-103");
    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.out,
              "    0  0xFFF  0  0\n"
              "  100  0xFFC  2  100-103\n"
              "4 members + value 0; 2 templates, 1 TCAM entry; "
              "filler template 0 0xFFF 0 takes no TCAM entry\n");
}

TEST(L3macCoverTool, BadSetsAndArgumentsExitWithStatus2) {
    outcome o = run_tool("16384");
    EXPECT_EQ(o.status, 2);
    EXPECT_EQ(o.out, "");
    EXPECT_EQ(o.err, "l3mac-cover: bad set '16384': number 16384 is out of range (0-16383)\n");

    for (const char *args : {"9-7", "1,,2", "", "--vfi", "1 2", "--bogus 1"}) {
        o = run_tool(args);
        EXPECT_EQ(o.status, 2) << args;
        EXPECT_EQ(o.out, "") << args;
        EXPECT_NE(o.err, "") << args;
    }
}

}  // namespace
