// The switch's system log on a host: syslog(3), mirrored line by line into
// <root>/var/log/hnx.log for hosts and tests without a syslog daemon.
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <syslog.h>
#include <unistd.h>

#include "platform/host/hnx_host.h"
#include "platform/printk_syslog.h"

namespace {

constexpr const char *kIdent = "hnx-l3table-l3mac";
constexpr const char *kMirror = "/var/log/hnx.log";
constexpr const char *kLevels[] = {"emerg", "alert", "crit", "err",
                                   "warning", "notice", "info", "debug"};

void open_once() {
    static const bool opened = [] {
        openlog(kIdent, LOG_PID, LOG_DAEMON);
        return true;
    }();
    (void)opened;
}

std::string format_message(const char *fmt, va_list ap) {
    va_list again;
    va_copy(again, ap);
    int n = std::vsnprintf(nullptr, 0, fmt, ap);
    std::string text(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(text.data(), text.size() + 1, fmt, again);
    va_end(again);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

// Local time with milliseconds: 2024-05-01T12:00:00.123
std::string time_stamp() {
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    tm local;
    localtime_r(&ts.tv_sec, &local);
    char buf[40];
    size_t n = std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &local);
    std::snprintf(buf + n, sizeof buf - n, ".%03ld", ts.tv_nsec / 1000000);
    return buf;
}

// One write of the whole line, in append mode, so that lines of several
// processes never mix.
int append_mirror(int level, const std::string &line) {
    std::filesystem::path path = hnx_host_path(kMirror);
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return -11;
    std::string text = time_stamp() + " " + kLevels[level] + " " + line + "\n";
    ssize_t n = write(fd, text.data(), text.size());
    close(fd);
    return n == static_cast<ssize_t>(text.size()) ? 0 : -11;
}

}  // namespace

int printk_syslog_lc(int level, const char *tag, const char *id, const char *fmt, ...) {
    if (level < LOG_EMERG || level > LOG_DEBUG || fmt == nullptr) {
        std::fprintf(stderr, "hnx: system log message refused: level %d%s\n", level,
                     fmt ? "" : ", no text");
        return -4;
    }
    va_list ap;
    va_start(ap, fmt);
    std::string line = std::string("[") + (tag ? tag : "") + "][" + (id ? id : "") + "] " +
                       format_message(fmt, ap);
    va_end(ap);
    open_once();
    syslog(level, "%s", line.c_str());
    return append_mirror(level, line);
}
