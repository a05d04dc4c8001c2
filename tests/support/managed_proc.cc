// Running the project's programs from tests: see managed_proc.h.
#include "support/managed_proc.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// `prog` with HNX_ROOT=root and a short timer unit, its output appended to `out`.
pid_t spawn(const std::string &prog, std::vector<std::string> args, const std::string &root,
            const std::string &out) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    setenv("HNX_ROOT", root.c_str(), 1);
    setenv("HNX_TIMER_UNIT_MS", "20", 1);
    // Standard output is the service's log; the host platform's own lines
    // go to standard error, kept apart in `out`.err.
    const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) dup2(fd, STDOUT_FILENO), close(fd);
    const int efd = open((out + ".err").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (efd >= 0) dup2(efd, STDERR_FILENO), close(efd);
    args.insert(args.begin(), prog);
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(prog.c_str(), argv.data());
    _exit(127);
}

}  // namespace

pid_t managed_daemon_start(const std::string &bin, const std::string &root) {
    // As on a real system, /var/run is there before the daemon takes its
    // lock in it: without it the daemon ends at once.
    std::error_code ec;
    std::filesystem::create_directories(root + "/var/run", ec);
    return spawn(bin + "/hnx-l3table-l3mac", {}, root, root + "/daemon.out");
}

void managed_daemon_kill(pid_t &pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = 0;
}

int managed_tbl(const std::string &bin, const std::string &root,
                const std::vector<std::string> &args) {
    std::vector<std::string> all{"--root", root};
    all.insert(all.end(), args.begin(), args.end());
    const pid_t pid = spawn(bin + "/hnx-tbl", all, root, root + "/hnx-tbl.out");
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool managed_wait(const std::function<bool()> &cond, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (; !cond(); std::this_thread::sleep_for(std::chrono::milliseconds(10)))
        if (std::chrono::steady_clock::now() > deadline) return false;
    return true;
}
