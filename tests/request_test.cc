// Request intake: the parser, the checks in their order, the mac_type to
// TCAM rule and what the two handlers do with refused or foreign rows.
#include <tuple>

#include "request/l3mac_msg.h"
#include "support/l3mac_world.h"

namespace {

const uint8_t kMac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

class RequestTest : public L3macWorld {
protected:
    void flags(uint8_t is_mng, uint8_t is_mng2, uint8_t tcam2_en) {
        l3mac_ctx.is_mng = is_mng;
        l3mac_ctx.is_mng2 = is_mng2;
        l3mac_ctx.tcam2_en = tcam2_en;
    }
    static int check(uint32_t mac_type, uint32_t evlan, uint32_t user = 1, int is_add = 1) {
        l3mac_row r(user, "k", evlan, mac_type, kMac);
        l3mac_msg msg;
        EXPECT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, is_add), 0);
        return sw_l3mac_user_param_check(&msg, is_add);
    }
};

// The parser takes the low bytes, cuts the uuid at 127 and reads a short or
// missing MAC as zero, silently; a row without a key is refused with its
// line and leaves the record unwritten.
TEST_F(RequestTest, ParserTakesLowBytesCutsTheUuidAt127AndRefusesARowWithoutKey) {
    l3mac_row whole(257, std::string(127, 'u') + "tail", 4000, 256, kMac, 9, 0x101);
    whole.attr.is_match_evlan = 5;
    l3mac_msg msg, before;
    ASSERT_EQ(l3mac_input_pmsg_parse(whole.get(), &msg, 1), 0);
    EXPECT_EQ(std::tie(msg.mng_info.user, msg.mng_info.status, msg.attr.mac_type,
                       msg.attr.is_match_evlan, msg.attr.evlan, msg.attr.phyid),
              std::make_tuple(1, 1, 0, 1, 4000u, 9u));
    EXPECT_EQ(std::memcmp(msg.attr.mac, kMac, 6), 0);
    EXPECT_EQ(std::string(msg.uuid), std::string(127, 'u'));
    const uint8_t zero[6] = {};
    whole.mac.data.len = 5;
    for (PLibpub__Mac *m : {&whole.mac, static_cast<PLibpub__Mac *>(nullptr)}) {
        whole.attr.mac = m;
        ASSERT_EQ(l3mac_input_pmsg_parse(whole.get(), &msg, 1), 0);
        EXPECT_EQ(std::memcmp(msg.attr.mac, zero, 6), 0);
    }
    EXPECT_EQ(err_count(122), 0u);

    std::memset(&msg, 0xAB, sizeof msg);
    before = msg;
    l3mac_row r(1, "k", 10, 0, kMac);
    EXPECT_EQ(l3mac_input_pmsg_parse(nullptr, &msg, 1), -4);
    r.key.uuid = nullptr;
    set_log(1);
    capture_stdout();
    EXPECT_EQ(l3mac_input_pmsg_parse(r.get(), &msg, 0), -4);
    EXPECT_EQ(captured_stdout(), l3mac_line("ERROR", "l3mac_input_pmsg_parse", err_slot(122).line,
                                 "fail:l3mac_pmsg->index->uuid != NULL code:122 data1:0 data2:0\n"));
    EXPECT_EQ(std::memcmp(&msg, &before, sizeof msg), 0);
    EXPECT_EQ(err_count(122), 2u);
}

// Users 1 to 41 are taken and others counted silently, for a delete too.
// Then each case: flags, the board's VFI mask, mac_type, evlan, result and
// the slot's data when refused. Intake knows the VFI range 0-8191 only, not
// the board's VFI space: a VFI beyond that space is taken, and only the
// restore refuses its entry. (Taken or refused on every board, every type
// and the edges of every range: intake_test.)
TEST_F(RequestTest, UsersAndAttributesAreCheckedAgainstTheFlagsInOrder) {
    flags(1, 1, 1);
    for (uint32_t u : {1u, 41u, 257u}) EXPECT_EQ(check(NORMAL, 10, u), 0) << u;  // 257 reads as 1
    set_log(4);
    capture_stdout();
    EXPECT_EQ(check(NORMAL, 10, 0), -4);
    EXPECT_EQ(check(NORMAL, 10, 42), -4);
    EXPECT_EQ(check(NORMAL, 10, 298, 0), -4);  // reads as 42; a delete is checked too
    EXPECT_EQ(captured_stdout(), "");
    EXPECT_EQ(std::pair(err_count(126), err_slot(126).data1), std::pair(3u, 42));

    struct check_case {
        uint8_t mng, mng2, tcam2;
        uint32_t vfi_mask, mac_type, evlan;
        int rv, d1, d2;
    };
    const uint32_t ALL = 16383;  // a board with the whole VFI space
    const check_case cases[] = {
        {1, 1, 1, ALL, NORMAL, 4095, 0, 0, 0},   {1, 1, 1, ALL, OL, 8191, 0, 0, 0},
        {1, 1, 1, ALL, S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX, 10, -4, 5, 0},
        {1, 1, 1, ALL, NORMAL, 4096, -4, 4096, 0}, {1, 1, 1, ALL, TNL, 4096, -4, 4096, 3},
        {1, 1, 1, ALL, OL, 8192, -4, 8192, 1},   {1, 1, 0, ALL, OL, 10, -4, 1, 0},
        {1, 1, 0, ALL, TNL, 10, -4, 3, 0},       {0, 0, 1, ALL, NORMAL, 100000, 0, 0, 0},
        {1, 0, 1, ALL, OL, 100000, 0, 0, 0},     {1, 0, 1, ALL, NORMAL, 100000, -4, 100000, 0},
        {1, 1, 1, 1, OL, 5000, 0, 0, 0},
    };
    uint32_t refused = 0;
    for (const check_case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.mac_type << "/" << c.evlan << " tcam2_en " << int(c.tcam2)
                                        << " vfi_mask " << c.vfi_mask);
        flags(c.mng, c.mng2, c.tcam2);
        l3mac_ctx.vfi_mask = c.vfi_mask;
        EXPECT_EQ(check(c.mac_type, c.evlan), c.rv);
        if (c.rv == 0) continue;
        ++refused;
        EXPECT_EQ(std::tuple(err_count(53), err_slot(53).data1, err_slot(53).data2),
                  std::tuple(refused, c.d1, c.d2));
    }
    flags(1, 1, 1);
    set_log(1);
    capture_stdout();
    EXPECT_EQ(check(OL, 8192), -4);
    EXPECT_EQ(captured_stdout(),
              l3mac_line("ERROR", "sw_l3mac_user_param_check", err_slot(53).line,
                         "fail:!(L3MAC_CAP_IS_MNG2 && !SS_RT_VALID_VFI(msg->attr.evlan) && "
                         "msg->attr.mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_OL) code:53 data1:8192 data2:1\n"));
}

TEST_F(RequestTest, TcamIdFollowsTheMacTypeUnlessTheSecondPoolTakesAll) {
    for (uint8_t t = 0; t < 6; t++) EXPECT_EQ(l3mac_get_tcam_id(t), t == OL || t == TNL) << int(t);
    sw_res_rm pool2 = {};  // copy_to_tcam2 does nothing until the second pool exists
    l3mac_ctx.copy_to_tcam2 = 1;
    l3mac_ctx.tcam_rm[1] = &pool2;
    for (uint8_t t = 0; t < 7; t++) EXPECT_EQ(l3mac_get_tcam_id(t), 1) << int(t);
    l3mac_ctx.tcam_rm[1] = nullptr;
}

TEST_F(RequestTest, HandlersIgnoreForeignRowsAndRefuseBadOnesUnchanged) {
    write_caps({});
    bring_up();
    set_log(4);
    // A refused row's lines: the daemon test. A row that is no request:
    l3mac_row allocated(1, "k", 10, 0, kMac, 0, S_ROUTE__L3TABLE_STATUS_E__STATUS_ALLOCATED);
    int rv = -1;
    const std::string out = out_of([&] { return l3mac_set_msg_proc(allocated.get()); }, &rv);
    EXPECT_EQ(rv, 0);
    EXPECT_EQ(l3mac_count_lines(out, "WARN ", "l3mac_set_msg_proc",
              "fail:msg.mng_info.status == S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST data1:2 data2:0\n"), 1);
    EXPECT_EQ(user_of(1, "k"), nullptr);

    l3mac_row missing(9, "never", 0, 0, kMac), nobody(0, "k", 0, 0, kMac);
    EXPECT_EQ(l3mac_del_msg_proc(missing.get()), -7);
    EXPECT_EQ(std::pair(err_count(135), err_slot(135).data1), std::pair(1u, 9));
    EXPECT_EQ(l3mac_del_msg_proc(nobody.get()), -4);  // refused before the lookup
    EXPECT_EQ(std::pair(err_count(126), err_count(135)), std::pair(1u, 1u));
}

}  // namespace
