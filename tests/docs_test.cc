// The examples of docs/operations.md, run against a daemon under a temporary
// root, so that the guide stays true: each "$ " line of a block marked
// <!-- example --> is a command, and the block's other lines must appear in
// the commands' output in that order.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "support/managed_proc.h"

namespace {

namespace fs = std::filesystem;

struct example {
    int line = 0;                       // of the guide, for the failure message
    std::vector<std::string> commands;  // without the "$ "
    std::vector<std::string> expected;
};

std::string trim_right(std::string s) { return s.erase(s.find_last_not_of(" \r\t") + 1); }

std::vector<example> read_examples(const std::string &path) {
    std::ifstream in(path);
    std::vector<example> out;
    std::string text;
    bool marked = false, inside = false;
    for (int no = 1; std::getline(in, text); no++) {
        if (inside && text.starts_with("```")) inside = false;
        else if (inside && text.starts_with("$ ")) out.back().commands.push_back(text.substr(2));
        else if (inside) out.back().expected.push_back(trim_right(text));
        else if (marked && text.starts_with("```")) {
            inside = true;
            out.emplace_back();
            out.back().line = no;
        }
        marked = !inside && text == "<!-- example -->";
    }
    return out;
}

// The command's standard output and error, run by the shell in `dir` with
// the project's programs first on the PATH and the root in HNX_ROOT.
std::string run(const std::string &command, const std::string &dir) {
    const std::string path = "PATH='" HNX_BIN_DIR "':$PATH ";
    return managed_shell("cd '" + dir + "' && " + path + command + " 2>&1").out;
}

// An expected line matches an output line exactly, or by its start when it
// ends in "...", for outputs that hold addresses or source lines.
bool matches(const std::string &want, const std::string &got) {
    if (want.ends_with("...")) return got.starts_with(want.substr(0, want.size() - 3));
    return want == got;
}

// The first expected line that is missing from `output` in order; "" when
// all are there.
std::string missing(const std::vector<std::string> &expected, const std::string &output) {
    std::istringstream in(output);
    std::string got;
    size_t at = 0;
    while (at < expected.size() && std::getline(in, got))
        if (matches(expected[at], trim_right(got))) at++;
    return at < expected.size() ? expected[at] : "";
}

class Docs : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = fs::temp_directory_path() / ("l3mac-docs-" + std::to_string(getpid()));
        fs::remove_all(root_);
        for (const char *d : {"etc/hnx", "etc/route/debug", "var/run", "var/log", "work"})
            fs::create_directories(root_ / d);
        fs::copy_file(HNX_SOURCE_DIR "/examples/capability-two-tcam.json",
                      root_ / "etc/hnx/capability.json");
        std::ofstream(root_ / "etc/route/debug/l3mac.dbg") << "1\n";
        setenv("HNX_ROOT", root_.c_str(), 1);
        pid_ = managed_daemon_start(HNX_BIN_DIR, root_);
        ASSERT_TRUE(managed_wait([&] {
            return run("hnx-cmd hnx-l3table-l3mac check-memory", work()).starts_with("malloc db");
        })) << "the daemon does not answer";
    }
    void TearDown() override {
        managed_daemon_kill(pid_);
        unsetenv("HNX_ROOT");
        fs::remove_all(root_);
    }
    std::string work() const { return (root_ / "work").string(); }

    fs::path root_;
    pid_t pid_ = 0;
};

// Blocks run in the guide's order, as a reader would type them. A block's
// last command is a view of what the service did: it alone is run again,
// within a bounded poll, until the output shows what the guide says.
TEST_F(Docs, EveryExampleOfTheOperationsGuideHolds) {
    const std::vector<example> examples = read_examples(HNX_SOURCE_DIR "/docs/operations.md");
    ASSERT_GE(examples.size(), 5u) << "the guide lost its examples";
    for (const example &e : examples) {
        ASSERT_FALSE(e.commands.empty()) << "example at line " << e.line << " has no command";
        std::string before;
        for (size_t i = 0; i + 1 < e.commands.size(); i++) before += run(e.commands[i], work());
        std::string output;
        const bool held = managed_wait(
            [&] {
                output = before + run(e.commands.back(), work());
                return missing(e.expected, output).empty();
            },
            std::chrono::seconds(10));
        EXPECT_TRUE(held) << "example at docs/operations.md:" << e.line << " lacks \""
                          << missing(e.expected, output) << "\"; output:\n" << output;
    }
}

}  // namespace
