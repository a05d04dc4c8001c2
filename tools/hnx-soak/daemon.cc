// The daemon under the soak: started with a small timer unit, killed
// without warning, asked over its debug socket whether it is up, and the
// checker run on its store.
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/host/ssat_client.h"
#include "cli.h"
#include "soak.h"

namespace {

constexpr const char *kModule = "hnx-l3table-l3mac";

bool soak_alive(pid_t pid) {
    int status;
    return pid > 0 && waitpid(pid, &status, WNOHANG) == 0;
}

}  // namespace

pid_t soak_daemon_start(const soak_opts &o) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    setenv("HNX_ROOT", o.root.c_str(), 1);
    setenv("HNX_TIMER_UNIT_MS", std::to_string(o.unit_ms).c_str(), 1);
    const int fd = open((o.root + "/daemon.log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) {
        dup2(fd, STDOUT_FILENO);
        dup2(fd, STDERR_FILENO);
        close(fd);
    }
    const std::string prog = cli_daemon_near(o.bin);
    execl(prog.c_str(), prog.c_str(), static_cast<char *>(nullptr));
    _exit(127);
}

void soak_daemon_kill(pid_t &pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    int status;
    waitpid(pid, &status, 0);
    pid = 0;
}

void soak_daemon_stop(pid_t &pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    for (int i = 0; i < 500 && soak_alive(pid); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (soak_alive(pid)) soak_daemon_kill(pid);
    pid = 0;
}

bool soak_daemon_ready(pid_t pid, std::chrono::milliseconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    while (soak_alive(pid)) {
        ssat_reply reply;
        std::string err;
        if (ssat_client_call(ssat_sock_path(kModule), "check-memory", &reply, &err, 10) ==
                SSAT_CALL_OK && reply.ran)
            return true;
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

int soak_run_checker(const soak_opts &o, std::vector<std::string> *lines) {
    const std::string cmd = "'" + o.bin + "/hnx-l3mac-check' --root '" + o.root +
                            "' --restarted --quiet 2>&1";
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) return -1;
    std::array<char, 4096> buf;
    while (std::fgets(buf.data(), buf.size(), p)) {
        std::string line = buf.data();
        if (!line.empty() && line.back() == '\n') line.pop_back();
        lines->push_back(line);
    }
    const int status = pclose(p);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
