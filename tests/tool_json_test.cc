// The tools' JSON, one shape everywhere: one object a line (JSON Lines),
// fields by their schema names, enumerations (mac_type, t_user) by their
// names, MACs as "aa:bb:cc:dd:ee:ff", dumps in key order.
#include <csignal>
#include <sys/wait.h>

#include <nlohmann/json.hpp>

#include "support/l3mac_world.h"
#include "support/managed_proc.h"

namespace {

const char *const kHw = "s_route.l3mac_hw_res";

// Every line of `out` as a JSON object; a line that is not one fails.
std::vector<nlohmann::json> objects(const std::string &out) {
    std::vector<nlohmann::json> all;
    size_t from = 0;
    for (size_t at; (at = out.find('\n', from)) != std::string::npos; from = at + 1) {
        nlohmann::json j = nlohmann::json::parse(out.substr(from, at - from), nullptr, false);
        EXPECT_TRUE(j.is_object()) << out.substr(from, at - from);
        all.push_back(j);
    }
    EXPECT_EQ(from, out.size()) << "unterminated line in " << out;
    return all;
}

class ToolJson : public L3macWorld {
protected:
    managed_result tool(const std::string &name, const std::vector<std::string> &args) {
        return managed_tool(HNX_BIN_DIR, root_, name, args);
    }
    void set_hw(const std::string &id, const std::string &mac, const std::string &type) {
        ASSERT_EQ(tool("hnx-tbl", {"set", kHw, "index.hw_id=" + id, "attr.evlan=100",
                                   "attr.evlan_mask=0xFFC", "attr.mac_type=" + type,
                                   "attr.mac=" + mac}).status, 0);
    }
};

// One set of rows for every view of them: the watcher's changes (others'
// writes, one object each), the dump in key order whatever the order of the
// writes, and the checker's findings (entries that no request asks for).
TEST_F(ToolJson, WatchDumpAndCheckGiveOneObjectALine) {
    write_caps({});
    set_hw("9", "00:11:22:33:44:59", "1");
    set_hw("5", "00:11:22:33:44:55", "0");
    const std::string out = root_ + "/watch.out", err = out + ".err";
    const pid_t pid = managed_start(HNX_BIN_DIR, root_, "hnx-tbl",
                                    {"--root", root_, "watch", "--json", kHw}, out);
    ASSERT_TRUE(managed_wait([&] { return managed_slurp(err).find("watching") != std::string::npos; }));
    set_hw("6", "00:11:22:33:44:56", "0");
    ASSERT_EQ(tool("hnx-tbl", {"del", kHw, "index.hw_id=5"}).status, 0);
    const bool both = managed_wait([&] { return l3mac_count_of(managed_slurp(out), "\n") >= 2; });
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    ASSERT_TRUE(both) << managed_slurp(out) << managed_slurp(err);
    const nlohmann::json row6 = nlohmann::json::parse(
        R"({"index":{"hw_id":6,"phase":0},"attr":{"evlan":100,"evlan_mask":4092,)"
        R"("mac_type":"L3MAC_NORMAL","mac":"00:11:22:33:44:56","phyid":0}})");
    const std::vector<nlohmann::json> changes = objects(managed_slurp(out));
    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[0], (nlohmann::json{{"op", "set"}, {"table", kHw}, {"row", row6}}));
    EXPECT_EQ(changes[1], nlohmann::json::parse(
                              R"({"op":"del","table":"s_route.l3mac_hw_res","row":{"index":{"hw_id":5,"phase":0}}})"));

    managed_result r = tool("hnx-tbl", {"dump", kHw, "--json", "--ranges"});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<nlohmann::json> rows = objects(r.out);
    ASSERT_EQ(rows.size(), 2u);
    nlohmann::json ranged = row6;
    ranged["vlans"] = "100-103";
    EXPECT_EQ(rows[0], ranged);
    EXPECT_EQ(rows[1]["index"]["hw_id"], 9);
    EXPECT_EQ(rows[1]["attr"]["mac_type"], "L3MAC_OL");
    EXPECT_EQ(rows[1]["vfis"], "100-103,4196-4199,8292-8295,12388-12391");  // 14-bit space

    r = tool("hnx-l3mac-check", {"--json"});
    EXPECT_EQ(r.status, 1) << r.err;
    const std::vector<nlohmann::json> lines = objects(r.out);
    ASSERT_GE(lines.size(), 2u) << r.out;
    EXPECT_EQ(lines.front()["kind"], "violation");
    const nlohmann::json &sum = lines.back();
    EXPECT_EQ(sum["kind"], "summary");
    EXPECT_EQ(sum["violations"], int(lines.size()) - 1 - l3mac_count_of(r.out, "\"note\"") -
                                     l3mac_count_of(r.out, "\"refused\""));
    EXPECT_EQ(sum["tcams"].size(), 2u);
}

TEST_F(ToolJson, CoverGivesTemplatesAndLineNumbers) {
    managed_result r = managed_run(HNX_BIN_DIR, root_, "l3mac-cover", {"--json", "100-103"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "{\"space\":\"vlan\",\"mode\":\"greedy\",\"templates\":[{\"key\":0,\"mask\":4095,"
                     "\"level\":0},{\"key\":100,\"mask\":4092,\"level\":2}],\"entries\":1}\n");
    r = managed_run(HNX_BIN_DIR, root_, "l3mac-cover", {"--batch", "--json"},
                    "vlan 1\n# two\n\nvfi 4096-4099\nvlx 3\n");
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, R"({"line":1,"space":"vlan","mode":"greedy","templates":[{"key":0,"mask":4094,)"
                     R"("level":1}],"entries":1})" "\n"
                     R"({"line":4,"space":"vfi","mode":"greedy","templates":[{"key":0,"mask":12287,)"
                     R"("level":1},{"key":4096,"mask":16380,"level":2}],"entries":2})" "\n");
    EXPECT_EQ(r.err, "l3mac-cover: line 5: expected 'vlan SET' or 'vfi SET'\n");
}

}  // namespace
