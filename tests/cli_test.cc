// Every tool answers its command line in one style: --help on standard
// output with exit 0, --version, and a usage error as one line saying what
// is wrong, then the usage, on standard error with exit 2.
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/managed_proc.h"

namespace {

const std::string &scratch() { return managed_scratch("cli"); }

managed_result run(const std::string &tool, const std::vector<std::string> &args,
                   const std::string &input = "") {
    return managed_run(HNX_BIN_DIR, scratch(), tool, args, input);
}

std::string first_line(const std::string &text) { return text.substr(0, text.find('\n')); }
std::string second_line(const std::string &text) {
    const size_t at = text.find('\n');
    return at == std::string::npos ? "" : first_line(text.substr(at + 1));
}

class ToolCli : public testing::TestWithParam<const char *> {};

TEST_P(ToolCli, HelpGoesToStdoutWithItsExitStatuses) {
    const std::string tool = GetParam();
    const managed_result r = run(tool, {"--help"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("Usage: " + tool, 0), 0u) << r.out;
    EXPECT_NE(r.out.find("Exit status: 0 "), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "");
}

TEST_P(ToolCli, VersionNamesToolAndPackage) {
    const std::string tool = GetParam();
    const managed_result r = run(tool, {"--version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, tool + " (hnx-l3table-l3mac) 1.0.0\n");
}

TEST_P(ToolCli, UnknownOptionIsOneReasonThenUsageWithStatus2) {
    const std::string tool = GetParam();
    const managed_result r = run(tool, {"--no-such-option"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(first_line(r.err).rfind(tool + ": ", 0), 0u) << r.err;
    EXPECT_NE(first_line(r.err).find("--no-such-option"), std::string::npos) << r.err;
    EXPECT_EQ(second_line(r.err).rfind("Usage: " + tool, 0), 0u) << r.err;
}

INSTANTIATE_TEST_SUITE_P(Tools, ToolCli,
                         testing::Values("hnx-tbl", "hnx-cmd", "hnx-load", "hnx-soak",
                                         "hnx-l3mac-check", "l3mac-cover", "l3mac-feed"),
                         [](const testing::TestParamInfo<const char *> &p) {
                             std::string n = p.param;
                             for (char &c : n) c = std::isalnum(uint8_t(c)) ? c : '_';
                             return n;
                         });

// Mistakes that used to run on, or stop without a word on what was wrong.
TEST(ToolCliMistakes, EachSaysWhatIsWrong) {
    managed_result r = run("hnx-soak", {"--seconds", "abc"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(first_line(r.err), "hnx-soak: --seconds: \"abc\" is not a number");

    r = run("hnx-soak", {"--board", "foo"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(first_line(r.err), "hnx-soak: unknown board \"foo\"; boards: two, copy, direct, one");

    r = run("hnx-soak", {"--macs"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(first_line(r.err), "hnx-soak: --macs needs a value");

    r = run("l3mac-cover", {"1", "2"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(first_line(r.err), "l3mac-cover: one of SET, --batch and --plan, and one SET only");

    r = run("hnx-load", {"l3intf", "--batch", "x"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(first_line(r.err), "hnx-load: bad value \"x\" for --batch");

    r = run("hnx-cmd", {"--root"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(first_line(r.err), "hnx-cmd: --root needs a DIR");
}

// The words after the module are its command's, --help among them.
TEST(ToolCliMistakes, HnxCmdLeavesTheCommandsWordsAlone) {
    const managed_result r = run("hnx-cmd", {"--root", scratch(), "no-module", "x", "--help"});
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_EQ(r.out.find("usage:"), std::string::npos);
}

// --batch takes the blank and comment lines that --plan takes, and still
// answers one line for each line read.
TEST(ToolCliMistakes, CoverBatchSkipsBlankAndCommentLines) {
    const managed_result r = run("l3mac-cover", {"--batch"}, "# plan\n\nvlan 1 # one\n  \nvlx 3\n");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "\n\n0/0xFFE/1\n\n\n");
    EXPECT_EQ(r.err, "l3mac-cover: line 5: expected 'vlan SET' or 'vfi SET'\n");
}

}  // namespace
