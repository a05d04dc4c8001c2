// The command socket of one module: a Unix-domain stream socket on the
// runtime's loop that answers each connection's line with ssat_run_line
// (protocol in ssat_proto.h).
#pragma once

#include <string>

#include <uv.h>

struct ssat_server;

// The bounds of every server's connections: how many are served at once
// (more are answered that the module is busy) and how long one may live,
// from accept to its answer read. Tests narrow them.
struct ssat_conn_limits {
    unsigned max_conns = 32;
    unsigned timeout_ms = 10'000;
};
// Sets the bounds for connections accepted from now on; gives the old ones.
ssat_conn_limits ssat_server_set_limits(ssat_conn_limits limits);

// Listens at `path`, readable and writable by the owner only, creating the
// directories. The process that holds `path`.lock owns the path: a socket
// left there by an earlier holder (ended, or killed and still going) is
// replaced; a path whose lock another process holds gives SSAT_E_BUSY.
// Null and *rv set on failure.
ssat_server *ssat_server_open(uv_loop_t *loop, std::string module,
                              const std::string &path, int *rv);

// True when the server listens on this loop at this path.
bool ssat_server_is(const ssat_server *s, const uv_loop_t *loop,
                    const std::string &path);

// Stops listening and removes the socket file; the record goes when the
// loop has closed the handle.
void ssat_server_close(ssat_server *s);
