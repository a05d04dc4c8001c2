// hnx-cmd against the real daemon under a temporary root: the output's last
// line, results told in words, the help, and Tab completion at the prompt
// (run on a pseudo-terminal, as an operator types). Every wait is bounded.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "support/l3mac_world.h"
#include "support/managed_proc.h"

namespace {

const std::string kBin = HNX_BIN_DIR;

class HnxCmd : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        std::filesystem::create_directories(root_ + "/etc/route/debug");
        std::ofstream(root_ + "/etc/route/debug/l3mac.dbg") << "0";
        write_caps({});
        pid_ = managed_daemon_start(kBin, root_);
        ASSERT_TRUE(managed_wait([&] { return cmd({"check-memory"}).status == 0; }));
    }
    void TearDown() override {
        managed_daemon_kill(pid_);
        L3macWorld::TearDown();
    }
    managed_result cmd(std::vector<std::string> words) const {
        words.insert(words.begin(), "hnx-l3table-l3mac");
        return managed_run(kBin, root_, "hnx-cmd", words);
    }

    pid_t pid_ = 0;
};

// What the terminal shows of a prompt session; the session ends at "quit".
std::string prompt_session(const std::string &root, const std::string &typed) {
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        setenv("HNX_ROOT", root.c_str(), 1);
        setenv("TERM", "vt100", 1);
        const std::string prog = kBin + "/hnx-cmd";
        execl(prog.c_str(), prog.c_str(), "hnx-l3table-l3mac", static_cast<char *>(nullptr));
        _exit(127);
    }
    if (pid < 0) return "forkpty failed";
    std::string screen;
    char buf[4096];
    size_t sent = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{master, POLLIN, 0};
        if (poll(&p, 1, 50) > 0) {
            const ssize_t n = read(master, buf, sizeof buf);
            if (n <= 0) break;  // the session ended
            screen.append(buf, static_cast<size_t>(n));
        }
        // One line at a time, each after the prompt that asks for it.
        if (sent < typed.size() &&
            l3mac_count_of(screen, "hnx-l3table-l3mac> ") > l3mac_count_of(typed.substr(0, sent), "\n")) {
            const size_t end = typed.find('\n', sent) + 1;
            if (write(master, typed.data() + sent, end - sent) < 0) break;
            sent = end;
        }
    }
    close(master);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return screen;
}

// A store dump leaves its last line open; the prompt must not land on it.
// A failed command's result comes with its meaning. The help names every
// command with its arguments, its line and its format; one command alone
// by name; an unknown name refused. At the prompt, Tab completes a unique
// start of a command name, also after "help", and leaves an argument as it
// is; the completed lines run.
TEST_F(HnxCmd, OutputResultsHelpAndTabCompletion) {
    managed_result r = cmd({"dump-tcam-db", "-1", "0"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.ends_with("\ndump max count:  -1\ndump cur count:  0\n")) << r.out;
    r = cmd({"del-mac-user", "1", "nobody"});
    EXPECT_EQ(std::tie(r.status, r.err), std::make_tuple(1, "hnx-cmd: result -7: not found\n"));
    r = cmd({"time-dump-l3mac"});
    EXPECT_EQ(std::tie(r.status, r.out, r.err),
              std::make_tuple(1, "\nnot init\n",
                              "hnx-cmd: result -4: invalid input, or a missing store\n"));

    r = cmd({"help"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(r.out.starts_with("commands of hnx-l3table-l3mac ")) << r.out;
    EXPECT_EQ(l3mac_count_of(r.out, "\n    format: \""), 31) << r.out;
    EXPECT_NE(r.out.find("\ndump-evlan-mbr EVLAN EVLAN_MASK IS_VFI\n    list the VLANs (IS_VFI 1: "
                         "the VFI numbers) that a value/mask pair matches\n"
                         "    format: \"evlan=%d, evlan_mask=%d, is_vfi=%d\"\n"),
              std::string::npos) << r.out;
    r = cmd({"help", "time-set-l3mac"});
    EXPECT_EQ(r.out, "time-set-l3mac SIZE\n    dump the ring, then time one decision in SIZE (a "
                     "period, not a size; 0 stops)\n    format: \" size = %d\"\n");
    r = cmd({"help", "nosuch"});
    EXPECT_EQ(std::tie(r.status, r.err),
              std::make_tuple(2, "unknown command \"nosuch\"; \"help\" lists the commands\n"));

    const std::string screen = prompt_session(root_, "check-mem\t\nhelp show-c\t\ndebug 1\t -1\nquit\n");
    EXPECT_NE(screen.find("31 commands"), std::string::npos) << screen;
    EXPECT_NE(screen.find("malloc db = 0"), std::string::npos) << screen;
    EXPECT_NE(screen.find("show-cap\r\n    show the capacity profile"), std::string::npos) << screen;
    EXPECT_NE(screen.find("\r\nlevel:ERROR log_cnt:-1\r\n"), std::string::npos) << screen;
}

}  // namespace
