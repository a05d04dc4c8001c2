// Request intake: the parser, the checks in their order, the mac_type to
// TCAM rule and what the two handlers do with refused or foreign rows.
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "frame/l3mac_ctx.h"
#include "request/l3mac_msg.h"
#include "request/l3mac_user.h"
#include "support/l3mac_world.h"

namespace {

const uint8_t kMac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

class RequestTest : public L3macWorld {
protected:
    // Flags as a board with both TCAMs managed.
    void two_managed_tcams() {
        l3mac_ctx.is_mng = 1;
        l3mac_ctx.is_mng2 = 1;
        l3mac_ctx.tcam2_en = 1;
    }
    static int check(uint32_t mac_type, uint32_t evlan) {
        l3mac_row r(1, "k", evlan, mac_type, kMac);
        l3mac_msg msg;
        EXPECT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 1), 0);
        return sw_l3mac_user_param_check(&msg, 1);
    }
    static int check_user(uint32_t t_user, int is_add = 1) {
        l3mac_row r(t_user, "k", 10, 0, kMac);
        l3mac_msg msg;
        EXPECT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, is_add), 0);
        return sw_l3mac_user_param_check(&msg, is_add);
    }
};

TEST_F(RequestTest, RowWithoutKeyIsRefusedAndTheRecordStaysUnwritten) {
    l3mac_msg msg;
    std::memset(&msg, 0xAB, sizeof msg);
    l3mac_msg before = msg;
    l3mac_row r(1, "k", 10, 0, kMac);

    EXPECT_EQ(l3mac_input_pmsg_parse(nullptr, &msg, 1), -4);
    r.res.index = nullptr;
    EXPECT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 1), -4);
    r.res.index = &r.key;
    r.key.uuid = nullptr;
    set_log(1);
    capture_stdout();
    EXPECT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 0), -4);
    const std::string out = captured_stdout();

    EXPECT_EQ(std::memcmp(&msg, &before, sizeof msg), 0);
    EXPECT_EQ(err_count(122), 3u);
    EXPECT_EQ(out, l3mac_line("ERROR", "l3mac_input_pmsg_parse", err_slot(122).line,
                              "fail:l3mac_pmsg->index->uuid != NULL code:122 data1:0 data2:0\n"));
}

TEST_F(RequestTest, SetRowWithoutAttrKeepsItsKeyAndReportsAStep) {
    l3mac_row r(7, "key-7", 10, 0, kMac);
    r.res.attr = nullptr;
    l3mac_msg msg;
    set_log(1);
    capture_stdout();
    EXPECT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 1), -11);
    const std::string out = captured_stdout();

    EXPECT_EQ(msg.mng_info.user, 7);
    EXPECT_STREQ(msg.uuid, "key-7");
    EXPECT_EQ(err_count(122), 1u);
    EXPECT_EQ(out, l3mac_line("ERROR", "l3mac_input_pmsg_parse", err_slot(122).line,
                              "check return, d1=0, d2=0\n"));
}

TEST_F(RequestTest, ParserTakesLowBytesAndCutsTheUuidAt127) {
    l3mac_row whole(257, std::string(127, 'u'), 4000, 256, kMac, 9, 0x101);
    whole.attr.is_match_evlan = 5;
    l3mac_msg msg;
    ASSERT_EQ(l3mac_input_pmsg_parse(whole.get(), &msg, 1), 0);
    EXPECT_EQ(msg.mng_info.user, 1);
    EXPECT_EQ(msg.mng_info.status, 1);
    EXPECT_EQ(msg.attr.mac_type, 0);
    EXPECT_EQ(msg.attr.is_match_evlan, 1);
    EXPECT_EQ(msg.attr.evlan, 4000u);
    EXPECT_EQ(msg.attr.phyid, 9u);
    EXPECT_EQ(std::memcmp(msg.attr.mac, kMac, 6), 0);
    EXPECT_EQ(std::string(msg.uuid), std::string(127, 'u'));

    l3mac_row longer(1, std::string(127, 'u') + "tail", 1, 0, kMac);
    ASSERT_EQ(l3mac_input_pmsg_parse(longer.get(), &msg, 1), 0);
    EXPECT_EQ(std::string(msg.uuid), std::string(127, 'u'));
    EXPECT_EQ(msg.uuid[127], '\0');
}

TEST_F(RequestTest, MissingOrShortMacReadsAsTheZeroAddress) {
    const uint8_t zero[6] = {};
    l3mac_row r(1, "k", 10, 0, kMac);
    l3mac_msg msg;

    r.attr.mac = nullptr;
    ASSERT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 1), 0);
    EXPECT_EQ(std::memcmp(msg.attr.mac, zero, 6), 0);

    r.attr.mac = &r.mac;
    r.mac.data.len = 5;
    ASSERT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 1), 0);
    EXPECT_EQ(std::memcmp(msg.attr.mac, zero, 6), 0);

    r.mac.data.len = 6;
    r.mac.data.data = nullptr;
    ASSERT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 1), 0);
    EXPECT_EQ(std::memcmp(msg.attr.mac, zero, 6), 0);
    EXPECT_EQ(err_count(122), 0u);
}

TEST_F(RequestTest, DeleteIsParsedForItsKeyAlone) {
    l3mac_row r(3, "gone", 10, 2, kMac, 4);
    l3mac_msg msg;
    ASSERT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 0), 0);
    EXPECT_EQ(msg.mng_info.user, 3);
    EXPECT_STREQ(msg.uuid, "gone");
    EXPECT_EQ(msg.mng_info.status, 0);
    EXPECT_EQ(msg.attr.mac_type, 0);
    EXPECT_EQ(msg.attr.evlan, 0u);
    EXPECT_EQ(msg.attr.phyid, 0u);
}

TEST_F(RequestTest, UsersOneTo41AreAcceptedAndOthersCountedSilently) {
    two_managed_tcams();
    EXPECT_EQ(check_user(1), 0);
    EXPECT_EQ(check_user(41), 0);
    EXPECT_EQ(check_user(257), 0);  // reads as user 1
    set_log(4);
    capture_stdout();
    EXPECT_EQ(check_user(0), -4);
    EXPECT_EQ(check_user(42), -4);
    EXPECT_EQ(check_user(298, 0), -4);  // reads as 42; a delete is checked too
    EXPECT_EQ(captured_stdout(), "");
    EXPECT_EQ(err_count(126), 3u);
    EXPECT_EQ(err_slot(126).data1, 42);

    set_log(5);
    capture_stdout();
    EXPECT_EQ(check_user(0), -4);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "IN   ", "sw_l3mac_user_param_check", "user 0 invalid.\n\n"), 1)
        << out;
}

TEST_F(RequestTest, AttributesAreCheckedAgainstTheFlagsInOrder) {
    two_managed_tcams();
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, 4095), 0);
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_OL, 8191), 0);
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_OL, 5000), 0);
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_SUBIF, 10), 0);
    EXPECT_EQ(err_count(53), 0u);

    struct refusal {
        uint32_t mac_type, evlan;
        int32_t d1, d2;
    };
    const refusal cases[] = {
        {S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX, 10, 5, 0},
        {S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, 4096, 4096, 0},
        {S_ROUTE__L3MAC_TYPE_E__L3MAC_TNL, 4096, 4096, 3},
        {S_ROUTE__L3MAC_TYPE_E__L3MAC_OL, 8192, 8192, 1},
    };
    for (const refusal &c : cases) {
        SCOPED_TRACE(c.mac_type);
        EXPECT_EQ(check(c.mac_type, c.evlan), -4);
        EXPECT_EQ(err_slot(53).data1, c.d1);
        EXPECT_EQ(err_slot(53).data2, c.d2);
    }
    EXPECT_EQ(err_count(53), 4u);
}

TEST_F(RequestTest, SecondTcamTypesNeedTheSecondTcam) {
    l3mac_ctx.is_mng = 1;
    l3mac_ctx.is_mng2 = 1;
    set_log(1);
    capture_stdout();
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_OL, 10), -4);
    EXPECT_EQ(err_slot(53).data1, 1);
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_TNL, 10), -4);
    const std::string out = captured_stdout();
    EXPECT_EQ(err_slot(53).data1, 3);
    EXPECT_NE(out.find("|fail:!((l3mac_get_tcam_id(msg->attr.mac_type) == MY_STATION_TCAM_2) && "
                       "!L3MAC_CAP_TCAM2_EN) code:53 data1:3 data2:0\n"),
              std::string::npos);
}

TEST_F(RequestTest, AClearFlagSwitchesItsRangeTestOff) {
    l3mac_ctx.tcam2_en = 1;
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, 100000), 0);
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_OL, 100000), 0);
    l3mac_ctx.is_mng = 1;
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_OL, 100000), 0);
    EXPECT_EQ(check(S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, 100000), -4);
}

TEST_F(RequestTest, TcamIdFollowsTheMacTypeUnlessTheSecondPoolTakesAll) {
    const int plain[] = {0, 1, 0, 1, 0};
    for (uint8_t t = 0; t < 5; t++) EXPECT_EQ(l3mac_get_tcam_id(t), plain[t]) << int(t);

    set_log(1);
    capture_stdout();
    EXPECT_EQ(l3mac_get_tcam_id(5), 0);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "ERROR", "l3mac_get_tcam_id", "invalid mac_type 5\n"), 1) << out;

    // copy_to_tcam2 does nothing until the second pool exists.
    sw_res_rm pool2 = {};
    l3mac_ctx.copy_to_tcam2 = 1;
    EXPECT_EQ(l3mac_get_tcam_id(0), 0);
    l3mac_ctx.tcam_rm[1] = &pool2;
    capture_stdout();
    for (uint8_t t = 0; t < 7; t++) EXPECT_EQ(l3mac_get_tcam_id(t), 1) << int(t);
    EXPECT_EQ(captured_stdout(), "");
    l3mac_ctx.copy_to_tcam2 = 0;
    EXPECT_EQ(l3mac_get_tcam_id(2), 0);
    l3mac_ctx.tcam_rm[1] = nullptr;
}

// Handlers on a brought-up service with the default profile.
class HandlerTest : public RequestTest {
protected:
    void SetUp() override {
        RequestTest::SetUp();
        write_caps({});
        bring_up();
    }
};

TEST_F(HandlerTest, RowsThatAreNoRequestAreIgnoredWithoutRefusal) {
    set_log(4);
    l3mac_row allocated(1, "k", 10, 0, kMac, 0, S_ROUTE__L3TABLE_STATUS_E__STATUS_ALLOCATED);
    l3mac_row none(1, "k", 10, 0, kMac, 0, S_ROUTE__L3TABLE_STATUS_E__STATUS_NONE);
    capture_stdout();
    EXPECT_EQ(l3mac_set_msg_proc(allocated.get()), 0);
    EXPECT_EQ(l3mac_set_msg_proc(none.get()), 0);
    const std::string out = captured_stdout();
    const std::string text = "fail:msg.mng_info.status == S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST ";
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_set_msg_proc", text + "data1:2 data2:0\n"), 1);
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_set_msg_proc", text + "data1:0 data2:0\n"), 1);
    EXPECT_EQ(l3mac_get_or_add_user_db(1, "k", 0), nullptr);
}

TEST_F(HandlerTest, RefusedSetChangesNothingAndWarns) {
    set_log(4);
    l3mac_row r(1, "k", 10, 5, kMac);
    capture_stdout();
    EXPECT_EQ(l3mac_set_msg_proc(r.get()), -4);
    const std::string out = captured_stdout();
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_set_msg_proc",
                                "fail:rv == SS_E_NONE data1:-4 data2:0\n"), 1) << out;
    EXPECT_EQ(l3mac_get_or_add_user_db(1, "k", 0), nullptr);
    EXPECT_EQ(l3mac_set_msg_proc(nullptr), -4);
}

TEST_F(HandlerTest, DeleteOfAMissingKeyIsNotFoundEveryTime) {
    l3mac_row r(9, "never", 0, 0, kMac);
    EXPECT_EQ(l3mac_del_msg_proc(r.get()), -7);
    EXPECT_EQ(l3mac_del_msg_proc(r.get()), -7);
    EXPECT_EQ(err_count(135), 2u);
    EXPECT_EQ(err_slot(135).data1, 9);
}

TEST_F(HandlerTest, DeleteWithAnInvalidUserIsRefusedBeforeLookup) {
    l3mac_row r(0, "k", 0, 0, kMac);
    EXPECT_EQ(l3mac_del_msg_proc(r.get()), -4);
    EXPECT_EQ(err_count(126), 1u);
    EXPECT_EQ(err_count(135), 0u);
}

}  // namespace
