// Programs of the project run from a test under a temporary root: the
// daemon in the background, a tool to completion, a bounded wait on a
// condition, and the test's own code in a forked child.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// `bin` is the build's program folder (HNX_BIN_DIR of the test programs).

// Starts hnx-l3table-l3mac with HNX_ROOT=root and a short timer unit; its
// output goes to <root>/daemon.out. Returns its pid.
pid_t managed_daemon_start(const std::string &bin, const std::string &root);
// Starts <bin>/<prog> with HNX_ROOT=root and the arguments in the
// background; its output goes to the file `out` and `out`.err. Returns its
// pid.
pid_t managed_start(const std::string &bin, const std::string &root, const std::string &prog,
                    const std::vector<std::string> &args, const std::string &out);
// SIGKILL, then waits for it. No-op for pid 0.
void managed_daemon_kill(pid_t &pid);

struct managed_result {
    int status = -1;  // the exit status; -1 when it did not end normally
    std::string out, err;
};

// Runs <bin>/<prog> with HNX_ROOT=root, the arguments, and `input` on its
// standard input, to completion. Its files are <root>/<prog>.out and .err.
managed_result managed_run(const std::string &bin, const std::string &root, const std::string &prog,
                           const std::vector<std::string> &args, const std::string &input = "");

// Runs `command` with /bin/sh to its end: its exit status (-1 when it did
// not end normally) and its standard output.
managed_result managed_shell(const std::string &command);

// Runs <bin>/<prog> --root root with the arguments, as managed_run does.
inline managed_result managed_tool(const std::string &bin, const std::string &root,
                                   const std::string &prog, std::vector<std::string> args,
                                   const std::string &input = "") {
    args.insert(args.begin(), {"--root", root});
    return managed_run(bin, root, prog, args, input);
}

// Runs hnx-tbl --root root with the arguments; its exit status.
inline int managed_tbl(const std::string &bin, const std::string &root,
                       std::vector<std::string> args) {
    return managed_tool(bin, root, "hnx-tbl", args).status;
}

// A folder of this test process's own, <TempDir>/<prefix>-<pid>: ctest
// runs the cases as parallel processes, and a tool's output files must not
// be shared between them. It goes when the process ends.
const std::string &managed_scratch(const char *prefix);

// The whole of a file; "" when there is none.
std::string managed_slurp(const std::string &path);

// Polls `cond` until it holds or `limit` has passed. True when it held.
bool managed_wait(const std::function<bool()> &cond,
                  std::chrono::milliseconds limit = std::chrono::seconds(20));

// Runs `fn` in a forked child, which then exits 0.
inline pid_t child_start(const std::function<void()> &fn) {
    const pid_t pid = fork();
    if (pid == 0) fn(), _exit(0);
    return pid;
}

// The child's exit status after a bounded wait; -1 when it had to be killed
// or did not exit.
inline int child_wait(pid_t pid) {
    int status = 0;
    if (!managed_wait([&] { return waitpid(pid, &status, WNOHANG) == pid; })) {
        kill(pid, SIGKILL), waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline int child_status(const std::function<void()> &fn) { return child_wait(child_start(fn)); }
