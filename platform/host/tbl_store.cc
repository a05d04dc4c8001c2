// What the store backends share: see tbl_store.h.
#include "platform/host/tbl_store.h"

#include <pthread.h>
#include <unistd.h>

#include "platform/host/tbl_sqlite.h"

pid_t tbl_self_pid() {
    static pid_t pid = (pthread_atfork(nullptr, nullptr, [] { pid = getpid(); }), getpid());
    return pid;
}

std::unique_ptr<tbl_store> tbl_store::open(int db, const std::string &path, tbl_open mode) {
    return tbl_sqlite::open(db, path, mode);
}
