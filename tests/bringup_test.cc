// Bring-up: what the capacity flags create, how failures leave the service,
// and the capacity profile with its defaults. (Its dump: the guide's show-cap.)
#include <tuple>

#include "frame/l3mac_init.h"
#include "support/l3mac_world.h"

namespace {

class BringupTest : public L3macWorld {
protected:
    static auto profile() {
        return std::make_tuple(l3mac_ctx.algo, l3mac_ctx.tcam_cap, l3mac_ctx.tcam2_cap,
                               l3mac_ctx.rsvd_size, l3mac_ctx.dec_cnt, l3mac_ctx.evlan_num,
                               l3mac_ctx.tcam2_en, l3mac_ctx.is_mng, l3mac_ctx.is_mng2,
                               l3mac_ctx.copy_to_tcam2, l3mac_ctx.drv_decision_max_counter);
    }
    static auto defaults() { return decltype(profile())(2, 256, 256, 0, 5, 4096, 0, 1, 1, 1, 5); }
};

// What exists after bring-up is the managed flags' doing, each a world of its own.
TEST_F(BringupTest, FlagsDecideWhatExists) {
    for (const auto &[mng, mng2] : {std::pair{true, true}, {true, false}, {false, true}, {false, false}}) {
        SCOPED_TRACE(testing::Message() << "is_mng " << mng << " is_mng2 " << mng2);
        TearDown();
        SetUp();
        write_caps({.tcam2_en = true, .is_mng = mng, .is_mng2 = mng2, .copy_to_tcam2 = false});
        bring_up();
        EXPECT_EQ(l3mac_ctx.ser_ready, 1);
        EXPECT_NE(l3mac_ctx.user_db, nullptr);
        EXPECT_EQ(std::tuple(l3mac_ctx.mac_db != nullptr, l3mac_ctx.tcam_db != nullptr,
                             l3mac_ctx.decision_timer != nullptr, l3mac_ctx.vrrp_db != nullptr),
                  std::tuple(mng || mng2, mng || mng2, mng || mng2, !(mng && mng2)));
        EXPECT_EQ(std::pair(l3mac_ctx.tcam_rm[0] != nullptr, l3mac_ctx.tcam_rm[1] != nullptr),
                  std::pair(mng, mng2));
        for (int code : {52, 57, 58, 148, 150, 152}) EXPECT_EQ(err_count(code), 0u) << code;
    }
}

TEST_F(BringupTest, SecondTcamFlagWithoutTheTcamWarnsAndSucceeds) {
    write_caps({});  // is_mng2 set, tcam2_en clear
    set_log(4);
    capture_stdout();
    bring_up();
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_create_tcam2",
                                "fail:L3MAC_CAP_TCAM2_EN data1:0 data2:1\n"), 1) << out;
    EXPECT_EQ(l3mac_ctx.tcam_rm[1], nullptr);
    EXPECT_EQ(l3mac_ctx.ser_ready, 1);
}

TEST_F(BringupTest, AFailedFirstPoolStopsBeforeTheMacHwStore) {
    write_caps({false, true, false, true, 2, -1});  // the pool manager refuses a negative size
    bring_up();
    EXPECT_EQ(l3mac_ctx.ser_ready, 0);
    EXPECT_EQ(err_count(148), 1u);
    EXPECT_NE(err_slot(148).data1, 0);
    EXPECT_EQ(l3mac_ctx.vrrp_db, nullptr);
    EXPECT_EQ(err_count(58), 1u);
    EXPECT_NE(l3mac_ctx.decision_timer, nullptr);
}

TEST_F(BringupTest, WithoutAProfileOrWithABadOneTheDefaultsStand) {
    bring_up();
    EXPECT_EQ(profile(), defaults());
    EXPECT_EQ(err_count(57), 2u);  // in l3mac_cap_init and again in l3mac_init
    EXPECT_EQ(l3mac_ctx.ser_ready, 1);
    write_profile("{\"s_route\": ");
    l3mac_ctx.algo = 99;
    EXPECT_NE(l3mac_cap_init(), 0);
    EXPECT_EQ(profile(), defaults());
    EXPECT_EQ(err_count(57), 3u);
}

TEST_F(BringupTest, AValueThatCannotBeReadFallsToItsDefaultAlone) {
    write_profile(R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 1024, "algo": "two"},
                                             "ability": {"tcam2-en": true, "is-mng": false}},
                                   "l3intf": {"capacity": {"l3mac-dec-cnt": 10}}}})");
    set_log(1);
    capture_stdout();
    EXPECT_EQ(l3mac_cap_init(), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(profile(), decltype(profile())(2, 1024, 256, 0, 10, 4096, 1, 0, 1, 1, 10));
    EXPECT_EQ(err_count(57), 1u);
    EXPECT_EQ(l3mac_count_lines(out, "ERROR", "l3mac_get_cap", "fail:rv == SS_E_NONE code:57 "), 1)
        << out;
}

}  // namespace
