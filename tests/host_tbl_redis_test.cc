// The Redis store's own write step and layout: one step writes each key's
// last state and logs every change in order, however many keys it holds; a
// step's changes are one stream entry that redis-cli shows as it is, read
// back a few at a time; a store of an earlier layout is brought to this one
// by its maker and refused by others.
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/host/tbl_redis.h"
#include "support/l3mac_world.h"
#include "support/redis_server.h"

namespace {

tbl_bytes b(const std::string &s) { return tbl_bytes(s.begin(), s.end()); }

class RedisStore : public OverStores<testing::Test> {
protected:
    std::unique_ptr<tbl_store> open(tbl_open mode = tbl_open::create) {
        return tbl_store::open(16, "", mode);
    }
    // The changes after `after`, as "set t k=row" / "del t k".
    static std::vector<std::string> changes(tbl_store *st, int64_t after) {
        std::vector<tbl_change> got;
        EXPECT_EQ(st->changes(after, 10000, &got), 0);
        std::vector<std::string> out;
        int64_t seq = after;
        for (const tbl_change &c : got) {
            EXPECT_EQ(c.seq, ++seq);
            EXPECT_EQ(c.writer, st->owner());
            out.push_back((c.is_del ? "del " : "set ") + c.table + " " +
                          std::string(c.row.begin(), c.row.end()));
        }
        return out;
    }
};

// One step writes each key's last state and logs every change in order, in
// one stream entry.
TEST_P(RedisStore, OneStepWritesEachKeysLastStateAndLogsEveryChangeInOrderAsOneEntry) {
    auto st = open();
    ASSERT_NE(st, nullptr);
    bool changed = false;
    ASSERT_EQ(st->put("t", b("k0"), b("k0=a"), &changed), 0);
    ASSERT_EQ(st->put("u", b("k1"), b("k1=a"), &changed), 0);
    int64_t top = 0;
    ASSERT_EQ(st->top(&top), 0);
    ASSERT_EQ(top, 2);

    ASSERT_EQ(st->begin(), 0);
    // {table, key, row}, no row for an erase; k0 as it stands, k9 not there.
    const char *step[][3] = {{"t", "k1", "k1=b"}, {"t", "k1", nullptr}, {"t", "k1", "k1=c"},
                             {"t", "k0", "k0=a"}, {"t", "k9", nullptr}, {"u", "k1", nullptr},
                             {"u", "k2", "k2=a"}};
    for (auto &[t, k, v] : step)
        ASSERT_EQ(v ? st->put(t, b(k), b(v), &changed) : st->erase(t, b(k), b(k), &changed), 0);
    ASSERT_EQ(st->commit(), 0);
    EXPECT_EQ(changes(st.get(), 2), (std::vector<std::string>{"set t k1=b", "del t k1",
                                                             "set t k1=c", "del u k1",
                                                             "set u k2=a"}));
    EXPECT_EQ(redis_.command({"HGET", "hnx:16:rows:t", "k1"}), "k1=c");
    EXPECT_EQ(redis_.command({"HGET", "hnx:16:rows:t", "k0"}), "k0=a");
    EXPECT_EQ(redis_.command({"HEXISTS", "hnx:16:rows:u", "k1"}), "0");
    EXPECT_EQ(redis_.command({"GET", "hnx:16:top"}), "7");
    EXPECT_EQ(redis_.command({"GET", "hnx:16:ver:u"}), "7");
    EXPECT_EQ(redis_.command({"GET", "hnx:16:id"}).rfind("3/", 0), 0u);
    // What an operator reads with redis-cli: an entry a step, ID
    // "SEQ-WRITER" of its last change, a field a change named by the
    // operation and the table, holding the row (a delete's key).
    auto *rs = dynamic_cast<tbl_redis *>(st.get());
    ASSERT_NE(rs, nullptr);
    const std::string w = "-" + rs->writer() + " ";
    EXPECT_EQ(redis_.command({"EVAL", R"(
local out = {}
for _, e in ipairs(redis.call('XRANGE', KEYS[1], '-', '+')) do
  out[#out + 1] = e[1] .. ' ' .. table.concat(e[2], ' ')
end
return table.concat(out, ', '))", "1", "hnx:16:log"}),
              "1" + w + "set:t k0=a, 2" + w + "set:u k1=a, 7" + w +
                  "set:t k1=b del:t k1 set:t k1=c del:u k1 set:u k2=a");
    // A reader that asks for fewer changes than an entry holds gets them,
    // and the rest of the entry next time.
    std::vector<tbl_change> got;
    ASSERT_EQ(st->changes(3, 2, &got), 0);
    ASSERT_EQ(st->changes(5, 9, &got), 0);
    ASSERT_EQ(got.size(), 4u);
    for (size_t i = 0; i < got.size(); i++) EXPECT_EQ(got[i].seq, int64_t(4 + i));

    // A step of thousands of keys, then the same rows again: no change.
    for (int round = 0; round < 2; round++) {
        ASSERT_EQ(st->begin(), 0);
        for (int i = 0; i < 2500; i++)
            ASSERT_EQ(st->put("v", b("k" + std::to_string(i)), b(std::to_string(i)), &changed), 0);
        ASSERT_EQ(st->commit(), 0);
        EXPECT_EQ(redis_.command({"HLEN", "hnx:16:rows:v"}), "2500");
        EXPECT_EQ(redis_.command({"GET", "hnx:16:top"}), "2507");
    }
    EXPECT_EQ(changes(st.get(), 2506), (std::vector<std::string>{"set v 2499"}));
}

TEST_P(RedisStore, AStoreOfAnEarlierLayoutIsBroughtToThisOneByItsMakerAndRefusedByOthers) {
    const std::string old_id = "0123456789abcdef01234567";
    ASSERT_EQ(redis_.command({"SET", "hnx:16:id", old_id}), "OK");
    ASSERT_EQ(redis_.command({"SET", "hnx:16:top", "7"}), "OK");
    ASSERT_EQ(redis_.command({"HSET", "hnx:16:rows:t", "k", "v"}), "1");
    ASSERT_EQ(redis_.command({"XADD", "hnx:16:log", "7-1", "table", "t", "op", "set", "row", "v",
                              "writer", "1@h/b/n"}), "7-1");
    const std::string head = "ss_rt_tbl: store 16 (" + redis_.url() + "): ";

    EXPECT_EQ(err_of([this] { EXPECT_EQ(open(tbl_open::existing), nullptr); }),
              head + "its keys are of the first layout (change log entries of four fields): "
                     "start the service (hnx-l3table-l3mac) on it once, which brings it to this "
                     "one\n");
    err_of([this] { EXPECT_EQ(open(tbl_open::read_only), nullptr); });
    EXPECT_EQ(redis_.command({"GET", "hnx:16:id"}), old_id);

    std::unique_ptr<tbl_store> st;
    EXPECT_EQ(err_of([&] { st = open(); }),
              head + "brought its keys from the first layout to layout 3: its change log was "
                     "dropped, its rows kept\n");
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(redis_.command({"GET", "hnx:16:id"}), "3/" + old_id);
    EXPECT_EQ(redis_.command({"EXISTS", "hnx:16:log"}), "0");
    tbl_bytes row;
    bool found = false, changed = false;
    ASSERT_EQ(st->get("t", b("k"), &row, &found), 0);
    EXPECT_TRUE(found);
    ASSERT_EQ(st->put("t", b("k"), b("w"), &changed), 0);
    EXPECT_EQ(changes(st.get(), 7), (std::vector<std::string>{"set t w"}));
    // Others open it as it is now.
    EXPECT_NE(open(tbl_open::existing), nullptr);
    st.reset();

    // The second layout logged an entry for each change.
    ASSERT_EQ(redis_.command({"SET", "hnx:16:id", "2/" + old_id}), "OK");
    EXPECT_EQ(err_of([this] { EXPECT_EQ(open(tbl_open::existing), nullptr); }),
              head + "its keys are of layout 2 (a change log entry for each change): start the "
                     "service (hnx-l3table-l3mac) on it once, which brings it to this one\n");
    EXPECT_EQ(err_of([&] { st = open(); }),
              head + "brought its keys from layout 2 to layout 3: its change log was dropped, "
                     "its rows kept\n");
    ASSERT_NE(st, nullptr);
    EXPECT_EQ(redis_.command({"GET", "hnx:16:id"}), "3/" + old_id);
    EXPECT_EQ(redis_.command({"EXISTS", "hnx:16:log"}), "0");
    EXPECT_EQ(redis_.command({"HGET", "hnx:16:rows:t", "k"}), "w");

    // A layout this version does not know is left alone.
    ASSERT_EQ(redis_.command({"SET", "hnx:16:id", "4/" + old_id}), "OK");
    const std::string said = err_of([this] { EXPECT_EQ(open(), nullptr); });
    EXPECT_EQ(said.find(head + "its keys are of layout 4, which this version does not know"), 0u)
        << said;
}

INSTANTIATE_TEST_SUITE_P(Redis, RedisStore, testing::Values(store_backend::redis),
                         store_backend_name);

}  // namespace
