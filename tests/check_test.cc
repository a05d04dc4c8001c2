// The consistency check: quiet on a service that does its work, and loud on
// each kind of damage to the live state, to the tables, or both; and the
// hnx-l3mac-check program over a store on disk, with the rows it refused
// and the all-zero MAC.
#include <filesystem>
#include <fstream>

#include "decision/l3mac_decision.h"
#include "check/l3mac_check.h"
#include "platform/host/tbl_turn.h"
#include "platform/ss_rt_tbl.h"
#include "store/l3mac_store.h"
#include "support/managed_proc.h"
#include "support/managed_world.h"

namespace {

const mac6 kA{0x02, 0, 0, 0, 0, 0x0A};
const mac6 kB{0x02, 0, 0, 0, 0, 0x0B};
const mac6 kC{0x02, 0, 0, 0, 0, 0x0C};

std::string joined(const std::vector<std::string> &lines) {
    std::string out;
    for (const std::string &l : lines) out += l + "\n";
    return out;
}

l3mac_check_report live(l3mac_check_live_opts opts = {}) {
    l3mac_check_report rep;
    l3mac_check_live(opts, &rep);
    return rep;
}

// Each of `parts` somewhere in `text`.
void expect_has(const std::string &text, std::initializer_list<std::string> parts) {
    for (const std::string &p : parts)
        EXPECT_NE(text.find(p), std::string::npos) << "wanted \"" << p << "\" in:\n" << text;
}

void expect_violation(const l3mac_check_report &rep, const std::string &text) {
    expect_has(joined(rep.violations), {text});
}

l3mac_check_report tables(const l3mac_check_rows &rows, bool restarted,
                          const l3mac_check_board &board = l3mac_check_board_live()) {
    l3mac_check_report rep;
    l3mac_check_tables(rows, board, {.restarted = restarted}, &rep);
    return rep;
}

l3mac_check_rows read_rows() {
    l3mac_check_rows rows;
    l3mac_check_read_tables(&rows);
    return rows;
}

class CheckTest : public ManagedWorld {
protected:
    // Three MACs on a two-TCAM board, one of them in the second TCAM, and
    // a direct-path request when the board has one.
    void serve(const l3mac_caps &caps) {
        start(caps);
        want(kA, {1, 2, 3, 10});
        want(kB, {5, 7}, VRRP);
        want(kC, {100, 101}, OL);
        sw_l3mac_mac_decision();
    }

    // hnx-l3mac-check over `root` (this world's when empty), which must end
    // with `status`; its output.
    std::string check(int status, std::vector<std::string> args = {}, std::string root = "") {
        args.insert(args.begin(), {"--root", root.empty() ? root_ : root});
        const managed_result r = managed_run(HNX_BIN_DIR, root_, "hnx-l3mac-check", args);
        EXPECT_EQ(r.status, status) << r.out + r.err;
        return r.out + r.err;
    }
};

const l3mac_caps kTwo{.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = 8, .tcam2_cap = 8,
                      .evlan_num = 4096 + 16384};

// Each kind of damage to the live state, done after a served round.
TEST_F(CheckTest, DamageToTheLiveStateIsFound) {
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[] { l3mac_ctx.malloc_db++; }, "malloc_db is"},
        {[] { l3mac_ctx.tcam_rm[0]->in_use--; }, "pool of TCAM 0"},
        {[] { list_del_init(&entries_of(mac_of(NORMAL, kA))[0]->tcam_lst); },
         "on no MAC's tcam_head"},
        {[] { entries_of(mac_of(NORMAL, kA))[0]->ref_cnt = 0; }, "settled entry"},
        {[] { entries_of(mac_of(NORMAL, kA))[1]->idx = entries_of(mac_of(NORMAL, kA))[0]->idx; },
         "entry 0/0xffc type 0 idx 2: index shared in TCAM 0"},
        {[] { entries_of(mac_of(VRRP, kB))[0]->idx = 8; }, "at or above the capacity"},
        {[] { l3mac_bmp_set(&mac_of(NORMAL, kA)->evlan_bmp, 11); },
         "MAC 02:00:00:00:00:0a type 0 phyid 0: settled, but its bitmap is not its users' set"},
        {[] { l3mac_mac_queue(mac_of(NORMAL, kA)); }, "pending after a finished round"},
        {[] {
             user_entry *u = l3mac_get_or_add_user_db(1, managed_uuid(kA, NORMAL, 1).c_str(), 0);
             u->mac_entry = mac_of(VRRP, kB);
         },
         "bound elsewhere"},
        {[] { l3mac_ctx.user_db->cur++; }, "user_db:"},
    };
    for (const auto &[damage, text] : cases) {
        TearDown(), SetUp();  // a new store and a new service for each
        serve(kTwo);
        ASSERT_TRUE(live().ok());
        damage();
        expect_violation(live(), text);
    }
}

// A MAC that lost an entry while its TCAM has room is no full TCAM's doing;
// with the TCAM full it is unserved, which is reported but allowed. A row of
// the MAC that the service refused excuses nothing.
TEST_F(CheckTest, AMacMissingEntriesIsAViolationOnlyWhileItsTcamHasRoom) {
    serve(kTwo);
    ASSERT_NE(request(19, "far", 5000, NORMAL, kA), 0);
    l3mac_check_rows rows = read_rows();
    // A's cover is {0..3} and {2, 10}: the second entry goes.
    auto is_a = [](const l3mac_check_hw &h) { return h.mac[5] == 0x0A && h.evlan_mask == 0xFF7; };
    std::erase_if(rows.hw_res, is_a);
    std::erase_if(rows.bak, is_a);
    for (bool restarted : {false, true})
        expect_violation(tables(rows, restarted), "type 0 phyid 0 holds 1 entries where its cover "
                                                  "has 2, and TCAM 0 has room for it");

    l3mac_check_board full = l3mac_check_board_live();
    full.limit[0] = 2;  // A's remaining entry and B's fill it
    const l3mac_check_report rep = tables(rows, true, full);
    EXPECT_TRUE(rep.ok()) << joined(rep.violations);
    EXPECT_EQ(rep.unserved_macs, 1u);
    expect_has(joined(rep.notes), {"uncovered: 10"});
}

// On a compact board a MAC's entries are any exact cover no larger than the
// default one: the demo's VLAN interfaces take 11 entries where the default
// cover has 18, and both checks take them; an entry that matches one VLAN
// too many is still found.
TEST_F(CheckTest, CompactCoversAreJudgedByWhatTheyMatch) {
    start({.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = 32, .tcam2_cap = 8,
           .evlan_num = 4096 + 16384, .compact_cover = true});
    for (uint32_t v = 2; v <= 3001; v++)
        ASSERT_EQ(request(1, managed_uuid(kA, NORMAL, v), v, NORMAL, kA), 0);
    sw_l3mac_mac_decision();
    ASSERT_EQ(entries_of(mac_of(NORMAL, kA)).size(), 11u);
    EXPECT_TRUE(live().ok()) << joined(live().violations);
    EXPECT_TRUE(tables(read_rows(), true).ok()) << joined(tables(read_rows(), true).violations);

    ASSERT_EQ(withdraw(1, managed_uuid(kA, NORMAL, 3001)), 0);  // the round has not run
    expect_violation(tables(read_rows(), false),
                     "matches VLAN 3001, which no standing request of its MAC asks for");
}

// On a board whose second TCAM takes the direct path, so that C has rows
// of its own in s_route.l3mac_vrrp_hw_res; a refused row of A's beside them
// turns no rule off. Each damage is found by a running service's check and
// after a restart alike.
TEST_F(CheckTest, DamageToTheTablesIsFound) {
    serve({.tcam2_en = true, .is_mng2 = false, .copy_to_tcam2 = false, .tcam_cap = 8});
    ASSERT_NE(request(19, "far", 5000, NORMAL, kA), 0);
    const l3mac_check_rows good = read_rows();
    ASSERT_EQ(good.vrrp.size(), 2u);
    const std::pair<std::function<void(l3mac_check_rows &)>, std::string> cases[] = {
        {[](l3mac_check_rows &r) { r.bak[0].hw_id += 1; },
         "MAC 02:00:00:00:00:0a type 0 phyid 0 evlan 2 mask 0xff7 stands at index 1 in the output "
         "table and 2 in the backup"},
        {[](l3mac_check_rows &r) { r.bak.pop_back(); }, "has no backup row"},
        {[](l3mac_check_rows &r) { r.hw_res.push_back(r.hw_res[0]); },
         "TCAM 0 index 0 holds two entries: MAC 02:00:00:00:00:0b type 2 phyid 0 evlan 5 "
         "mask 0xffd and MAC 02:00:00:00:00:0b type 2 phyid 0 evlan 5 mask 0xffd"},
        {[](l3mac_check_rows &r) { r.hw_res[0].hw_id = r.hw_res[0].phase ? 8 : 16; },
         "capacity is 8"},
        {[](l3mac_check_rows &r) { r.bak[0].evlan = 11; }, "has no output row"},
        {[](l3mac_check_rows &r) { r.res.clear(); },
         "evlan 2 mask 0xff7 at index 1 of TCAM 0 matches VLANs 2, 10, which no standing "
         "request of its MAC asks for"},
        {[](l3mac_check_rows &r) { r.vrrp.push_back(r.hw_res[0]); }, "belongs to a managed TCAM"},
        {[](l3mac_check_rows &r) { r.vrrp.pop_back(); }, "have no row"},
        {[](l3mac_check_rows &r) { r.vrrp.push_back(r.vrrp[0]), r.vrrp.back().evlan = 999; },
         "direct row 02:00:00:00:00:0c type 1 evlan 999 stands for no request: no standing input "
         "row asks for it"},
        // A row that is no request is served only when the service marked
        // it failed: it marks rows in its first round after a restart too.
        {[](l3mac_check_rows &r) {
             for (l3mac_check_res &q : r.res)
                 if (q.uuid == managed_uuid(kB, VRRP, 7)) q.status = S_ROUTE__L3TABLE_STATUS_E__STATUS_ALLOCATED;
         },
         "type 2 phyid 0 holds"},
    };
    for (const auto &[damage, text] : cases) {
        l3mac_check_rows rows = good;
        damage(rows);
        for (bool restarted : {false, true}) {
            SCOPED_TRACE(text + (restarted ? ", restarted" : ", running"));
            expect_violation(tables(rows, restarted), text);
        }
    }
}

// A running service keeps serving what a key asked before a row that it
// refuses or does not act on; the tables are judged against the input table
// as it stands, so the entry kept for it is a violation that names the
// entry, the number and the row.
TEST_F(CheckTest, AnEntryThatNoStandingRequestAsksForIsAViolation) {
    serve(kTwo);
    // A's cover is {0..3} and {2, 10}; the user of VLAN 10 sets its row idle.
    const std::string uuid = managed_uuid(kA, NORMAL, 10);
    l3mac_row idle(1, uuid, 10, NORMAL, kA.data(), 0, S_ROUTE__L3TABLE_STATUS_E__STATUS_NONE);
    ASSERT_EQ(ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &idle.res.base, 0, 0), 0);
    ASSERT_EQ(l3mac_set_msg_proc(idle.get()), 0);
    sw_l3mac_mac_decision();
    const auto cover = placed(mac_of(NORMAL, kA));  // sorted by evlan
    ASSERT_EQ(cover.size(), 2u);  // still served, by design
    tbl_turn_commit();
    const std::string entry = "output entry MAC 02:00:00:00:00:0a type 0 phyid 0 evlan 2 mask "
                              "0xff7 at index " + std::to_string(cover[1][2]) + " of TCAM 0 "
                              "matches VLAN 10, which no standing request of its MAC asks for";
    const std::string untaken = entry + "; the input row user 1 uuid \"" + uuid + "\" (status 0 "
                                "(STATUS_NONE): the service acts only on rows with STATUS_REQUEST) "
                                "asks for it, but the service does not take that row";
    // The refused row is told once, on the entry's own line.
    expect_has(check(1), {"violation: " + untaken + ", and keeps serving what its key asked "
                          "before: write it again as a request that the service takes, or delete "
                          "it\n", "1 refused rows: 1 violations\n"});
    expect_violation(tables(read_rows(), true),
                     untaken + ": the entry was left over from before the start");

    // The row changed to a number that the service refuses: it no longer
    // shows VLAN 10, but it names the MAC.
    ASSERT_NE(request(1, uuid, 5000, NORMAL, kA), 0);
    expect_violation(tables(read_rows(), false),
                     entry + "; of the input rows that the service does not take, these name "
                     "this MAC address or no MAC and may have asked for it before: user 1 uuid "
                     "\"" + uuid + "\" (evlan 5000 is outside the VLAN range 0-4095 of mac_type "
                     "0 (L3MAC_NORMAL))");
}

// With the default evlan_num the VFI mask is 1: an overlay entry for VFI
// 5000 compares bit 0 alone and so matches every even VFI. The service
// makes it for a request that intake takes, and the check notes that; the
// same entry for a MAC that does not want it is a violation.
TEST_F(CheckTest, AnOverlayEntryBeyondTheVfiSpaceIsNotedOrAViolation) {
    start({.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = 8, .tcam2_cap = 8});
    ASSERT_EQ(l3mac_ctx.vfi_mask, 1u);
    ASSERT_EQ(request(19, "ol5000", 5000, OL, kC), 0);
    sw_l3mac_mac_decision();
    const std::string beyond =
        "output entry MAC 02:00:00:00:00:0c type 1 phyid 0 evlan 5000 mask 0x1 at index 0 of "
        "TCAM 1 is for VFI 5000, beyond the board's VFI space (an overlay VFI must be below 1, "
        "the VFI mask that evlan_num of the profile gives; the restore refuses such an entry, so "
        "it moves at every restart): cut to that space it compares only the bits 0x1 and "
        "matches 8192 of the VFIs 0-16383 (0, 2, 4, 6 and 8188 more), not VFI 5000 alone";
    l3mac_check_rows rows = read_rows();
    for (bool restarted : {false, true}) {
        const l3mac_check_report rep = tables(rows, restarted);
        EXPECT_EQ(joined(rep.violations), "");
        EXPECT_EQ(joined(rep.notes), "beyond: " + beyond + "; raise evlan_num in the profile "
                                     "to give the board the VFIs its requests use\n");
    }
    // The request goes, its entry stays behind.
    ASSERT_EQ(withdraw(19, "ol5000"), 0);
    rows.res = read_rows().res;
    const l3mac_check_report rep = tables(rows, false);
    expect_violation(rep, beyond);
    EXPECT_TRUE(rep.notes.empty()) << joined(rep.notes);
}

// The program over the store on disk: its summary; rows that the service
// refused are listed with their key and the check that refused them, and do
// not fail the check: they are the requesters' mistakes. The all-zero MAC
// fails it, in the request and in the entry made for it, both naming the
// row that asked. A root without a store and a profile that the daemon
// would refuse end it with status 2. (Its other violations: the tests above.)
TEST_F(CheckTest, TheProgramTellsTheStoreItsRefusedRowsAndTheAllZeroMac) {
    serve(kTwo);
    tbl_turn_commit();  // the loop that would end this turn never runs here
    expect_has(check(0, {"--restarted"}),
               {"hnx-l3mac-check: 8 managed and 0 direct requests, 3 MACs (0 unserved), TCAM 0 "
                "holds 3 of 8, TCAM 1 holds 1 of 8, 0 direct rows, 0 refused rows: 0 violations"});

    request(19, "far", 5000, NORMAL, kA);
    request(0, "nobody", 10, NORMAL, kA);
    l3mac_row idle(19, "idle", 10, NORMAL, kA.data(), 0, S_ROUTE__L3TABLE_STATUS_E__STATUS_NONE);
    ASSERT_EQ(ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &idle.res.base, 0, 0), 0);
    tbl_turn_commit();
    expect_has(check(0), {"refused: user 19 uuid \"far\": evlan 5000 is outside the VLAN range "
                          "0-4095 of mac_type 0 (L3MAC_NORMAL)\n",
                          "refused: user 0 uuid \"nobody\": user 0 (L3TABLE_NONE) is no user: "
                          "users are 1-41 (L3TABLE_UC to L3TABLE_OVERLAY_COUNTER)\n",
                          "refused: user 19 uuid \"idle\": status 0 (STATUS_NONE): the service "
                          "acts only on rows with STATUS_REQUEST\n",
                          "0 direct rows, 3 refused rows: 0 violations\n"});

    // Five bytes, as a slip in hnx-tbl once wrote them.
    l3mac_row five(19, "five", 20, NORMAL, mac6{}.data());
    five.mac.data.len = 5;
    ASSERT_EQ(ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &five.res.base, 0, 0), 0);
    ASSERT_EQ(l3mac_set_msg_proc(five.get()), 0);
    sw_l3mac_mac_decision();
    tbl_turn_commit();
    const uint32_t hw_id = l3mac_check_hw_id_of(l3mac_check_board_live(), 0,
                                                entries_of(mac_of(NORMAL, mac6{}))[0]->idx, 0);
    expect_has(check(1), {"violation: request user 19 uuid \"five\" asks for the all-zero MAC "
                          "00:00:00:00:00:00 (its attr.mac has 5 bytes; the service reads a MAC "
                          "that is not 6 bytes as zero)\n",
                          "violation: output row hw_id " + std::to_string(hw_id) +
                              " programs the all-zero MAC (type 0 phyid 0 evlan 20 mask 0xfff), "
                              "from the input rows user 19 uuid \"five\"\n",
                          "3 refused rows: 2 violations\n"});

    // A mistyped root: said so, and no store made there.
    const std::string typo = root_ + "/nothing-here";
    EXPECT_EQ(check(2, {"--restarted"}, typo),
              "hnx-l3mac-check: no table store at " + typo + "/var/run/hnx/store-16.db (is HNX_ROOT set?)\n");
    EXPECT_FALSE(std::filesystem::exists(typo));
    // A profile that the daemon would refuse describes no board to judge by.
    std::ofstream(root_ + "/etc/hnx/capability.json") << "{\"s_route\": {\"l3mac\": {},}}\n";
    expect_has(check(2, {"--restarted"}), {"the daemon would not start on this profile"});
}

}  // namespace
