// Capture of what a handler prints on standard output: the handlers print
// with printf, so the capture works on the descriptor, not on a stream.
#include "platform/host/ssat_capture.h"

#include <cstdio>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// An anonymous file: no name on disk, gone with its last descriptor. A
// file rather than a pipe, so that a long dump cannot fill a buffer that
// nobody drains while the handler runs.
int anon_file() {
    int fd = memfd_create("ssat-out", MFD_CLOEXEC);
    if (fd >= 0) return fd;
    FILE *f = std::tmpfile();
    if (f == nullptr) return -1;
    fd = dup(fileno(f));
    std::fclose(f);
    return fd;
}

std::string read_all(int fd) {
    std::string text;
    if (lseek(fd, 0, SEEK_SET) < 0) return text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    return text;
}

}  // namespace

bool ssat_capture_stdout(const std::function<int()> &fn, int *rv,
                         std::string *out) {
    std::fflush(stdout);
    int file = anon_file();
    if (file < 0) return false;
    int saved = dup(STDOUT_FILENO);
    if (saved < 0 || dup2(file, STDOUT_FILENO) < 0) {
        if (saved >= 0) close(saved);
        close(file);
        return false;
    }
    *rv = fn();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    *out = read_all(file);
    close(file);
    return true;
}
