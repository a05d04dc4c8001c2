// A private redis-server for one test: on a Unix socket in a temporary
// folder of its own, no TCP port, so that tests run side by side. And the
// parameter that runs one suite over the store backends.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <sys/types.h>

#include <gtest/gtest.h>

#include "platform/host/tbl_memory.h"

// Whether a redis-server program is on PATH.
bool redis_server_found();

class redis_server {
public:
    redis_server() = default;
    redis_server(const redis_server &) = delete;
    redis_server &operator=(const redis_server &) = delete;
    ~redis_server();

    // Starts the server (with its append-only file when `appendonly`) and
    // waits until it answers. A second start while it runs does nothing.
    // False with error() when it does not come up.
    bool start(bool appendonly = false, const std::vector<std::string> &extra = {});
    // Ends it: SIGKILL when `hard`, else SIGTERM; waits for it. The folder
    // and its files stay until the object goes, so that a start again
    // finds its append-only file.
    void stop(bool hard = false);
    bool running() const { return pid_ > 0; }
    // The store URL for HNX_STORE.
    std::string url() const { return "unix://" + socket_; }
    const std::string &error() const { return error_; }
    // Runs one command (binary-safe arguments) on a connection of its own:
    // the reply's text, an integer as its digits, "(nil)", or "ERR ..." .
    std::string command(const std::vector<std::string> &args) const;

private:
    std::string dir_, socket_, error_;
    std::vector<std::string> args_;
    pid_t pid_ = 0;
};

// The table store backends that a suite runs over.
enum class store_backend { sqlite, redis, memory };

inline const char *store_backend_label(store_backend b) {
    return b == store_backend::sqlite ? "SQLite" : b == store_backend::redis ? "Redis" : "Memory";
}

inline void PrintTo(store_backend b, std::ostream *os) { *os << store_backend_label(b); }

inline std::string store_backend_name(const testing::TestParamInfo<store_backend> &info) {
    return store_backend_label(info.param);
}

// The backends that processes share: for suites that start programs.
inline auto all_store_backends() {
    return testing::Values(store_backend::sqlite, store_backend::redis);
}

// Every backend, this process's memory too: for the suites of the store
// and of the table service over it.
inline auto every_store_backend() {
    return testing::Values(store_backend::sqlite, store_backend::redis, store_backend::memory);
}

// Skips a case on the memory store, which no other process can reach:
// `why` names what the case needs (another process, a file).
#define SKIP_ON_MEMORY(why)                                                          \
    do {                                                                             \
        if (on_memory()) GTEST_SKIP() << "a store in this process's memory: " << why; \
    } while (0)

// A test world over each backend: on Redis a private server runs for the
// test, and HNX_STORE names it for the test and every program it starts;
// on memory the stores go with the test.
template <typename World>
class OverStores : public World, public testing::WithParamInterface<store_backend> {
protected:
    void SetUp() override {
        if (on_redis() && !redis_.running()) {
            if (!redis_server_found())
                GTEST_SKIP() << "redis-server is not installed (scripts/setup installs it)";
            ASSERT_TRUE(redis_.start(appendonly_)) << redis_.error();
            setenv("HNX_STORE", redis_.url().c_str(), 1);
        }
        if (on_memory()) setenv("HNX_STORE", "memory", 1);
        World::SetUp();
    }
    void TearDown() override {
        World::TearDown();
        unsetenv("HNX_STORE");
        redis_.stop();
        tbl_memory_drop_all();
    }
    bool on_redis() const { return GetParam() == store_backend::redis; }
    bool on_memory() const { return GetParam() == store_backend::memory; }

    bool appendonly_ = false;
    redis_server redis_;
};
