// The whole life of the process hnx-l3table-l3mac: debug level, instance
// lock, exit supervision, runtime, tables, connection and the event loop.
// Everything else runs from that loop.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
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
constexpr int L3MAC_STORE_DB = 16;  // the store that ss_rt_tbl_connect_db connects to

// The debug level file opened for reading, or null. Only a regular file is
// read: the open does not wait (a FIFO without a writer would hold the
// start for good), and anything else counts as no file, said on stderr.
FILE *l3mac_open_dbg_file(const char *path) {
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        std::fprintf(stderr, "%s: debug level file %s is not a regular file; level 0 "
                             "(write the level into a plain file)\n", L3MAC_PROC_NAME, path);
        close(fd);
        return nullptr;
    }
    FILE *f = fdopen(fd, "r");
    if (!f) close(fd);
    return f;
}

// The level of the debug level file: 0 without a file, 7 for a file that
// holds no number, so that a touched file turns logging fully on.
int l3mac_read_dbg_level() {
    char path[PATH_MAX];
    FILE *f = l3mac_open_dbg_file(kw_root_path(L3MAC_DBG_FILE, path, sizeof path));
    if (!f) return 0;
    int level = 0;
    if (std::fscanf(f, "%d", &level) != 1) level = 7;
    std::fclose(f);
    return level;
}

// What the lock step found, for the one line that a refused start leaves
// on standard error.
struct l3mac_lock_result {
    int rv = SS_E_NONE;
    int err = 0;       // errno of the failed open or fcntl
    long holder = 0;   // pid of the instance that holds the lock, when known
    char path[PATH_MAX] = {};
};

// Takes the instance lock and writes the pid with its terminating zero.
// The descriptor stays open for the life of the process: closing it would
// drop the lock. rv 0, -11 (no file), -6 (held by another instance) or -1.
// The open truncates before the lock is tried, so a refused start leaves
// the running instance's pid file empty; nothing may rely on its content.
void l3mac_lock_instance(l3mac_lock_result *res) {
    char name[128];
    std::snprintf(name, sizeof name, "/var/run%s", L3MAC_PID_NAME);
    kw_root_path(name, res->path, sizeof res->path);
    int fd = open(res->path, O_RDWR | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
        res->err = errno;
        res->rv = L3MAC_E_FAIL;
        return;
    }
    struct flock lk = {};
    lk.l_type = F_WRLCK;
    lk.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &lk) < 0) {
        res->err = errno;
        if (res->err != EAGAIN && res->err != EACCES) {
            res->rv = L3MAC_E_NOMEM_CALC;
            return;
        }
        struct flock who = {};
        who.l_type = F_WRLCK;
        who.l_whence = SEEK_SET;
        if (fcntl(fd, F_GETLK, &who) == 0 && who.l_type != F_UNLCK) res->holder = who.l_pid;
        close(fd);
        res->rv = L3MAC_E_FULL;
        return;
    }
    char pid[32];
    std::snprintf(pid, sizeof pid, "%ld", static_cast<long>(getpid()));
    if (ftruncate(fd, 0) != 0 || write(fd, pid, std::strlen(pid) + 1) < 0) {
        // The lock holds all the same; only the pid file's content is lost.
    }
}

// The one line on standard error of a start refused at the lock, whatever
// the debug level: under a supervisor it is all that the journal keeps.
void l3mac_say_lock_refused(const l3mac_lock_result &res) {
    if (res.rv == L3MAC_E_FULL && res.holder > 0)
        std::fprintf(stderr, "%s: another instance (pid %ld) holds the lock on %s; exit %d\n",
                     L3MAC_PROC_NAME, res.holder, res.path, res.rv);
    else if (res.rv == L3MAC_E_FULL)
        std::fprintf(stderr, "%s: another instance holds the lock on %s; exit %d\n",
                     L3MAC_PROC_NAME, res.path, res.rv);
    else if (res.rv == L3MAC_E_FAIL)
        std::fprintf(stderr, "%s: cannot open the lock file %s: %s; exit %d\n", L3MAC_PROC_NAME,
                     res.path, std::strerror(res.err), res.rv);
    else
        std::fprintf(stderr, "%s: cannot lock %s: %s; exit %d\n", L3MAC_PROC_NAME, res.path,
                     std::strerror(res.err), res.rv);
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

    l3mac_lock_result lock;
    l3mac_lock_instance(&lock);
    int rv = lock.rv;
    if (rv != SS_E_NONE) {
        L3MAC_ERR_LINE("\n[%s] check running, rv:%d, another process is already running\n\n",
                       L3MAC_PID_NAME, rv);
        l3mac_say_lock_refused(lock);
        return rv;
    }

    rv = l3mac_reg_exit();
    if (rv != SS_E_NONE) L3MAC_ERR_LINE("\n[%s] reg ham rv:%d\n\n", L3MAC_PROC_NAME, rv);

    l3mac_ctx.global = nullptr;
    l3mac_ctx.global = kw_global_init(L3MAC_PROC_NAME, 0);
    // The platform has said why on standard error (a broken capability
    // profile, no event loop): one line is enough.
    if (!l3mac_ctx.global) return L3MAC_E_FATAL;

    l3mac_tbl_init();

    rv = ss_rt_tbl_connect_db(l3mac_connect_cb);
    if (rv != SS_E_NONE) {
        L3MAC_ERR_LINE("\n[%s] connect db fail rv:%d\n\n", L3MAC_PROC_NAME, rv);
        std::fprintf(stderr, "%s: cannot connect to table store %d, rv %d; exit %d\n",
                     L3MAC_PROC_NAME, L3MAC_STORE_DB, rv, L3MAC_E_FATAL);
        return L3MAC_E_FATAL;
    }
    kw_global_run(l3mac_ctx.global);
    kw_global_finish(l3mac_ctx.global);
    return 0;
}
