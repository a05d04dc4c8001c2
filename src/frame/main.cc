// The whole life of the process hnx-l3table-l3mac: debug level, instance
// lock, exit supervision, runtime, tables, connection and the event loop.
// Everything else runs from that loop.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_main.h"

namespace {

constexpr const char *L3MAC_DBG_FILE = "/etc/route/debug/l3mac.dbg";
constexpr const char *L3MAC_PID_NAME = "/de.res_l3mac.route.ss.pid";
constexpr const char *L3MAC_MARKER_FILE = "/var/run/hnx-l3table-l3mac";
constexpr int L3MAC_EXIT_ACTION = 2;
constexpr int L3MAC_MARKER_FOUND = -15;

// The level of the debug level file: 0 without a file, 7 for a file that
// holds no number, so that a touched file turns logging fully on.
int l3mac_read_dbg_level() {
    char path[PATH_MAX];
    FILE *f = std::fopen(kw_root_path(L3MAC_DBG_FILE, path, sizeof path), "r");
    if (!f) return 0;
    int level = 0;
    if (std::fscanf(f, "%d", &level) != 1) level = 7;
    std::fclose(f);
    return level;
}

// Takes the instance lock and writes the pid with its terminating zero.
// The descriptor stays open for the life of the process: closing it would
// drop the lock. 0, -11 (no file), -6 (held by another instance) or -1.
int l3mac_lock_instance() {
    char name[128];
    char path[PATH_MAX];
    std::snprintf(name, sizeof name, "/var/run%s", L3MAC_PID_NAME);
    int fd = open(kw_root_path(name, path, sizeof path), O_RDWR | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return L3MAC_E_FAIL;
    struct flock lk = {};
    lk.l_type = F_WRLCK;
    lk.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &lk) < 0) {
        if (errno != EAGAIN && errno != EACCES) return L3MAC_E_NOMEM_CALC;
        close(fd);
        return L3MAC_E_FULL;
    }
    char pid[32];
    std::snprintf(pid, sizeof pid, "%ld", static_cast<long>(getpid()));
    if (ftruncate(fd, 0) != 0 || write(fd, pid, std::strlen(pid) + 1) < 0) {
        // The lock holds all the same; only the pid file's content is lost.
    }
    return SS_E_NONE;
}

// Registers with the exit supervisor unless its marker file is there.
int l3mac_reg_exit() {
    char path[PATH_MAX];
    int fd = open(kw_root_path(L3MAC_MARKER_FILE, path, sizeof path), O_RDONLY);
    if (fd >= 0) {
        close(fd);
        return L3MAC_MARKER_FOUND;
    }
    return reg_process_exit_action(getpid(), L3MAC_EXIT_ACTION);
}

}  // namespace

int main() {
    // Log lines must reach a pipe as they are written, not at exit.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    const int level = l3mac_read_dbg_level();
    if (level != 0) l3mac_debug_set(level, -1);

    int rv = l3mac_lock_instance();
    if (rv != SS_E_NONE) {
        L3MAC_ERR_LINE("\n[%s] check running, rv:%d, another process is already running\n\n",
                       L3MAC_PID_NAME, rv);
        return rv;
    }

    rv = l3mac_reg_exit();
    if (rv != SS_E_NONE) L3MAC_ERR_LINE("\n[%s] reg ham rv:%d\n\n", L3MAC_PROC_NAME, rv);

    l3mac_ctx.global = nullptr;
    l3mac_ctx.global = kw_global_init(L3MAC_PROC_NAME, 0);
    if (!l3mac_ctx.global) return L3MAC_E_FATAL;

    l3mac_tbl_init();

    rv = ss_rt_tbl_connect_db(l3mac_connect_cb);
    if (rv != SS_E_NONE) {
        L3MAC_ERR_LINE("\n[%s] connect db fail rv:%d\n\n", L3MAC_PROC_NAME, rv);
        return L3MAC_E_FATAL;
    }
    kw_global_run(l3mac_ctx.global);
    kw_global_finish(l3mac_ctx.global);
    return 0;
}
