// Regressions of the faults that the fuzz targets, the sanitizer build and
// the crash-restart soak found: one test each, named after the fault.
#include <climits>

#include "frame/l3mac_ctx.h"
#include "platform/host/tbl_store.h"
#include "support/l3mac_world.h"
#include "support/managed_proc.h"

namespace {

using FuzzRegress = L3macWorld;

// The daemon and a user's tool that open a new store at the same moment:
// one of them used to be refused with "database is locked" while the other
// switched the store to WAL.
TEST_F(FuzzRegress, TwoProcessesCreatingTheStoreAtOnceBothOpenIt) {
    for (int round = 0; round < 40; round++) {
        const std::string path = root_ + "/store-" + std::to_string(round) + ".db";
        const pid_t child = child_start([&] { _exit(tbl_store::open(16, path) ? 0 : 1); });
        EXPECT_NE(tbl_store::open(16, path), nullptr) << "round " << round;
        EXPECT_EQ(child_wait(child), 0) << "round " << round;
    }
}

// A profile whose evlan_num lies at the bottom of the 32-bit range: bring-up
// took the 4096 VLANs off it and overflowed (cap_fuzz, on its seed at the
// edge of the range). Such a board has no numbers beyond the VLANs.
TEST_F(FuzzRegress, AnEvlanNumAtTheBottomOfItsRangeLeavesTheSmallestVfiSpace) {
    write_profile("{\"s_bridge\": {\"ebridge\": {\"capacity\": {\"evlan_num\": -2147483648}}}}");
    bring_up();
    EXPECT_EQ(l3mac_ctx.evlan_num, INT32_MIN);
    EXPECT_EQ(l3mac_ctx.vfi_mask, 1u);
}

}  // namespace
