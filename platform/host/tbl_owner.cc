// Table ownership by fcntl locks: see tbl_owner.h. The lock files stay; a
// lock goes with its process however that process ends, even by SIGKILL.
#include "platform/host/tbl_owner.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <unistd.h>

#include "platform/host/tbl_state.h"
#include "platform/host/tbl_where.h"

namespace {

constexpr int kOwnerTries = 100;
constexpr useconds_t kOwnerWaitUs = 10'000;  // a second in all

std::map<std::pair<int, std::string>, int> g_owned;  // {db, table} to the lock's descriptor

std::string owner_path(int db, const std::string &name) {
    return tbl_store_path(db) + "." + name + ".owner";
}

struct flock whole_file() {
    struct flock lk = {};
    lk.l_type = F_WRLCK;
    lk.l_whence = SEEK_SET;
    return lk;
}

}  // namespace

std::string tbl_own(int db, const std::string &name) {
    if (g_owned.count({db, name})) return "";
    // A store in this process's memory has no writer in another process:
    // no lock file is needed (nor made, under a root that a harness resets
    // for every input).
    tbl_where where;
    if (tbl_where_now(&where).empty() && where.memory) {
        g_owned[{db, name}] = -1;
        return "";
    }
    const std::string path = owner_path(db, name);
    std::error_code ec;  // a store that is no file (Redis) made no folder for it
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ec);
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return "cannot open the owner lock " + path + ": " + std::strerror(errno);
    // A process killed a moment ago drops its locks one descriptor at a
    // time: its instance lock may be gone while this one still stands for
    // a few milliseconds. The owner is given that long to go.
    int err = 0;
    for (int tries = 0; tries < kOwnerTries; tries++) {
        struct flock lk = whole_file();
        if (fcntl(fd, F_SETLK, &lk) == 0) {
            g_owned[{db, name}] = fd;
            return "";
        }
        err = errno;
        if (err != EAGAIN && err != EACCES) break;
        usleep(kOwnerWaitUs);
    }
    close(fd);
    if (err != EAGAIN && err != EACCES)
        return "cannot lock " + path + ": " + std::strerror(err);
    const long owner = tbl_owner_of(db, name);
    return name + " of store " + std::to_string(db) + " is written by process " +
           std::to_string(owner) + "; two writers would put two entries at one index. Stop "
           "that process first (its lock: " + path + ")";
}

long tbl_owner_of(int db, const std::string &name) {
    const int fd = open(owner_path(db, name).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    struct flock lk = whole_file();
    const bool got = fcntl(fd, F_GETLK, &lk) == 0;
    close(fd);
    return got && lk.l_type != F_UNLCK ? long(lk.l_pid) : 0;
}

void tbl_owner_reset() {
    for (auto &[key, fd] : g_owned)
        if (fd >= 0) close(fd);
    g_owned.clear();
}
