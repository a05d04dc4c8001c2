// Running the project's programs from tests: see managed_proc.h.
#include "support/managed_proc.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

void redirect(int fd, const std::string &path, int flags) {
    const int f = open(path.c_str(), flags, 0644);
    if (f >= 0) dup2(f, fd), close(f);
}

// `prog` with HNX_ROOT=root and a short timer unit. Standard output goes to
// `out` (the service's log), standard error apart to `out`.err, where the
// host platform's own lines go; `in`, when named, is standard input.
pid_t spawn(const std::string &prog, std::vector<std::string> args, const std::string &root,
            const std::string &out, int flags, const std::string &in = "") {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    setenv("HNX_ROOT", root.c_str(), 1);
    setenv("HNX_TIMER_UNIT_MS", "20", 1);
    redirect(STDOUT_FILENO, out, flags);
    redirect(STDERR_FILENO, out + ".err", flags);
    if (!in.empty()) redirect(STDIN_FILENO, in, O_RDONLY);
    args.insert(args.begin(), prog);
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(prog.c_str(), argv.data());
    _exit(127);
}

}  // namespace

std::string managed_slurp(const std::string &path) {
    std::stringstream ss;
    ss << std::ifstream(path, std::ios::binary).rdbuf();
    return ss.str();
}

pid_t managed_daemon_start(const std::string &bin, const std::string &root) {
    // As on a real system, /var/run is there before the daemon takes its
    // lock in it: without it the daemon ends at once.
    std::error_code ec;
    std::filesystem::create_directories(root + "/var/run", ec);
    return spawn(bin + "/hnx-l3table-l3mac", {}, root, root + "/daemon.out",
                 O_WRONLY | O_CREAT | O_APPEND);
}

pid_t managed_start(const std::string &bin, const std::string &root, const std::string &prog,
                    const std::vector<std::string> &args, const std::string &out) {
    return spawn(bin + "/" + prog, args, root, out, O_WRONLY | O_CREAT | O_TRUNC);
}

void managed_daemon_kill(pid_t &pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = 0;
}

managed_result managed_run(const std::string &bin, const std::string &root, const std::string &prog,
                           const std::vector<std::string> &args, const std::string &input) {
    const std::string out = root + "/" + prog + ".out", in = out + ".in";
    std::ofstream(in) << input;
    const pid_t pid = spawn(bin + "/" + prog, args, root, out, O_WRONLY | O_CREAT | O_TRUNC, in);
    managed_result r;
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) r.status = WEXITSTATUS(status);
    r.out = managed_slurp(out);
    r.err = managed_slurp(out + ".err");
    return r;
}

managed_result managed_shell(const std::string &command) {
    managed_result r;
    FILE *p = popen(command.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) r.out.append(buf, n);
    const int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

bool managed_wait(const std::function<bool()> &cond, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (; !cond(); std::this_thread::sleep_for(std::chrono::milliseconds(10)))
        if (std::chrono::steady_clock::now() > deadline) return false;
    return true;
}

const std::string &managed_scratch(const char *prefix) {
    struct scratch_dir {
        std::string path;
        explicit scratch_dir(const char *p)
            : path(testing::TempDir() + p + "-" + std::to_string(getpid())) {
            std::filesystem::create_directories(path);
        }
        ~scratch_dir() {
            std::error_code ec;
            std::filesystem::remove_all(path, ec);
        }
    };
    static const scratch_dir dir(prefix);
    return dir.path;
}
