// hnx-tbl end to end under a temporary root: what it writes, reads and dumps,
// and bad input that writes nothing.

#include "platform/host/hnx_host.h"
#include "support/managed_proc.h"
#include "support/l3mac_world.h"

namespace {

const char *const kRes = "s_route.l3mac_res";

class HnxTbl : public L3macWorld {
protected:
    // Runs hnx-tbl --root <root> with the words.
    managed_result run(std::vector<std::string> words) {
        words.insert(words.begin(), {"--root", root_});
        return managed_run(HNX_BIN_DIR, root_, "hnx-tbl", words);
    }
};

TEST_F(HnxTbl, SetGetDelAndDumpInKeyOrder) {
    ASSERT_EQ(run({"set", kRes, "index.t_user=3", "index.uuid=vr 1", "status=STATUS_REQUEST",
                   "attr.is_match_evlan=true", "attr.evlan=100", "attr.mac_type=L3MAC_VRRP",
                   "attr.mac=00:11:22:33:44:55"}).status, 0);
    ASSERT_EQ(run({"set", kRes, "index.t_user=1", "index.uuid=a", "status=3", "attr.mac_type=1",
                   "attr.mac.data=0a:0b:0c:0d:0e:0f", "attr.phyid=0x10"}).status, 0);
    const std::string row1 =
        "index.t_user=1 index.uuid=a status=STATUS_FAILED attr.is_match_evlan=false "
        "attr.evlan=0 attr.mac_type=L3MAC_OL attr.mac=0a:0b:0c:0d:0e:0f attr.phyid=16\n";
    const std::string row3 =
        "index.t_user=3 index.uuid=\"vr 1\" status=STATUS_REQUEST attr.is_match_evlan=true "
        "attr.evlan=100 attr.mac_type=L3MAC_VRRP attr.mac=00:11:22:33:44:55 attr.phyid=0\n";
    EXPECT_EQ(run({"dump", kRes}).out, row1 + row3);
    managed_result got = run({"get", kRes, "index.t_user=3", "index.uuid=vr 1"});
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, row3);
    EXPECT_EQ(run({"del", kRes, "index.t_user=3", "index.uuid=vr 1"}).status, 0);
    got = run({"get", kRes, "index.t_user=3", "index.uuid=vr 1"});
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.err, "hnx-tbl: s_route.l3mac_res: no row with index.t_user=3 index.uuid=\"vr 1\"\n");
    EXPECT_EQ(run({"dump", kRes, "--json"}).out,
              "{\"index\":{\"t_user\":1,\"uuid\":\"a\"},\"status\":\"STATUS_FAILED\",\"attr\":"
              "{\"is_match_evlan\":false,\"evlan\":0,\"mac_type\":\"L3MAC_OL\",\"mac\":{\"data\":"
              "\"0a:0b:0c:0d:0e:0f\"},\"phyid\":16}}\n");
}

TEST_F(HnxTbl, BadInputSaysWhyAndWritesNothing) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"set", "s_route.nope", "a=1"}, "unknown table s_route.nope"},
        {{"set", kRes, "attr.colour=1"}, "no field attr.colour in s_route.l3mac_res"},
        {{"set", kRes, "attr"}, "want FIELD=VALUE, not attr"},
        {{"set", kRes, "attr=1"}, "attr is a message: name one of its fields"},
        {{"set", kRes, "index.t_user=1", "attr.mac_type=L3MAC_PURPLE"},
         "bad value \"L3MAC_PURPLE\" for attr.mac_type"},
        {{"set", kRes, "index.t_user=2", "attr.mac=00-11-22-33-44-55"},
         "bad value \"00-11-22-33-44-55\" for attr.mac"},
        {{"set", kRes, "index.t_user=2", "attr.evlan=4294967296"},
         "bad value \"4294967296\" for attr.evlan: want a 32-bit unsigned number"},
        {{"del", kRes, "index.t_user=2", "status=1"}, "status is not a key field"},
        {{"frob", kRes}, "unknown command frob"},
        {{"dump", kRes, "--yaml"}, "unknown option --yaml"},
    };
    for (const auto &[words, why] : cases) {
        managed_result r = run(words);
        EXPECT_EQ(r.status, 2) << why;
        EXPECT_NE(r.err.find("hnx-tbl: " + why), std::string::npos) << r.err;
    }
    EXPECT_TRUE(hnx_host_tbl_rows(kRes).empty());
}

}  // namespace
