// Layout of the shared records that other processes and libraries read.
#include <cstddef>

#include <gtest/gtest.h>

#include "decision/l3mac_mac.h"
#include "platform/sw_rt_res.h"
#include "request/l3mac_user.h"
#include "tcam/l3mac_tcam.h"
#include "vrrp/l3mac_vrrp.h"

TEST(RecordLayout, KeysLieWhereTheStoresReadThem) {
    EXPECT_EQ(sizeof(g_sw_rt_res_ss_err_cnt), 5460u);
    EXPECT_EQ(offsetof(mac_entry, phyid) - offsetof(mac_entry, mac_type) + 4, 12u);
    EXPECT_EQ(offsetof(tcam_entry, key), sizeof(list_head));
    EXPECT_GE(offsetof(user_entry, mac_lst), 132u);
    EXPECT_EQ(offsetof(mac_hw, user_head), 16u);
}
