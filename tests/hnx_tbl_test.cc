// hnx-tbl end to end under a temporary root: what it writes, reads, dumps
// and watches, and bad input that writes nothing.
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "support/l3mac_world.h"
#include "support/tbl_world.h"

namespace {

struct run_result {
    int status;
    std::string out;
    std::string err;
};

std::string slurp(const std::string &path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

class HnxTbl : public TblWorld {
protected:
    // Starts hnx-tbl --root <root> with the words; output goes to files.
    pid_t start(const std::vector<std::string> &words) {
        std::vector<std::string> argv = {HNX_BIN_DIR "/hnx-tbl", "--root", root_};
        argv.insert(argv.end(), words.begin(), words.end());
        pid_t pid = fork();
        if (pid == 0) {
            dup2(open((root_ + "/out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
            dup2(open((root_ + "/err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
            std::vector<char *> args;
            for (std::string &w : argv) args.push_back(w.data());
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
        return pid;
    }

    run_result finish(pid_t pid) {
        int status = 0;
        waitpid(pid, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(root_ + "/out"),
                slurp(root_ + "/err")};
    }

    run_result run(const std::vector<std::string> &words) { return finish(start(words)); }

    // Waits, bounded, until the file holds `text`.
    bool wait_for(const std::string &file, const std::string &text) {
        auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (slurp(root_ + "/" + file).find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > until) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }
};

const char *const kRes = "s_route.l3mac_res";

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
    EXPECT_EQ(run({"dump", kRes, "--json"}).out,
              "{\"index\":{\"t_user\":1,\"uuid\":\"a\"},\"status\":\"STATUS_FAILED\",\"attr\":"
              "{\"is_match_evlan\":false,\"evlan\":0,\"mac_type\":\"L3MAC_OL\",\"mac\":{\"data\":"
              "\"0a:0b:0c:0d:0e:0f\"},\"phyid\":16}}\n"
              "{\"index\":{\"t_user\":3,\"uuid\":\"vr 1\"},\"status\":\"STATUS_REQUEST\",\"attr\":"
              "{\"is_match_evlan\":true,\"evlan\":100,\"mac_type\":\"L3MAC_VRRP\",\"mac\":{\"data\":"
              "\"00:11:22:33:44:55\"},\"phyid\":0}}\n");

    run_result got = run({"get", kRes, "index.t_user=3", "index.uuid=vr 1"});
    EXPECT_EQ(got.status, 0);
    EXPECT_EQ(got.out, row3);
    EXPECT_EQ(run({"del", kRes, "index.t_user=3", "index.uuid=vr 1"}).status, 0);
    got = run({"get", kRes, "index.t_user=3", "index.uuid=vr 1"});
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.err, "hnx-tbl: s_route.l3mac_res: no row with index.t_user=3 index.uuid=\"vr 1\"\n");
    EXPECT_EQ(run({"dump", kRes}).out, row1);
}

// The tool and the service's own calls see the same rows.
TEST_F(HnxTbl, TheToolAndTheServiceShareRows) {
    ASSERT_EQ(run({"set", "s_route.l3mac_hw_res", "index.hw_id=7", "index.phase=1",
                   "attr.evlan=4095", "attr.evlan_mask=0xfff", "attr.mac_type=1",
                   "attr.mac=00:11:22:33:44:55"}).status, 0);
    auto rows = hnx_host_tbl_rows("s_route.l3mac_hw_res");
    ASSERT_EQ(rows.size(), 1u);
    auto *r = s_route__l3mac_hw_res__unpack(nullptr, rows[0].size(), rows[0].data());
    ASSERT_TRUE(r && r->attr && r->attr->mac);
    EXPECT_EQ(r->index->hw_id, 7u);
    EXPECT_EQ(r->attr->evlan_mask, 0xfffu);
    EXPECT_EQ(r->attr->mac->data.len, 6u);
    EXPECT_EQ(r->attr->mac->data.data[5], 0x55);
    s_route__l3mac_hw_res__free_unpacked(r, nullptr);

    hw_row mine(2, 20);
    ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, mine.get(), 0, 0), 0);
    EXPECT_EQ(run({"dump", "s_route.l3mac_hw_res"}).out,
              "index.hw_id=2 index.phase=0 attr.evlan=20 attr.evlan_mask=4095 attr.mac_type=0 "
              "attr.mac=00:11:22:33:44:55 attr.phyid=0\n"
              "index.hw_id=7 index.phase=1 attr.evlan=4095 attr.evlan_mask=4095 attr.mac_type=1 "
              "attr.mac=00:11:22:33:44:55 attr.phyid=0\n");
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
        {{"set", kRes, "index.t_user=2", "attr.is_match_evlan=yes"},
         "bad value \"yes\" for attr.is_match_evlan: want true, false, 1 or 0"},
        {{"del", kRes, "index.t_user=2", "status=1"}, "status is not a key field"},
        {{"get", kRes, "attr.evlan=1"}, "attr.evlan is not a key field"},
        {{"frob", kRes}, "unknown command frob"},
        {{"dump", kRes, "--yaml"}, "unknown option --yaml"},
        {{"watch", kRes, "s_route.nope"}, "unknown table s_route.nope"},
    };
    for (const auto &[words, why] : cases) {
        run_result r = run(words);
        EXPECT_EQ(r.status, 2) << words[0] << " " << why;
        EXPECT_NE(r.err.find("hnx-tbl: " + why), std::string::npos) << r.err;
    }
    EXPECT_TRUE(hnx_host_tbl_rows(kRes).empty());
}

TEST_F(HnxTbl, WatchShowsOtherProcessesChangesAsTheyHappen) {
    pid_t watcher = start({"watch", kRes, "s_route.l3mac_hw_res"});
    ASSERT_TRUE(wait_for("err", "hnx-tbl: watching 2 table(s)\n"));
    const uint8_t mac[6] = {0, 1, 2, 3, 4, 5};
    l3mac_row req(5, "r", 10, S_ROUTE__L3MAC_TYPE_E__L3MAC_TNL, mac);
    hw_row hw(3, 30), hw_gone(3, 0, false);
    ASSERT_EQ(ss_rt_tbl_add_str(res_, &req.get()->base, 0, 0), 0);
    ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, hw.get(), 0, 0), 0);
    ASSERT_EQ(ss_rt_tbl_del_str(hw_res_, hw_gone.get(), 0, 0), 0);
    EXPECT_TRUE(wait_for("out", "del s_route.l3mac_hw_res"));
    kill(watcher, SIGTERM);
    run_result r = finish(watcher);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "set s_route.l3mac_res index.t_user=5 index.uuid=r status=STATUS_REQUEST "
              "attr.is_match_evlan=false attr.evlan=10 attr.mac_type=L3MAC_TNL "
              "attr.mac=00:01:02:03:04:05 attr.phyid=0\n"
              "set s_route.l3mac_hw_res index.hw_id=3 index.phase=0 attr.evlan=30 "
              "attr.evlan_mask=4095 attr.mac_type=0 attr.mac=00:11:22:33:44:55 attr.phyid=0\n"
              "del s_route.l3mac_hw_res index.hw_id=3 index.phase=0\n");
}

}  // namespace
