// hnx-tbl end to end under a temporary root: what it writes, reads and dumps,
// bad input that writes nothing, roots without a store, and rows that the
// service would refuse.

#include <filesystem>

#include "platform/host/hnx_host.h"
#include "support/managed_proc.h"
#include "support/l3mac_world.h"

namespace {

const char *const kRes = "s_route.l3mac_res";

class HnxTbl : public L3macWorld {
protected:
    // Runs hnx-tbl --root <root> with the words.
    managed_result run(const std::vector<std::string> &words) {
        return managed_tool(HNX_BIN_DIR, root_, "hnx-tbl", words);
    }
};

// t_user, and mac_type in the output tables, are plain numbers in the
// records: every view names them, and set, get and del take names or
// numbers.
TEST_F(HnxTbl, SetGetDelAndDumpInKeyOrderWithNames) {
    ASSERT_EQ(run({"set", kRes, "index.t_user=L3TABLE_VXLAN_TNL", "index.uuid=vr 1",
                   "status=STATUS_REQUEST", "attr.is_match_evlan=true", "attr.evlan=100",
                   "attr.mac_type=L3MAC_VRRP", "attr.mac=00:11:22:33:44:55"}).status, 0);
    ASSERT_EQ(run({"set", kRes, "index.t_user=1", "index.uuid=a", "status=3", "attr.mac_type=1",
                   "attr.mac.data=0a:0b:0c:0d:0e:0f", "attr.phyid=0x10"}).status, 0);
    const std::string row1 =
        "index.t_user=L3TABLE_UC index.uuid=a status=STATUS_FAILED attr.is_match_evlan=false "
        "attr.evlan=0 attr.mac_type=L3MAC_OL attr.mac=0a:0b:0c:0d:0e:0f attr.phyid=16\n";
    const std::string row3 =
        "index.t_user=L3TABLE_VXLAN_TNL index.uuid=\"vr 1\" status=STATUS_REQUEST attr.is_match_evlan=true "
        "attr.evlan=100 attr.mac_type=L3MAC_VRRP attr.mac=00:11:22:33:44:55 attr.phyid=0\n";
    EXPECT_EQ(run({"dump", kRes}).out, row1 + row3);
    managed_result got = run({"get", kRes, "index.t_user=3", "index.uuid=vr 1"});
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, row3);
    EXPECT_EQ(run({"del", kRes, "index.t_user=3", "index.uuid=vr 1"}).status, 0);
    got = run({"get", kRes, "index.t_user=3", "index.uuid=vr 1"});
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.err, "hnx-tbl: s_route.l3mac_res: no row with index.t_user=L3TABLE_VXLAN_TNL index.uuid=\"vr 1\"\n");
    EXPECT_EQ(run({"dump", kRes, "--json"}).out,
              "{\"index\":{\"t_user\":\"L3TABLE_UC\",\"uuid\":\"a\"},\"status\":\"STATUS_FAILED\","
              "\"attr\":{\"is_match_evlan\":false,\"evlan\":0,\"mac_type\":\"L3MAC_OL\",\"mac\":"
              "\"0a:0b:0c:0d:0e:0f\",\"phyid\":16}}\n");

    ASSERT_EQ(run({"set", "s_route.l3mac_hw_res", "index.hw_id=7", "attr.mac_type=L3MAC_OL",
                   "attr.mac=00:11:22:33:44:55"}).status, 0);
    ASSERT_EQ(run({"set", "s_route.l3mac_hw_res", "index.hw_id=8", "attr.mac_type=9",
                   "attr.mac=00:11:22:33:44:55"}).status, 0);
    EXPECT_EQ(run({"dump", "s_route.l3mac_hw_res"}).out,
              "index.hw_id=7 index.phase=0 attr.evlan=0 attr.evlan_mask=0 attr.mac_type=L3MAC_OL "
              "attr.mac=00:11:22:33:44:55 attr.phyid=0\n"
              "index.hw_id=8 index.phase=0 attr.evlan=0 attr.evlan_mask=0 attr.mac_type=9 "
              "attr.mac=00:11:22:33:44:55 attr.phyid=0\n");
}

// Each mistake's line exactly; one in the command line's shape is followed
// by the usage.
TEST_F(HnxTbl, BadInputSaysWhyAndWritesNothing) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"set", "s_route.nope", "a=1"},
         "unknown table s_route.nope (known: s_route.l3mac_res, s_route.l3mac_hw_res, "
         "s_route.l3mac_bak, s_route.l3mac_vrrp_hw_res)"},
        {{"set", kRes, "attr.colour=1"}, "no field attr.colour in s_route.l3mac_res"},
        {{"set", kRes, "attr"}, "want FIELD=VALUE, not attr"},
        {{"set", kRes, "attr=1"}, "attr is a message: name one of its fields"},
        {{"set", kRes, "index.t_user=1", "attr.mac_type=L3MAC_PURPLE"},
         "bad value \"L3MAC_PURPLE\" for attr.mac_type: want a name of the enumeration or a number"},
        {{"set", kRes, "index.t_user=L3TABLE_NOPE"},
         "bad value \"L3TABLE_NOPE\" for index.t_user: want a name of the enumeration or a number"},
        {{"set", kRes, "index.t_user=2", "attr.mac=00-11-22-33-44-55"},
         "bad value \"00-11-22-33-44-55\" for attr.mac: want bytes as 00:11:22:33:44:55"},
        {{"set", kRes, "index.t_user=2", "attr.evlan=4294967296"},
         "bad value \"4294967296\" for attr.evlan: want a 32-bit unsigned number"},
        {{"del", kRes, "index.t_user=2", "status=1"},
         "status is not a key field of s_route.l3mac_res (index.*)"},
        {{"frob", kRes}, "unknown command frob"},
        {{"dump", kRes, "--yaml"}, "unknown option --yaml"},
        // The service would read any of these MACs as 00:00:00:00:00:00.
        {{"set", kRes, "index.t_user=2", "attr.mac=00:11:22:33:44"},
         "bad value \"00:11:22:33:44\" for attr.mac: a MAC has 6 bytes, as 00:11:22:33:44:55; "
         "this one has 5"},
        {{"set", kRes, "index.t_user=2", "attr.mac.data=00:11:22:33:44:55:66"},
         "bad value \"00:11:22:33:44:55:66\" for attr.mac.data: a MAC has 6 bytes, as "
         "00:11:22:33:44:55; this one has 7"},
        {{"set", kRes, "index.t_user=2", "status=STATUS_REQUEST", "attr.evlan=10"},
         "a request without attr.mac asks for the all-zero MAC 00:00:00:00:00:00: give "
         "attr.mac=aa:bb:cc:dd:ee:ff"},
    };
    for (const auto &[words, why] : cases) {
        const managed_result r = run(words);
        EXPECT_EQ(r.status, 2) << why;
        EXPECT_EQ(r.err.substr(0, r.err.find("Usage: hnx-tbl ")), "hnx-tbl: " + why + "\n");
    }
    EXPECT_TRUE(hnx_host_tbl_rows(kRes).empty());
    EXPECT_TRUE(hnx_host_tbl_rows("s_route.l3mac_hw_res").empty());
}

// A forgotten HNX_ROOT or a mistyped --root: the reading commands say so
// and create nothing; a write creates the store and says that it does.
TEST_F(HnxTbl, OnlyAWriteCreatesAStore) {
    const std::string elsewhere = root_ + "/typo";
    const std::string store = elsewhere + "/var/run/hnx/store-16.db";
    const std::string none = "hnx-tbl: no table store at " + store + " (is HNX_ROOT set?)\n";
    auto at = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"--root", elsewhere});
        return managed_run(HNX_BIN_DIR, root_, "hnx-tbl", words);
    };
    // A watcher would wait for ever on a store that no one else writes.
    for (const std::string words : {"dump s_route.l3mac_res", "watch s_route.l3mac_res",
                                    "get s_route.l3mac_res index.t_user=1 index.uuid=a"}) {
        const managed_result r = managed_shell("timeout 20 '" HNX_BIN_DIR "/hnx-tbl' --root '" +
                                               elsewhere + "' " + words + " 2>&1");
        EXPECT_EQ(r.status, 3) << words;
        EXPECT_EQ(r.out, none) << words;
    }
    EXPECT_FALSE(std::filesystem::exists(elsewhere));

    const managed_result made = at({"set", kRes, "index.t_user=1", "index.uuid=a",
                                    "status=STATUS_REQUEST", "attr.mac=00:11:22:33:44:55"});
    EXPECT_EQ(made.status, 0);
    EXPECT_EQ(made.err, "hnx-tbl: creating table store at " + store + "\n");
    EXPECT_EQ(at({"get", kRes, "index.t_user=1", "index.uuid=a"}).status, 0);
    EXPECT_EQ(at({"del", kRes, "index.t_user=1", "index.uuid=a"}).err, "");
}

// A row that the service will not take in is written, with the reason in
// the words of hnx-l3mac-check (the words for a VLAN out of range, a user
// that is none and a row that is no request: check_test); the board is the
// profile under the root.
TEST_F(HnxTbl, ARowTheServiceWouldRefuseIsWrittenWithAWarning) {
    write_caps({.tcam2_en = true, .copy_to_tcam2 = false});
    ASSERT_TRUE(hnx_host_tbl_rows(kRes).empty());  // the store stands
    const std::string warn = "hnx-tbl: warning: the service will take no request from this row: ";
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"index.uuid=ok", "status=STATUS_REQUEST", "attr.evlan=4095"}, ""},
        {{"index.uuid=vfi", "status=STATUS_REQUEST", "attr.mac_type=L3MAC_OL", "attr.evlan=8192"},
         warn + "evlan 8192 is outside the VFI range 0-8191 of mac_type 1 (L3MAC_OL)"},
        {{"index.uuid=type", "status=STATUS_REQUEST", "attr.mac_type=L3MAC_MAX"},
         warn + "mac_type 5 (L3MAC_MAX) is no kind of entry: types are 0-4 (L3MAC_NORMAL to "
                "L3MAC_SUBIF)"},
        {{"index.uuid=zero", "status=STATUS_REQUEST", "attr.mac=00:00:00:00:00:00"},
         "hnx-tbl: warning: the service will program the all-zero MAC 00:00:00:00:00:00 for this "
         "row"},
    };
    for (const auto &[words, line] : cases) {
        std::vector<std::string> set{"set", kRes, "index.t_user=19", "attr.mac=00:11:22:33:44:55"};
        set.insert(set.end(), words.begin(), words.end());
        const managed_result r = run(set);
        EXPECT_EQ(r.status, 0) << words[0];
        EXPECT_EQ(r.err, line.empty() ? "" : line + "\n") << words[0];
    }
    EXPECT_EQ(hnx_host_tbl_rows(kRes).size(), cases.size());
    // A row without attr, on the same board.
    EXPECT_EQ(run({"set", kRes, "index.t_user=1", "index.uuid=u", "status=1"}).err,
              warn + "the row has no attr (the mac_type, evlan and MAC of the request)\n");
}

}  // namespace
