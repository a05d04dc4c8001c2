// Regressions of the faults that the fuzz targets, the sanitizer build and
// the crash-restart soak found: one test each, named after the fault.
#include <chrono>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/host/tbl_store.h"
#include "support/l3mac_world.h"

namespace {

using FuzzRegress = L3macWorld;

// The daemon and a user's tool that open a new store at the same moment:
// one of them used to be refused with "database is locked" while the other
// switched the store to WAL.
TEST_F(FuzzRegress, TwoProcessesCreatingTheStoreAtOnceBothOpenIt) {
    for (int round = 0; round < 40; round++) {
        const std::string path = root_ + "/store-" + std::to_string(round) + ".db";
        const pid_t child = fork();
        if (child == 0) _exit(tbl_store::open(16, path) ? 0 : 1);
        EXPECT_NE(tbl_store::open(16, path), nullptr) << "round " << round;
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "round " << round;
    }
}

}  // namespace
