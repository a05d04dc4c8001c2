// A private redis-server for a test: see redis_server.h.
#include "support/redis_server.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <hiredis/hiredis.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/managed_proc.h"

namespace {

bool answers(const std::string &socket) {
    const timeval tv{0, 200000};
    redisContext *c = redisConnectUnixWithTimeout(socket.c_str(), tv);
    bool ok = false;
    if (c && !c->err) {
        auto *r = static_cast<redisReply *>(redisCommand(c, "PING"));
        ok = r && r->type == REDIS_REPLY_STATUS;
        if (r) freeReplyObject(r);
    }
    if (c) redisFree(c);
    return ok;
}

}  // namespace

bool redis_server_found() { return std::system("command -v redis-server >/dev/null 2>&1") == 0; }

bool redis_server::start(bool appendonly, const std::vector<std::string> &extra) {
    if (running()) return true;
    if (dir_.empty()) {
        char tmpl[] = "/tmp/hnx-redis-XXXXXX";
        if (!mkdtemp(tmpl)) return error_ = "cannot make a folder for redis-server", false;
        dir_ = tmpl;
        socket_ = dir_ + "/redis.sock";
        args_ = {"redis-server", "--port", "0", "--unixsocket", socket_, "--unixsocketperm",
                 "700", "--dir", dir_, "--save", "", "--appendonly", appendonly ? "yes" : "no",
                 "--logfile", dir_ + "/redis.log", "--daemonize", "no"};
        args_.insert(args_.end(), extra.begin(), extra.end());
    }
    const pid_t pid = fork();
    if (pid == 0) {
        std::vector<char *> argv;
        for (std::string &a : args_) argv.push_back(a.data());
        argv.push_back(nullptr);
        execvp("redis-server", argv.data());
        _exit(127);
    }
    if (pid < 0) return error_ = "cannot fork", false;
    pid_ = pid;
    int status = 0;
    if (managed_wait([&] { return answers(socket_) || waitpid(pid_, &status, WNOHANG) == pid_; }) &&
        answers(socket_))
        return true;
    error_ = "redis-server did not answer on " + socket_ + " (see " + dir_ + "/redis.log)";
    stop(true);
    return false;
}

void redis_server::stop(bool hard) {
    if (pid_ > 0) {
        kill(pid_, hard ? SIGKILL : SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = 0;
    }
}

redis_server::~redis_server() {
    stop(true);
    std::error_code ec;
    if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
}

std::string redis_server::command(const std::vector<std::string> &args) const {
    const timeval tv{2, 0};
    redisContext *c = redisConnectUnixWithTimeout(socket_.c_str(), tv);
    if (!c || c->err) {
        if (c) redisFree(c);
        return "ERR cannot connect";
    }
    std::vector<const char *> argv;
    std::vector<size_t> lens;
    for (const std::string &a : args) argv.push_back(a.data()), lens.push_back(a.size());
    auto *r = static_cast<redisReply *>(
        redisCommandArgv(c, int(argv.size()), argv.data(), lens.data()));
    std::string out = "ERR no reply";
    if (r && r->type == REDIS_REPLY_INTEGER) out = std::to_string(r->integer);
    else if (r && r->type == REDIS_REPLY_NIL) out = "(nil)";
    else if (r && r->str) out = std::string(r->str, r->len);
    else if (r) out = "(array of " + std::to_string(r->elements) + ")";
    if (r) freeReplyObject(r);
    redisFree(c);
    return out;
}
