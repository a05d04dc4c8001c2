// Regressions of the faults that the fuzz targets, the sanitizer build and
// the crash-restart soak found: one test each, named after the fault.
#include <climits>

#include <sys/wait.h>
#include <unistd.h>

#include "decision/l3mac_mac.h"
#include "diag/l3mac_check.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_ds.h"
#include "frame/l3mac_mem.h"
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

// A profile whose evlan_num lies at the bottom of the 32-bit range: bring-up
// took the 4096 VLANs off it and overflowed (cap_fuzz, on its seed at the
// edge of the range). Such a board has no numbers beyond the VLANs.
TEST_F(FuzzRegress, AnEvlanNumAtTheBottomOfItsRangeLeavesTheSmallestVfiSpace) {
    write_profile("{\"s_bridge\": {\"ebridge\": {\"capacity\": {\"evlan_num\": -2147483648}}}}");
    bring_up();
    EXPECT_EQ(l3mac_ctx.evlan_num, INT32_MIN);
    EXPECT_EQ(l3mac_ctx.vfi_mask, 1u);
}

// A user moved to a MAC that found no memory keeps its old, settled MAC
// until its next add, with the new request in its record (requests_fuzz):
// the in-process check took the old MAC's bitmap for damage.
TEST_F(FuzzRegress, AUserWhoseNewMacFindsNoMemoryStaysOnItsOldMac) {
    const uint8_t mac_a[6] = {0x02, 0, 0, 0, 0, 0x0A}, mac_b[6] = {0x02, 0, 0, 0, 0, 0x0B};
    bring_up();
    l3mac_data_check();
    ASSERT_EQ(set_row(1, "u15", 4, S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, mac_a), 0);
    mac_entry *old_mac = sw_l3mac_get_or_add_mac_db(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, mac_a, 0, 0);
    ASSERT_NE(old_mac, nullptr);
    ASSERT_TRUE(list_empty(&old_mac->pending_lst));

    l3mac_mem_fail_after = 0;
    set_row(1, "u15", 16, S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, mac_b);
    l3mac_mem_fail_after = -1;
    EXPECT_EQ(l3mac_users_on(&old_mac->user_head).size(), 1u);
    EXPECT_EQ(sw_l3mac_get_or_add_mac_db(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, mac_b, 0, 0), nullptr);
    l3mac_check_report rep;
    l3mac_check_live({.faults = true}, &rep);
    EXPECT_TRUE(rep.ok()) << rep.violations.front();
}

}  // namespace
