// Every tool answers its command line in one style: --help on standard
// output with exit 0, --version, and a usage error as one line saying what
// is wrong, then the usage, on standard error with exit 2.
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/managed_proc.h"

namespace {

const std::string &scratch() { return managed_scratch("cli"); }

managed_result run(const std::string &tool, const std::vector<std::string> &args) {
    return managed_run(HNX_BIN_DIR, scratch(), tool, args);
}

std::string first_line(const std::string &text) { return text.substr(0, text.find('\n')); }
std::string second_line(const std::string &text) {
    const size_t at = text.find('\n');
    return at == std::string::npos ? "" : first_line(text.substr(at + 1));
}

class ToolCli : public testing::TestWithParam<const char *> {};

TEST_P(ToolCli, HelpVersionAndAnUnknownOptionInOneStyle) {
    const std::string tool = GetParam();
    managed_result r = run(tool, {"--help"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("Usage: " + tool, 0), 0u) << r.out;
    EXPECT_NE(r.out.find("Exit status: 0 "), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "");

    r = run(tool, {"--version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, tool + " (hnx-l3table-l3mac) 1.0.0\n");

    r = run(tool, {"--no-such-option"});
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

// Mistakes that used to run on, or stop without a word on what was wrong:
// each is a usage error whose first line says what is wrong.
TEST(ToolCliMistakes, EachSaysWhatIsWrong) {
    const struct {
        const char *tool;
        std::vector<std::string> args;
        const char *said;
    } cases[] = {
        {"hnx-soak", {"--seconds", "abc"}, "hnx-soak: --seconds: \"abc\" is not a number"},
        {"hnx-soak", {"--board", "foo"}, "hnx-soak: unknown board \"foo\"; boards: two, copy, direct, one"},
        {"hnx-soak", {"--macs"}, "hnx-soak: --macs needs a value"},
        {"l3mac-cover", {"1", "2"}, "l3mac-cover: one of SET, --batch and --plan, and one SET only"},
        {"hnx-load", {"l3intf", "--batch", "x"}, "hnx-load: bad value \"x\" for --batch"},
        {"hnx-load", {"nonsense"}, "hnx-load: unknown workload nonsense"},
        {"hnx-cmd", {"--root"}, "hnx-cmd: --root needs a DIR"},
    };
    for (const auto &c : cases) {
        const managed_result r = run(c.tool, c.args);
        EXPECT_EQ(r.status, 2) << c.tool << " " << r.err;
        EXPECT_EQ(first_line(r.err), c.said);
    }
}

// The words after the module are its command's, --help among them.
TEST(ToolCliMistakes, HnxCmdLeavesTheCommandsWordsAlone) {
    const managed_result r = run("hnx-cmd", {"--root", scratch(), "no-module", "x", "--help"});
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_EQ(r.out.find("usage:"), std::string::npos);
}

}  // namespace
