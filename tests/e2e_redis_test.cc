// The daemon on Redis where Redis differs from a file: the server killed
// and started again while requests arrive, an ACL set-up that lets each
// side do only its part, and a start against a server that is not there.
#include <algorithm>
#include <fstream>
#include <string>
#include <utility>

#include "platform/host/hnx_host.h"
#include "support/daemon_world.h"
#include "support/tbl_kit.h"

namespace {

const std::string kBin = HNX_BIN_DIR;

// Requests of `n` MACs from `first` on, two VLANs each, as l3mac-feed reads them.
std::string requests(int first, int n) {
    std::string in;
    for (int m = first; m < first + n; m++) {
        char mac[18];
        std::snprintf(mac, sizeof mac, "02:00:00:00:%02x:%02x", m >> 8, m & 0xff);
        for (int vlan : {10 + m % 50, 1000 + m % 50})
            in += "set 1 m" + std::to_string(m) + "v" + std::to_string(vlan) + " L3MAC_NORMAL " +
                  mac + " " + std::to_string(vlan) + "\n";
    }
    return in;
}

class RedisE2e : public DaemonWorld {
protected:
    RedisE2e() { appendonly_ = true; }
    managed_result check() const { return managed_tool(kBin, root_, "hnx-l3mac-check", {}); }
    managed_result feed(const std::string &in) const {
        return managed_tool(kBin, root_, "l3mac-feed", {}, in);
    }
    managed_result tbl(const std::vector<std::string> &args) const {
        return managed_tool(kBin, root_, "hnx-tbl", args);
    }
    // The daemon's exit status once it ends, or -1.
    int exit_of_daemon() { return child_wait(std::exchange(pid_, 0)); }
};

// The server killed (its append-only file on) while a user writes its
// requests: the daemon says so and exits for its supervisor. A start while
// nothing listens ends with one line that names the store and what to do,
// and an exit that is not 0, so that the supervisor tries again. Once the
// server and the daemon are back and the user has written what it had
// not, the checker finds nothing wrong and every entry is where it was.
TEST_P(RedisE2e, AServerKilledAndStartedAgainWhileRequestsArriveCostsNoEntry) {
    write_caps({.tcam_cap = 1024});
    start();
    ASSERT_EQ(feed(requests(0, 100)).status, 0);
    ASSERT_TRUE(managed_wait([&] { return check().status == 0; }))
        << check().out << managed_slurp(root_ + "/daemon.out.err");
    const auto before = managed_hw_rows();
    ASSERT_FALSE(before.empty());

    const std::string more = requests(100, 300);
    const pid_t user = child_start([&] { feed(more); });
    // The user's first rows are in when the server goes.
    managed_wait(
        [&] { return redis_.command({"HLEN", "hnx:16:rows:s_route.l3mac_res"}) != "200"; });
    redis_.stop(true);
    EXPECT_EQ(exit_of_daemon(), 75);
    child_wait(user);
    std::string said = managed_slurp(root_ + "/daemon.out.err");
    EXPECT_NE(said.find("lost its server ("), std::string::npos) << said;

    start();
    const int status = exit_of_daemon();
    EXPECT_NE(status, 0);
    EXPECT_NE(status, -1);
    said = managed_slurp(root_ + "/daemon.out.err").substr(said.size());  // the new start's
    EXPECT_EQ(l3mac_count_of(said, "cannot connect: "), 1) << said;
    EXPECT_NE(said.find("ss_rt_tbl: store 16 (" + redis_.url() + "): cannot connect: "),
              std::string::npos) << said;
    EXPECT_NE(said.find(". Start the Redis server there, or give HNX_STORE (--store) one that "
                        "runs\n"), std::string::npos) << said;

    ASSERT_TRUE(redis_.start(true)) << redis_.error();
    hnx_host_tbl_reset();  // this process's connection went with the server
    start();
    ASSERT_EQ(feed(more).status, 0);
    ASSERT_TRUE(managed_wait([&] { return check().status == 0; }))
        << check().out << managed_slurp(root_ + "/daemon.out.err");
    auto after = managed_hw_rows();
    std::erase_if(after, [&](const hw_entry &e) {
        return std::none_of(before.begin(), before.end(),
                            [&](const hw_entry &b) { return b.mac == e.mac; });
    });
    EXPECT_EQ(after, before);  // the first MACs' entries at their old indexes
    EXPECT_EQ(managed_hw_rows().size(), managed_bak_rows().size());
}

// The users may write only the input table, the hardware side may only read
// the output tables, the daemon has what it needs: the ACL of the guide.
TEST_P(RedisE2e, AnAclSetUpLetsEachSideDoItsPartOnly) {
    const std::string p = "hnx:16:";
    const std::string in = "s_route.l3mac_res", hw = "s_route.l3mac_hw_res";
    const std::vector<std::string> common{"on", "resetkeys", "resetchannels", "+@read",
                                          "+@write", "+@transaction", "+@scripting",
                                          "+@connection", "-@dangerous"};
    auto setuser = [&](const std::string &name, std::vector<std::string> rules) {
        std::vector<std::string> cmd{"ACL", "SETUSER", name, ">" + name + "-pw"};
        cmd.insert(cmd.end(), common.begin(), common.end());
        cmd.insert(cmd.end(), rules.begin(), rules.end());
        ASSERT_EQ(redis_.command(cmd), "OK");
    };
    setuser("l3mac", {"~" + p + "*"});
    setuser("features", {"%R~" + p + "*", "%W~" + p + "rows:" + in, "%W~" + p + "ver:" + in,
                         "%W~" + p + "top", "%W~" + p + "log", "%W~" + p + "readers",
                         "%W~" + p + "lease:*"});
    setuser("hardware", {"%R~" + p + "id", "%R~" + p + "top", "%R~" + p + "log",
                         "%R~" + p + "rows:" + hw, "%R~" + p + "ver:" + hw,
                         "%R~" + p + "rows:s_route.l3mac_vrrp_hw_res",
                         "%R~" + p + "ver:s_route.l3mac_vrrp_hw_res", "~" + p + "readers",
                         "~" + p + "lease:*"});
    auto as = [&](const std::string &name) {
        const std::string file = root_ + "/" + name + ".pw";
        std::ofstream(file) << name << " " << name << "-pw\n";
        setenv("HNX_STORE_PASSWORD_FILE", file.c_str(), 1);
    };
    write_caps({});
    as("l3mac");
    start();
    ASSERT_TRUE(managed_wait([&] { return redis_.command({"EXISTS", p + "id"}) == "1"; }));

    as("features");
    const managed_result wrote = tbl({"set", in, "index.t_user=19", "index.uuid=v100",
                                      "status=STATUS_REQUEST", "attr.evlan=100",
                                      "attr.mac_type=L3MAC_NORMAL", "attr.mac=00:11:22:33:44:55"});
    EXPECT_EQ(wrote.status, 0) << wrote.err;
    const managed_result forged = tbl({"set", hw, "index.hw_id=7", "attr.evlan=5"});
    EXPECT_NE(forged.status, 0);
    EXPECT_NE(forged.err.find("can't access"), std::string::npos) << forged.err;
    EXPECT_EQ(redis_.command({"HEXISTS", p + "rows:" + hw, std::string("\x08\x07", 2)}), "0");

    as("hardware");
    ASSERT_TRUE(managed_wait([&] {
        return tbl({"dump", hw}).out.find("attr.evlan=100") != std::string::npos;
    })) << tbl({"dump", hw}).err;
    EXPECT_NE(tbl({"del", hw, "index.hw_id=0"}).status, 0);
    const managed_result peek = tbl({"dump", in});
    EXPECT_NE(peek.status, 0);
    EXPECT_EQ(peek.out.find("v100"), std::string::npos) << peek.out;
    unsetenv("HNX_STORE_PASSWORD_FILE");
}

INSTANTIATE_TEST_SUITE_P(Stores, RedisE2e, testing::Values(store_backend::redis),
                         store_backend_name);

}  // namespace
