// The choice of a store's backend: see tbl_store.h and tbl_where.h.
#include "platform/host/tbl_store.h"

#include <cstdio>

#include <pthread.h>
#include <unistd.h>

#include "platform/host/tbl_memory.h"
#include "platform/host/tbl_redis.h"
#include "platform/host/tbl_sqlite.h"
#include "platform/host/tbl_where.h"

pid_t tbl_self_pid() {
    static pid_t pid = (pthread_atfork(nullptr, nullptr, [] { pid = getpid(); }), getpid());
    return pid;
}

std::unique_ptr<tbl_store> tbl_store::open(int db, const std::string &path, tbl_open mode) {
    tbl_where where;
    std::string err = tbl_where_now(&where);
    if (!err.empty()) {
        std::fprintf(stderr, "ss_rt_tbl: store %d: %s\n", db, err.c_str());
        return nullptr;
    }
    if (where.memory) return tbl_memory::open(db, path, mode);
    if (!where.redis) return tbl_sqlite::open(db, path, mode);
    return tbl_redis::open(db, where, mode);
}
