// The client side of a module's command socket: one connection, one line,
// one answer (protocol in ssat_proto.h).
#include "platform/host/ssat_client.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/host/ssat_proto.h"

namespace {

// Closes the descriptor on every way out.
struct fd_guard {
    int fd;
    ~fd_guard() {
        if (fd >= 0) close(fd);
    }
};

bool send_all(int fd, std::string_view data) {
    while (!data.empty()) {
        ssize_t n = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

bool recv_all(int fd, std::string *out) {
    char buf[4096];
    for (;;) {
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) return true;
        out->append(buf, static_cast<size_t>(n));
    }
}

void set_timeout(int fd, int seconds) {
    timeval tv{seconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
}

ssat_call_result fail(ssat_call_result r, std::string *err, std::string text) {
    *err = std::move(text);
    return r;
}

}  // namespace

ssat_call_result ssat_client_call(const std::string &path, std::string_view line,
                                  ssat_reply *reply, std::string *err,
                                  int timeout_s) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    if (path.size() >= sizeof a.sun_path)
        return fail(SSAT_CALL_DOWN, err, "socket path too long: " + path);
    std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
    fd_guard g{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (g.fd < 0) return fail(SSAT_CALL_IO, err, std::strerror(errno));
    if (connect(g.fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0)
        return fail(SSAT_CALL_DOWN, err, path + ": " + std::strerror(errno));
    set_timeout(g.fd, timeout_s);
    std::string wire;
    if (!send_all(g.fd, std::string(line) + "\n") || !recv_all(g.fd, &wire))
        return fail(SSAT_CALL_IO, err, std::string("exchange broke off: ") + std::strerror(errno));
    if (!ssat_decode_reply(wire, reply))
        return fail(SSAT_CALL_IO, err, "malformed answer from " + path);
    return SSAT_CALL_OK;
}
