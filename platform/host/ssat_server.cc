// The command socket of one module, on the runtime's libuv loop. Each
// connection carries one line; the handler runs inside the read callback,
// so commands run on the event thread one at a time by construction.
//
// The path belongs to whoever holds the lock file beside it: a process
// killed a moment ago may still have its socket open while its successor
// starts, and that socket must not keep the successor off the path.
// Connections are bounded in number and in time, so that clients that
// never send or never read cannot hold the daemon's memory.
#include "platform/host/ssat_server.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "platform/host/ssat_host.h"
#include "platform/host/ssat_proto.h"
#include "platform/ssat.h"

struct ssat_server {
    uv_pipe_t pipe;
    std::string module;
    std::string path;
    int lock_fd = -1;                     // the path's lock, held while serving
    std::shared_ptr<int> open_conns;      // shared with the connections, which may outlive it
};

namespace {

struct ssat_conn {
    uv_pipe_t pipe;
    uv_timer_t timer;  // the connection's whole life: read, run, write
    uv_write_t write;
    std::string module;
    std::string in;
    std::string out;
    std::shared_ptr<int> open_conns;
    int handles = 0;  // pipe and timer not yet closed
    char buf[1024];
};

ssat_conn *conn_of(void *handle) {
    return static_cast<ssat_conn *>(static_cast<uv_handle_t *>(handle)->data);
}

void conn_handle_closed(uv_handle_t *h) {
    ssat_conn *c = conn_of(h);
    if (--c->handles > 0) return;
    --*c->open_conns;
    delete c;
}

void close_conn(ssat_conn *c) {
    auto *pipe = reinterpret_cast<uv_handle_t *>(&c->pipe);
    if (uv_is_closing(pipe)) return;
    uv_close(pipe, conn_handle_closed);
    uv_close(reinterpret_cast<uv_handle_t *>(&c->timer), conn_handle_closed);
}

ssat_conn_limits g_limits;

// A client that sends no line, or does not read its answer, within the
// time is dropped.
void on_conn_timeout(uv_timer_t *t) { close_conn(conn_of(t)); }

void send_reply(ssat_conn *c, const ssat_reply &reply) {
    auto *stream = reinterpret_cast<uv_stream_t *>(&c->pipe);
    uv_read_stop(stream);
    c->out = ssat_encode_reply(reply);
    uv_buf_t b = uv_buf_init(c->out.data(), static_cast<unsigned>(c->out.size()));
    auto done = [](uv_write_t *w, int) { close_conn(static_cast<ssat_conn *>(w->data)); };
    c->write.data = c;
    if (uv_write(&c->write, stream, &b, 1, done) != 0) close_conn(c);
}

void answer(ssat_conn *c, std::string_view line) {
    if (line.size() > SSAT_LINE_MAX) {
        send_reply(c, ssat_reply{false, 0, "command line longer than " +
                                               std::to_string(SSAT_LINE_MAX) + " bytes\n"});
        return;
    }
    send_reply(c, ssat_run_line(c->module, line));
}

void on_alloc(uv_handle_t *h, size_t, uv_buf_t *buf) {
    ssat_conn *c = conn_of(h);
    *buf = uv_buf_init(c->buf, sizeof c->buf);
}

void on_read(uv_stream_t *stream, ssize_t n, const uv_buf_t *buf) {
    ssat_conn *c = conn_of(stream);
    if (n > 0) c->in.append(buf->base, static_cast<size_t>(n));
    size_t nl = c->in.find('\n');
    if (nl != std::string::npos) return answer(c, std::string_view(c->in).substr(0, nl));
    if (c->in.size() > SSAT_LINE_MAX) return answer(c, c->in);
    if (n == UV_EOF && !c->in.empty()) return answer(c, c->in);
    if (n < 0) close_conn(c);
}

void on_connection(uv_stream_t *listener, int status) {
    if (status < 0) return;
    auto *s = static_cast<ssat_server *>(listener->data);
    auto *c = new ssat_conn{};
    c->module = s->module;
    c->open_conns = s->open_conns;
    ++*c->open_conns;
    uv_pipe_init(listener->loop, &c->pipe, 0);
    uv_timer_init(listener->loop, &c->timer);
    c->pipe.data = c;
    c->timer.data = c;
    c->handles = 2;
    uv_timer_start(&c->timer, on_conn_timeout, g_limits.timeout_ms, 0);
    auto *stream = reinterpret_cast<uv_stream_t *>(&c->pipe);
    if (uv_accept(listener, stream) != 0) return close_conn(c);
    if (*c->open_conns > int(g_limits.max_conns)) {
        // Said in one short answer, which the socket's buffer takes at once.
        return send_reply(c, ssat_reply{false, 0, "the module serves " +
                                                      std::to_string(g_limits.max_conns) +
                                                      " connections already; try again\n"});
    }
    if (uv_read_start(stream, on_alloc, on_read) != 0) close_conn(c);
}

bool fill_addr(const std::string &path, sockaddr_un *a) {
    std::memset(a, 0, sizeof *a);
    a->sun_family = AF_UNIX;
    if (path.size() >= sizeof a->sun_path) return false;
    std::memcpy(a->sun_path, path.c_str(), path.size() + 1);
    return true;
}

// Takes the lock file beside the socket for the life of the server: its
// descriptor, or SSAT_E_BUSY while another process serves the path. The
// lock file itself stays: removing it would let two processes lock two
// different files of one name.
int take_path_lock(const std::string &path, int *fd) {
    *fd = open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (*fd < 0) return SSAT_E_SOCKET;
    struct flock lk = {};
    lk.l_type = F_WRLCK;
    lk.l_whence = SEEK_SET;
    if (fcntl(*fd, F_SETLK, &lk) == 0) return 0;
    const int err = errno;
    close(*fd);
    *fd = -1;
    return err == EAGAIN || err == EACCES ? SSAT_E_BUSY : SSAT_E_SOCKET;
}

// Makes the path free for a new socket: directories made, the path's lock
// taken, and the socket of an earlier holder removed, whether or not that
// holder is quite gone yet. Anything but a socket at the path is left alone.
int prepare_path(const std::string &path, int *lock_fd) {
    sockaddr_un a;
    if (!fill_addr(path, &a)) return SSAT_E_SOCKET;
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    if (ec) return SSAT_E_SOCKET;
    if (int rv = take_path_lock(path, lock_fd)) return rv;
    struct stat st;
    int rv = 0;
    if (lstat(path.c_str(), &st) != 0) rv = errno == ENOENT ? 0 : SSAT_E_SOCKET;
    else if (!S_ISSOCK(st.st_mode) || unlink(path.c_str()) != 0) rv = SSAT_E_SOCKET;
    if (rv != 0) {
        close(*lock_fd);
        *lock_fd = -1;
    }
    return rv;
}

// The socket is made under a umask that lets no one else in, so there is
// no moment at which it stands open to other users.
int bind_private(uv_pipe_t *pipe, const std::string &path) {
    mode_t old = umask(0177);
    int r = uv_pipe_bind(pipe, path.c_str());
    umask(old);
    if (r == 0) chmod(path.c_str(), 0600);
    return r;
}

// A client that goes away before its answer is written must not end the
// process: a write to a closed socket gives EPIPE instead of the signal.
void ignore_sigpipe() {
    struct sigaction sa;
    if (sigaction(SIGPIPE, nullptr, &sa) == 0 && sa.sa_handler == SIG_DFL)
        std::signal(SIGPIPE, SIG_IGN);
}

void delete_server(uv_handle_t *h) {
    auto *s = static_cast<ssat_server *>(h->data);
    if (s->lock_fd >= 0) close(s->lock_fd);
    delete s;
}

}  // namespace

ssat_conn_limits ssat_server_set_limits(ssat_conn_limits limits) {
    const ssat_conn_limits old = g_limits;
    g_limits = limits;
    return old;
}

ssat_server *ssat_server_open(uv_loop_t *loop, std::string module,
                              const std::string &path, int *rv) {
    int lock_fd = -1;
    *rv = prepare_path(path, &lock_fd);
    if (*rv != 0) return nullptr;
    ignore_sigpipe();
    auto *s = new ssat_server{};
    s->module = std::move(module);
    s->path = path;
    s->lock_fd = lock_fd;
    s->open_conns = std::make_shared<int>(0);
    uv_pipe_init(loop, &s->pipe, 0);
    s->pipe.data = s;
    int r = bind_private(&s->pipe, path);
    if (r == 0 && uv_listen(reinterpret_cast<uv_stream_t *>(&s->pipe), 16, on_connection) != 0) {
        unlink(path.c_str());
        r = SSAT_E_SOCKET;
    }
    if (r != 0) {
        *rv = SSAT_E_SOCKET;
        uv_close(reinterpret_cast<uv_handle_t *>(&s->pipe), delete_server);
        return nullptr;
    }
    return s;
}

// The runtime may have closed the handle already, when it finished its
// loop: such a server serves nothing, and its handle must not be closed
// twice.
bool ssat_server_is(const ssat_server *s, const uv_loop_t *loop,
                    const std::string &path) {
    return !uv_is_closing(reinterpret_cast<const uv_handle_t *>(&s->pipe)) &&
           s->pipe.loop == loop && s->path == path;
}

void ssat_server_close(ssat_server *s) {
    auto *h = reinterpret_cast<uv_handle_t *>(&s->pipe);
    if (uv_is_closing(h)) {
        // Closed by the runtime without our callback: the loop may still
        // hold the handle, so the record is kept for good.
        static auto *orphans = new std::vector<ssat_server *>;  // never destroyed
        orphans->push_back(s);
        return;
    }
    unlink(s->path.c_str());  // before the lock goes with the handle
    uv_close(h, delete_server);
}
