// The command socket of one module: a Unix-domain stream socket on the
// runtime's loop that answers each connection's line with ssat_run_line
// (protocol in ssat_proto.h).
#pragma once

#include <string>

#include <uv.h>

struct ssat_server;

// Listens at `path`, readable and writable by the owner only, creating the
// directories. A stale socket of an ended process is replaced; a path that
// another process serves gives SSAT_E_BUSY. Null and *rv set on failure.
ssat_server *ssat_server_open(uv_loop_t *loop, std::string module,
                              const std::string &path, int *rv);

// True when the server listens on this loop at this path.
bool ssat_server_is(const ssat_server *s, const uv_loop_t *loop,
                    const std::string &path);

// Stops listening and removes the socket file; the record goes when the
// loop has closed the handle.
void ssat_server_close(ssat_server *s);
