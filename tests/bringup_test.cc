// Bring-up: what the capacity flags create, how failures leave the service,
// and the capacity profile with its defaults and its dump.
#include <string>

#include <gtest/gtest.h>

#include "frame/l3mac_ctx.h"
#include "frame/l3mac_init.h"
#include "frame/l3mac_main.h"
#include "frame/l3mac_mem.h"
#include "support/l3mac_world.h"

namespace {

struct flag_case {
    bool is_mng, is_mng2;
};

class BringupFlags : public L3macWorld, public ::testing::WithParamInterface<flag_case> {};

TEST_P(BringupFlags, FlagsDecideWhatExists) {
    const flag_case f = GetParam();
    l3mac_caps caps;
    caps.tcam2_en = true;
    caps.copy_to_tcam2 = false;
    caps.is_mng = f.is_mng;
    caps.is_mng2 = f.is_mng2;
    write_caps(caps);
    bring_up();

    const bool managed = f.is_mng || f.is_mng2;
    EXPECT_EQ(l3mac_ctx.ser_ready, 1);
    EXPECT_TRUE(l3mac_ctx.is_connected);
    EXPECT_NE(l3mac_ctx.user_db, nullptr);
    EXPECT_EQ(l3mac_ctx.mac_db != nullptr, managed);
    EXPECT_EQ(l3mac_ctx.tcam_db != nullptr, managed);
    EXPECT_EQ(l3mac_ctx.tcam_rm[0] != nullptr, f.is_mng);
    EXPECT_EQ(l3mac_ctx.tcam_rm[1] != nullptr, f.is_mng2);
    EXPECT_EQ(l3mac_ctx.vrrp_db != nullptr, !(f.is_mng && f.is_mng2));
    EXPECT_EQ(l3mac_ctx.decision_timer != nullptr, managed);
    for (int code : {52, 57, 58, 148, 150, 152}) EXPECT_EQ(err_count(code), 0u) << code;
}

INSTANTIATE_TEST_SUITE_P(FourSettings, BringupFlags,
                         ::testing::Values(flag_case{true, true}, flag_case{true, false},
                                           flag_case{false, true}, flag_case{false, false}));

class BringupTest : public L3macWorld {};

TEST_F(BringupTest, SecondConnectCallbackChangesNothing) {
    write_caps({});
    bring_up();
    const auto *user_db = l3mac_ctx.user_db;
    const auto *pool = l3mac_ctx.tcam_rm[0];
    capture_stdout();
    set_log(7);
    EXPECT_EQ(l3mac_connect_cb(), 0);
    EXPECT_EQ(captured_stdout(), "");
    EXPECT_EQ(l3mac_ctx.user_db, user_db);
    EXPECT_EQ(l3mac_ctx.tcam_rm[0], pool);
}

TEST_F(BringupTest, SecondTcamFlagWithoutTheTcamWarnsAndSucceeds) {
    l3mac_caps caps;
    caps.is_mng2 = true;
    caps.tcam2_en = false;
    write_caps(caps);
    set_log(4);
    capture_stdout();
    bring_up();
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_create_tcam2",
                                "fail:L3MAC_CAP_TCAM2_EN data1:0 data2:1\n"),
              1)
        << out;
    EXPECT_EQ(l3mac_ctx.tcam_rm[1], nullptr);
    EXPECT_EQ(l3mac_ctx.ser_ready, 1);
}

TEST_F(BringupTest, NoMemoryForTheUserStoreLeavesTheServiceNotReadyButTimed) {
    write_caps({});
    l3mac_mem_fail_after = 0;
    bring_up();
    EXPECT_EQ(l3mac_ctx.ser_ready, 0);
    EXPECT_EQ(l3mac_ctx.user_db, nullptr);
    EXPECT_EQ(l3mac_ctx.mac_db, nullptr);
    EXPECT_EQ(err_count(52), 1u);
    EXPECT_EQ(err_slot(52).data1, -17);
    EXPECT_EQ(err_count(58), 1u);
    EXPECT_EQ(err_slot(58).data1, -17);
    EXPECT_NE(l3mac_ctx.decision_timer, nullptr);
}

TEST_F(BringupTest, AFailedFirstPoolStopsBeforeTheMacHwStore) {
    l3mac_caps caps;
    caps.is_mng2 = false;
    caps.tcam_cap = -1;  // the pool manager refuses a negative size
    write_caps(caps);
    bring_up();
    EXPECT_EQ(l3mac_ctx.ser_ready, 0);
    EXPECT_EQ(err_count(148), 1u);
    EXPECT_NE(err_slot(148).data1, 0);
    EXPECT_EQ(l3mac_ctx.vrrp_db, nullptr);
    EXPECT_EQ(err_count(58), 1u);
    EXPECT_NE(l3mac_ctx.decision_timer, nullptr);
}

void expect_default_profile() {
    EXPECT_EQ(l3mac_ctx.algo, 2);
    EXPECT_EQ(l3mac_ctx.tcam_cap, 256);
    EXPECT_EQ(l3mac_ctx.tcam2_cap, 256);
    EXPECT_EQ(l3mac_ctx.rsvd_size, 0);
    EXPECT_EQ(l3mac_ctx.dec_cnt, 5);
    EXPECT_EQ(l3mac_ctx.evlan_num, 4096);
    EXPECT_EQ(l3mac_ctx.tcam2_en, 0);
    EXPECT_EQ(l3mac_ctx.is_mng, 1);
    EXPECT_EQ(l3mac_ctx.is_mng2, 1);
    EXPECT_EQ(l3mac_ctx.copy_to_tcam2, 1);
    EXPECT_EQ(l3mac_ctx.drv_decision_max_counter, 5u);
}

TEST_F(BringupTest, WithoutAProfileTheDefaultsStandAndTwoReportsAreCounted) {
    bring_up();
    expect_default_profile();
    EXPECT_EQ(err_count(57), 2u);  // in l3mac_cap_init and again in l3mac_init
    EXPECT_EQ(l3mac_ctx.ser_ready, 1);
}

TEST_F(BringupTest, ABadProfileGivesTheDefaults) {
    write_profile("{\"s_route\": ");
    l3mac_ctx.algo = 99;
    EXPECT_NE(l3mac_cap_init(), 0);
    expect_default_profile();
    EXPECT_EQ(err_count(57), 1u);
}

TEST_F(BringupTest, AValueThatCannotBeReadFallsToItsDefaultAlone) {
    write_profile(R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 1024, "algo": "two"},
                                             "ability": {"tcam2-en": true, "is-mng": false}},
                                   "l3intf": {"capacity": {"l3mac-dec-cnt": 10}}}})");
    set_log(1);
    capture_stdout();
    EXPECT_EQ(l3mac_cap_init(), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_ctx.tcam_cap, 1024);
    EXPECT_EQ(l3mac_ctx.algo, 2);
    EXPECT_EQ(l3mac_ctx.tcam2_cap, 256);
    EXPECT_EQ(l3mac_ctx.evlan_num, 4096);
    EXPECT_EQ(l3mac_ctx.tcam2_en, 1);
    EXPECT_EQ(l3mac_ctx.is_mng, 0);
    EXPECT_EQ(l3mac_ctx.is_mng2, 1);
    EXPECT_EQ(l3mac_ctx.dec_cnt, 10);
    EXPECT_EQ(l3mac_ctx.drv_decision_max_counter, 10u);
    EXPECT_EQ(err_count(57), 1u);
    EXPECT_NE(err_slot(57).data1, 0);
    EXPECT_EQ(l3mac_count_lines(out, "ERROR", "l3mac_get_cap", "fail:rv == SS_E_NONE code:57 "), 1)
        << out;
}

TEST_F(BringupTest, ProfileDumpPrintsTwelveLinesInItsOwnOrder) {
    l3mac_caps caps;
    caps.algo = 3;
    caps.tcam_cap = 2048;
    caps.tcam2_en = true;
    caps.tcam2_cap = 1024;
    caps.rsvd_size = 8;
    caps.dec_cnt = 7;
    caps.evlan_num = 20480;
    caps.is_mng2 = false;
    caps.copy_to_tcam2 = false;
    write_caps(caps);
    ASSERT_EQ(l3mac_cap_init(), 0);
    l3mac_ctx.drv_decision_max_counter = 1;  // the dump shows what was read
    capture_stdout();
    l3mac_cap_dump();
    const char *rule = "==============L3TB L3MAC CAP DUMP==============\r\n";
    EXPECT_EQ(captured_stdout(), std::string(rule) +
                                     "algo       = 3\n"
                                     "tcam cap   = 2048\n"
                                     "tcam2 en   = 1\n"
                                     "tcam2 cap  = 1024\n"
                                     "rsvd sz    = 8\n"
                                     "dec cnt    = 7\n"
                                     "evlan cap  = 20480\n"
                                     "is mng     = 1\n"
                                     "is mng2    = 0\n"
                                     "is copy tcam2 = 0\n" +
                                     rule);
}

}  // namespace
