// The daemon as the tool sees it: started and killed on request, its pid
// and whether it answers, and its CPU time and memory as /proc reports
// them.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "load.h"
#include "platform/host/hnx_host.h"
#include "platform/host/ssat_client.h"

namespace {

std::string err_path() { return hnx_host_path("/var/log/hnx-load.daemon.err"); }

void redirect(int fd_to, const std::string &path, int flags) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | flags, 0644);
    if (fd < 0) return;
    dup2(fd, fd_to);
    close(fd);
}

int count_lines(const std::string &path, const std::string &needle) {
    std::ifstream in(path);
    std::string line;
    int n = 0;
    while (std::getline(in, line))
        if (line.find(needle) != std::string::npos) n++;
    return n;
}

}  // namespace

// Its standard output and error go to files of the root's log folder.
pid_t load_daemon_start(const load_opts &o) {
    std::error_code ec;
    std::string log_dir = hnx_host_path("/var/log");
    std::filesystem::create_directories(log_dir, ec);
    // The lock's folder, which a store in Redis does not make as a file would.
    std::filesystem::create_directories(hnx_host_path("/var/run"), ec);
    if (!o.cap.empty()) {
        std::string to = hnx_host_path("/etc/hnx/capability.json");
        std::filesystem::create_directories(hnx_host_path("/etc/hnx"), ec);
        std::filesystem::copy_file(o.cap, to, std::filesystem::copy_options::overwrite_existing, ec);
        if (ec) {
            std::fprintf(stderr, "hnx-load: cannot install %s: %s\n", o.cap.c_str(), ec.message().c_str());
            return -1;
        }
    }
    pid_t pid = fork();
    if (pid != 0) return pid;
    if (!hnx_host_root().empty()) setenv("HNX_ROOT", hnx_host_root().c_str(), 1);
    redirect(STDOUT_FILENO, log_dir + "/hnx-load.daemon.out", O_APPEND);
    redirect(STDERR_FILENO, err_path(), O_APPEND);
    execl(o.daemon.c_str(), o.daemon.c_str(), static_cast<char *>(nullptr));
    _exit(127);
}

void load_daemon_kill(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// The holder of the instance lock, asked of the kernel: the pid file's
// content cannot be trusted, since a refused second start empties it. The
// file is opened without creating or truncating it, and no lock is taken.
pid_t load_daemon_pid(const load_opts &) {
    int fd = open(load_lock_path().c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    struct flock lk = {};
    lk.l_type = F_WRLCK;
    lk.l_whence = SEEK_SET;
    const bool held = fcntl(fd, F_GETLK, &lk) == 0 && lk.l_type != F_UNLCK;
    close(fd);
    return held ? std::max<pid_t>(lk.l_pid, 0) : -1;  // 0: a holder in another pid namespace
}

std::string load_lock_path() { return hnx_host_path("/var/run/de.res_l3mac.route.ss.pid"); }

// A daemon holds the lock and its loop answers a command on its socket
// ("help", which changes nothing).
bool load_daemon_answers(const load_opts &o, pid_t *pid, std::string *why) {
    *pid = load_daemon_pid(o);
    if (*pid < 0) {
        *why = "no daemon holds the instance lock " + load_lock_path();
        return false;
    }
    ssat_reply reply;
    std::string err;
    if (ssat_client_call(ssat_sock_path("hnx-l3table-l3mac"), "help", &reply, &err, 5) !=
        SSAT_CALL_OK) {
        *why = "the daemon (pid " + std::to_string(*pid) + ") holds the lock but does not "
               "answer on its command socket: " + err;
        return false;
    }
    return true;
}

bool load_proc_read(pid_t pid, load_proc_stats *out) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    size_t close_paren = text.rfind(')');
    if (close_paren == std::string::npos) return false;
    std::istringstream rest(text.substr(close_paren + 2));
    std::string field;
    unsigned long long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && rest >> field; i++) {
        if (i == 14) utime = std::stoull(field);
        if (i == 15) stime = std::stoull(field);
    }
    out->cpu_secs = double(utime + stime) / double(sysconf(_SC_CLK_TCK));
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) out->peak_rss_mb = std::stod(line.substr(6)) / 1024.0;
        if (line.rfind("VmRSS:", 0) == 0) out->rss_mb = std::stod(line.substr(6)) / 1024.0;
    }
    return true;
}

bool load_wait_smoothed(const load_opts &, int n, double limit) {
    const std::string needle = "s_route.l3mac_vrrp_hw_res: data smoothing ended";
    auto deadline = load_clock::now() + std::chrono::duration<double>(limit);
    while (count_lines(err_path(), needle) < n) {
        if (load_clock::now() > deadline || load_stopped()) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    return true;
}
