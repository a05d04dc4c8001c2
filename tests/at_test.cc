// The debug commands of hnx-l3table-l3mac, called as the framework calls
// them, on prepared states of the service.
#include "decision/l3mac_decision.h"
#include "diag/l3mac_at.h"
#include "diag/l3mac_at_help.h"
#include "platform/host/ssat_help.h"
#include "platform/host/ssat_host.h"
#include "store/l3mac_db.h"
#include "support/l3mac_world.h"

namespace {

constexpr const char *MOD = "hnx-l3table-l3mac";
const uint8_t MAC[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

std::string show(const user_entry *u) { return out_of([&] { return user_db_show(u, 1); }); }
std::string show(const tcam_entry *t) { return out_of([&] { return tcam_db_show(t, 1); }); }

class AtCmds : public L3macWorld {
protected:
    void TearDown() override {
        ssat_host_reset();
        L3macWorld::TearDown();
    }
    // The default board, with smoothing over so that rounds do their work.
    void managed() {
        bring_up();
        l3mac_ctx.is_ds_end = 1;
    }
    static int add(const char *uuid, uint32_t evlan) {
        return l3mac_at_add_user_entry(1, uuid, 1, 1, evlan, 0, MAC);
    }
};

// Bring-up registers the module's 31 commands first thing, in this order
// (the table service may add its own before them). Every one has its line in
// hnx-cmd's help; the arguments are named by the registered format, also
// where the command reads fewer than the format names (the entry's form:
// ssat_test; whole entries as an operator reads them: hnx_cmd_test).
TEST_F(AtCmds, RegistersThirtyOneCommandsInOrderEachWithItsWords) {
    bring_up();
    std::vector<ssat_cmd_info> cmds;
    ASSERT_TRUE(ssat_help_parse(ssat_run_line(MOD, "help").text, &cmds));
    ASSERT_GE(cmds.size(), 31u);
    std::string got;
    for (size_t i = cmds.size() - 31; i < cmds.size(); i++) {
        got += cmds[i].name + " ";
        const char *text = l3mac_at_cmd_text(cmds[i].name.c_str());
        EXPECT_NE(text, nullptr) << cmds[i].name;
        const std::string entry = ssat_help_entry(cmds[i], text);
        // get-mac-db's format names a phyid that the command does not read.
        EXPECT_TRUE(cmds[i].name != "get-mac-db" || entry.starts_with("get-mac-db TYPE MAC\n")) << entry;
    }
    EXPECT_EQ(got, "time-init-l3mac time-set-l3mac time-dump-l3mac debug show-cap dump-evlan-mbr "
                   "dump-mac-vlanbmp wk-user-head wk-tcam-head get-user-db get-tcam-db get-mac-db "
                   "show-user-db show-mac-db dump-tcam-db show-vrrp-db check-memory "
                   "find-evlan-by-mac find-mask-by-user find-mask-by-evlan add-mac-user "
                   "del-mac-user get-vrrp-db add-mul-user-entry del-mul-user-entry "
                   "set-drv-decision-max-counter get-drv-decision-max-counter "
                   "set-commom-decision-max-counter get-commom-decision-max-counter "
                   "trigger-decision dump-info ");
    EXPECT_EQ(l3mac_at_cmd_text("help"), nullptr);

    // The results, in the words of the service's codes (-4 and -7 as
    // hnx-cmd tells them: hnx_cmd_test).
    EXPECT_STREQ(l3mac_at_result_text(-17), "no memory for a store");
    EXPECT_EQ(l3mac_at_result_text(-5), nullptr);
}

TEST_F(AtCmds, DebugClampsTheLevelAndShowsBoth) {
    const std::string table =
        "\n dbg level                 name\n         0                CLOSE\n         1                ERROR\n"
        "         2                BRIEF\n         3                EVENT\n         4              WARNING\n"
        "         5                 INFO\n         6            HIGH FREQ\n         7                  ALL\n";
    EXPECT_EQ(out_of([] { return l3mac_at_debug(9, -1); }),
              table + "\nlevel:9 log_cnt:-1 dbg_info:0\nlevel:ALL log_cnt:-1\n");
    EXPECT_EQ(g_rt_l3tb_log_level, 7u);
    EXPECT_EQ(out_of([] { return l3mac_at_debug(-1, 5); }),
              table + "\nlevel:-1 log_cnt:5 dbg_info:0\nlevel:CLOSE log_cnt:5\n");
    EXPECT_EQ(g_rt_l3tb_log_level, 0u);
    EXPECT_EQ(g_rt_l3tb_log_cnt, 5);
}

TEST_F(AtCmds, DumpEvlanMbrListsWhatAPairCovers) {
    auto mbr = [](uint32_t e, uint32_t m, int32_t v) {
        return out_of([=] { return l3mac_at_dump_evlan_mbr(e, m, v); });
    };
    EXPECT_EQ(mbr(100, 4095, 0), "param error,vid=100, vid_mask=4095\n");
    EXPECT_EQ(mbr(4095, 0, 0), "param error,vid=4095, vid_mask=0\n");

    // Mask 0 covers every VLAN: 1 to 4094, ten a line, never 0 or 4095.
    std::string all = mbr(0, 0, 0);
    EXPECT_EQ(all.rfind("vlan=0, vlan_mask=0,vlan_member:\r\n"
                        "   1,   2,   3,   4,   5,   6,   7,   8,   9,  10\n  11,", 0), 0u);
    const std::string end = "4081,4082,4083,4084,4085,4086,4087,4088,4089,4090\n"
                            "4091,4092,4093,4094,\r\nvlan_count=4094\r\n";
    EXPECT_EQ(all.substr(all.size() - end.size()), end);

    l3mac_ctx.vfi_mask = 16383;
    EXPECT_EQ(mbr(16383, 0, 1), "param error,vid=16383, vid_mask=0\n");
    EXPECT_NE(mbr(0, 0, 1).find("\r\nvlan_count=16382\r\n"), std::string::npos);
}

TEST_F(AtCmds, MissingStoresBehaveAsEmpty) {
    int rv = 0;
    EXPECT_EQ(out_of([] { return l3mac_at_show_user_db(-1, 1); }, &rv), "count:-1 is_form:1\n");
    EXPECT_EQ(rv, -4);
    EXPECT_EQ(out_of([] { return l3mac_at_wk_user_head(0, MAC, 0); }, &rv), "not found\n");
    EXPECT_EQ(rv, -7);
    EXPECT_EQ(out_of([] { return l3mac_at_get_vrrp_db(MAC, 0, 1, 0); }), "entry is null\n");
    EXPECT_EQ(out_of([] { return l3mac_at_find_mask_by_evlan(1); }), "");
    EXPECT_EQ(out_of([] { return l3mac_at_check_memory(); }), "malloc db = 0\n");
}

TEST_F(AtCmds, MacStateThroughItsUsersDecisionsAndLists) {
    managed();
    ASSERT_EQ(add("a", 10), 0);
    ASSERT_EQ(add("b", 20), 0);
    // Newest user first.
    EXPECT_EQ(out_of([] { return l3mac_at_wk_user_head(0, MAC, 0); }),
              show(user_of(1, "b")) + show(user_of(1, "a")));

    auto has = [](uint32_t e) { return out_of([=] { return l3mac_at_find_evlan_by_mac(0, MAC, 0, e); }); };
    EXPECT_EQ(has(10), "contain evlan 10\n\n");
    EXPECT_EQ(has(0xFFFFFFFF), "not contain evlan -1\n\n");

    // The bitmap is the last decision's: a deleted user's bit stays until
    // the next round.
    EXPECT_EQ(l3mac_at_del_user_entry(1, "a"), 0);
    EXPECT_EQ(has(10), "contain evlan 10\n\n");
    EXPECT_EQ(out_of(sw_l3mac_mac_decision), "");
    EXPECT_EQ(has(10), "not contain evlan 10\n\n");

    // One user on 20: one entry serves it, and the walks find it.
    mac_entry *m = mac_of(0, MAC);
    ASSERT_EQ(m->tcam_head.next->next, &m->tcam_head);
    tcam_entry *te = l3mac_tcam_of(m->tcam_head.next);
    EXPECT_EQ(out_of([] { return l3mac_at_wk_tcam_head(0, MAC, 0); }), show(te));
    EXPECT_EQ(out_of([] { return l3mac_at_find_mask_by_user(1, "b"); }),
              "\nThe user entry is : \n" + show(user_of(1, "b")) + "\nThe tcam entry is : \n" +
                  show(te));
    EXPECT_EQ(out_of([] { return l3mac_at_find_mask_by_evlan(20); }), show(te));
    EXPECT_EQ(out_of([&] { return l3mac_at_get_tcam_db(0, MAC, te->key.evlan, te->key.evlan_mask); }),
              show(te));

    // One user, one MAC, one TCAM entry; all gone after the last delete.
    EXPECT_EQ(l3mac_at_del_user_entry(1, "b"), 0);
    out_of(sw_l3mac_mac_decision);
    EXPECT_EQ(out_of(l3mac_at_check_memory), "malloc db = 0\n");
    EXPECT_EQ(out_of([] { return l3mac_at_wk_user_head(0, MAC, 0); }), "not found\n");
}

// Many adds or deletes stop at the first failure; a refused add warns; a
// missing user counts 135; a zero decision limit leaves adds to the timer.
TEST_F(AtCmds, AddAndDeleteCommandsOnTheirFailuresAndTheDecisionLimit) {
    managed();
    int rv = 0;
    EXPECT_EQ(out_of([] { return l3mac_at_add_mul_user_entry(1, 10, 3, 1, 1, 100, 0, MAC); }, &rv),
              "\nuser add begin\n\nuser add end at uuid : 12\n");
    EXPECT_EQ(rv, 0);
    for (uint32_t i = 0; i < 3; i++) EXPECT_EQ(user_of(1, std::to_string(10 + i).c_str())->evlan, 100 + i);
    EXPECT_EQ(user_of(1, "13"), nullptr);
    EXPECT_EQ(out_of([] { return l3mac_at_add_mul_user_entry(1, 10, 0, 1, 1, 100, 0, MAC); }),
              "\nuser add begin\n\nuser add end at uuid : 9\n");
    EXPECT_EQ(out_of([] { return l3mac_at_del_mul_user_entry(1, 10, 5); }, &rv),
              "\nuser del begin\n\nuser del end at uuid : 12\n");
    EXPECT_EQ(rv, -7);
    EXPECT_EQ(user_of(1, "12"), nullptr);

    set_log(4);
    std::string s = out_of([] { return l3mac_at_add_user_entry(0, "x", 1, 1, 10, 0, MAC); }, &rv);
    EXPECT_EQ(rv, 0);
    EXPECT_EQ(l3mac_count_lines(s, "WARN ", "l3mac_at_add_user_entry",
                                "fail:rv == SS_E_NONE data1:0 data2:0\n"), 1) << s;
    EXPECT_EQ(err_count(126), 1u);
    EXPECT_EQ(user_of(0, "x"), nullptr);
    set_log(1);
    s = out_of([] { return l3mac_at_find_mask_by_user(3, "none"); }, &rv);
    EXPECT_EQ(rv, -7);
    EXPECT_EQ(l3mac_count_lines(s, "ERROR", "l3mac_at_find_mask_by_user",
                                "fail:user_entry != NULL code:135 data1:3 data2:0\n"), 1) << s;

    settle_all();
    EXPECT_EQ(out_of([] { return l3mac_at_set_commom_decision_max_counter(0); }),
              "\nl3mac_commom_decision_counter : 0\n");
    ASSERT_EQ(add("a", 10), 0);  // with no direct rounds the MAC waits for the timer
    EXPECT_EQ(l3mac_pending(), std::vector<mac_entry *>{mac_of(0, MAC)});
}

// First TCAM unmanaged: its requests take the direct path and are bound to
// a mac_hw, which find-mask-by-user must not walk as a mac_entry.
TEST_F(AtCmds, DirectPathUserShowsNoTcamEntries) {
    write_profile(R"({"s_route": {"l3mac": {"ability": {"is-mng": false, "is-mng2": true}}}})");
    managed();
    ASSERT_EQ(set_row(1, "v", 30, S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, MAC), 0);
    user_entry *u = user_of(1, "v");
    // A managed MAC of the same key, injected past the path test.
    ASSERT_EQ(l3mac_at_add_user_entry(1, "m", 1, 1, 30, 0, MAC), 0);
    EXPECT_EQ(out_of([] { return l3mac_at_find_mask_by_user(1, "v"); }),
              "\nThe user entry is : \n" + show(u) + "\nThe tcam entry is : \n");

    EXPECT_EQ(out_of([] { return l3mac_at_get_vrrp_db(MAC, 0, 30, 0); }),
              out_of([&] { return vrrp_db_show(static_cast<const mac_hw *>(u->mac_entry), 1); }));
    EXPECT_EQ(out_of([] { return l3mac_at_get_vrrp_db(MAC, 0, 31, 0); }), "entry is null\n");
}

}  // namespace
