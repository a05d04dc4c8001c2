// A short crash-restart soak of the daemon (tools/hnx-soak) on two boards:
// it must come back after every kill with consistent tables and with every
// entry that stays wanted at its old index.
#include <cstdio>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/managed_proc.h"
#include "support/redis_server.h"

namespace {

struct soak_result {
    int status = -1;
    std::string out;
    int restarts = 0, checks = 0, violations = -1, kept = 0;
};

soak_result run_soak(const std::string &args) {
    const managed_result run = managed_shell(HNX_BIN_DIR "/hnx-soak " + args + " 2>&1");
    soak_result r{run.status, run.out};
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);)
        std::sscanf(line.c_str(),
                    "hnx-soak: %d restarts (%*d killed while starting), %*u requests, %d checks, "
                    "%d violations, %d entries kept",
                    &r.restarts, &r.checks, &r.violations, &r.kept);
    return r;
}

class Soak : public testing::TestWithParam<store_backend> {};

// Two managed TCAMs, then the direct path; only the first keeps entries.
// On Redis each run has a private server, its append-only file on.
TEST_P(Soak, TheDaemonSurvivesKillsAtRandomMoments) {
    if (GetParam() == store_backend::redis && !redis_server_found())
        GTEST_SKIP() << "redis-server is not installed (scripts/setup installs it)";
    for (const char *args : {"--board two --seconds 25 --restarts 150 --seed 11",
                             "--board direct --seconds 20 --restarts 100 --seed 12"}) {
        redis_server redis;
        std::string with = args;
        if (GetParam() == store_backend::redis) {
            ASSERT_TRUE(redis.start(true)) << redis.error();
            with += " --store " + redis.url();
        }
        const soak_result r = run_soak(with);
        EXPECT_EQ(r.status, 0) << r.out;
        EXPECT_EQ(r.violations, 0) << r.out;
        EXPECT_GE(r.restarts, 5) << r.out;
        EXPECT_TRUE(r.kept > 0 || std::string(args).find("direct") != std::string::npos) << r.out;
    }
}

INSTANTIATE_TEST_SUITE_P(Stores, Soak, all_store_backends(), store_backend_name);

}  // namespace
