// The table store's promises at its own interface, the same cases on every
// backend: equal writes, write order, transactions, the log's bound by its
// readers, snapshots, key order, and how a store is opened (only a writer
// makes one; a read-only connection never writes).
#include <filesystem>

#include <gtest/gtest.h>

#include "platform/host/hnx_host.h"
#include "platform/host/tbl_state.h"
#include "platform/host/tbl_store.h"
#include "platform/host/tbl_where.h"
#include "support/l3mac_world.h"
#include "support/redis_server.h"

namespace {

namespace fs = std::filesystem;

class TblStore : public OverStores<L3macWorld> {
protected:
    void SetUp() override {
        OverStores::SetUp();
        if (IsSkipped()) return;
        path_ = root_ + "/var/run/hnx/store-16.db";
        a_ = tbl_store::open(16, path_);
        b_ = other();
        ASSERT_TRUE(a_ && b_);
    }
    void TearDown() override {
        a_.reset(), b_.reset();
        OverStores::TearDown();
    }
    // A second connection, as another process of the store has it.
    std::unique_ptr<tbl_store> other(tbl_open mode = tbl_open::create) {
        return on_memory() ? tbl_memory::open_other(16, path_, mode)
                           : tbl_store::open(16, path_, mode);
    }
    static bool put(tbl_store *st, const std::string &t, const tbl_bytes &k, const tbl_bytes &v) {
        bool changed = false;
        EXPECT_EQ(st->put(t, k, v, &changed), 0);
        return changed;
    }
    static bool erase(tbl_store *st, const std::string &t, const tbl_bytes &k) {
        bool changed = false;
        EXPECT_EQ(st->erase(t, k, k, &changed), 0);
        return changed;
    }
    static int64_t top(tbl_store *st) {
        int64_t seq = -1;
        EXPECT_EQ(st->top(&seq), 0);
        return seq;
    }
    static int64_t log_size(tbl_store *st) {
        int64_t n = -1;
        EXPECT_EQ(st->log_size(&n), 0);
        return n;
    }
    // The log after `after` as "seq table set|del row-bytes".
    static std::vector<std::string> log_after(tbl_store *st, int64_t after) {
        std::vector<tbl_change> out;
        EXPECT_EQ(st->changes(after, 100000, &out), 0);
        std::vector<std::string> said;
        for (const tbl_change &c : out) {
            std::string s = std::to_string(c.seq) + " " + c.table + (c.is_del ? " del" : " set");
            for (uint8_t b : c.row) s += " " + std::to_string(b);
            said.push_back(s);
        }
        return said;
    }
    static std::vector<tbl_bytes> keys(const std::vector<tbl_row> &rows) {
        std::vector<tbl_bytes> out;
        for (const tbl_row &r : rows) out.push_back(r.key);
        return out;
    }
    std::unique_ptr<tbl_store> a_, b_;
    std::string path_;
};

using strs = std::vector<std::string>;

TEST_P(TblStore, EveryRealChangeIsLoggedInWriteOrderAnEqualOneIsNotASnapshotKnowsItsTop) {
    EXPECT_TRUE(put(a_.get(), "t", {1}, {10}));
    EXPECT_FALSE(put(a_.get(), "t", {1}, {10}));
    EXPECT_TRUE(put(b_.get(), "u", {1}, {11}));
    EXPECT_TRUE(put(a_.get(), "t", {1}, {12}));
    EXPECT_FALSE(erase(b_.get(), "t", {2}));
    EXPECT_FALSE(erase(b_.get(), "none", {2}));
    EXPECT_TRUE(erase(b_.get(), "t", {1}));
    EXPECT_EQ(log_after(a_.get(), 0), (strs{"1 t set 10", "2 u set 11", "3 t set 12", "4 t del 1"}));
    EXPECT_EQ(log_after(b_.get(), 2), (strs{"3 t set 12", "4 t del 1"}));
    EXPECT_EQ(top(b_.get()), 4);
    tbl_bytes row;
    bool found = true;
    ASSERT_EQ(a_->get("t", {1}, &row, &found), 0);
    EXPECT_FALSE(found);
    ASSERT_EQ(a_->get("u", {1}, &row, &found), 0);
    EXPECT_TRUE(found);
    EXPECT_EQ(row, tbl_bytes{11});

    // A snapshot's rows miss exactly the changes after its top.
    put(a_.get(), "t", {2}, {2});
    put(a_.get(), "t", {1}, {1});
    put(a_.get(), "u", {9}, {9});
    std::vector<std::vector<tbl_row>> rows;
    int64_t at = -1;
    ASSERT_EQ(b_->snapshot({"t", "u", "v"}, &rows, &at), 0);
    EXPECT_EQ(at, 7);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(keys(rows[0]), (std::vector<tbl_bytes>{{1}, {2}}));
    EXPECT_EQ(keys(rows[1]), (std::vector<tbl_bytes>{{1}, {9}}));
    EXPECT_TRUE(rows[2].empty());
    erase(a_.get(), "t", {2});
    EXPECT_EQ(log_after(b_.get(), at), (strs{"8 t del 2"}));
    std::string problem;
    EXPECT_EQ(b_->check_integrity(&problem), 0) << problem;
}

// Packed keys order by their bytes, a shorter prefix first, the empty key
// (an all-default key) before all; pages go on after the key given.
TEST_P(TblStore, PagesRunInBytewiseKeyOrderEachSeesTheTableAsItStandsNow) {
    const std::vector<tbl_bytes> want{{}, {0x01}, {0x01, 0xff}, {0x02}, {0x80, 0x01}, {0xff}};
    for (size_t i = want.size(); i-- > 0;) put(a_.get(), "t", want[i], {uint8_t(i)});
    put(a_.get(), "s", {0x00}, {1});
    std::vector<tbl_row> got;
    tbl_bytes last;
    const tbl_bytes *after = nullptr;
    for (size_t before = 0;; before = got.size()) {
        ASSERT_EQ(b_->page("t", after, 4, &got), 0);
        if (got.size() - before < 4) break;
        last = got.back().key;  // `got` grows: the key stands apart
        after = &last;
    }
    EXPECT_EQ(keys(got), want);
    EXPECT_EQ(got[3].val, tbl_bytes{3});
    int64_t n = -1;
    ASSERT_EQ(b_->count("t", &n), 0);
    EXPECT_EQ(n, 6);
    ASSERT_EQ(b_->count("nothing", &n), 0);
    EXPECT_EQ(n, 0);

    // Each page reads the table as it stands: what another connection
    // changed between two pages is there, in key order; a page may go on
    // after a key that is not there.
    for (uint8_t k = 1; k <= 10; k++) put(a_.get(), "p", {k}, {k});
    std::vector<tbl_row> first, second;
    ASSERT_EQ(a_->page("p", nullptr, 3, &first), 0);
    EXPECT_EQ(keys(first), (std::vector<tbl_bytes>{{1}, {2}, {3}}));
    put(b_.get(), "p", {4}, {40});
    erase(b_.get(), "p", {5});
    put(b_.get(), "p", {11}, {11});
    put(b_.get(), "p", {2}, {20});
    ASSERT_EQ(a_->page("p", &first.back().key, 3, &second), 0);
    EXPECT_EQ(keys(second), (std::vector<tbl_bytes>{{4}, {6}, {7}}));
    EXPECT_EQ(second[0].val, tbl_bytes{40});
    second.clear();
    const tbl_bytes missing{9, 0};
    ASSERT_EQ(a_->page("p", &missing, 3, &second), 0);
    EXPECT_EQ(keys(second), (std::vector<tbl_bytes>{{10}, {11}}));
}

// Writes between begin and commit reach the log together, with the
// outermost commit; a failed one leaves no row and no change, and the next
// change takes the next number.
TEST_P(TblStore, ATransactionLandsWholeAtItsOutermostCommitOrNotAtAll) {
    put(a_.get(), "t", {1}, {1});
    b_->data_changed();
    ASSERT_EQ(a_->begin(), 0);
    ASSERT_EQ(a_->begin(), 0);
    EXPECT_TRUE(put(a_.get(), "t", {2}, {2}));
    EXPECT_TRUE(erase(a_.get(), "t", {1}));
    ASSERT_EQ(a_->commit(), 0);
    EXPECT_EQ(top(b_.get()), 1);
    EXPECT_TRUE(log_after(b_.get(), 1).empty());
    EXPECT_FALSE(b_->data_changed());
    ASSERT_EQ(a_->commit(), 0);
    EXPECT_TRUE(b_->data_changed());
    EXPECT_EQ(log_after(b_.get(), 1), (strs{"2 t set 2", "3 t del 1"}));

    ASSERT_EQ(a_->begin(), 0);
    put(a_.get(), "t", {3}, {3});
    put(a_.get(), "t", {2}, {20});
    EXPECT_EQ(a_->finish(-11), -11);
    std::vector<tbl_row> rows;
    ASSERT_EQ(b_->page("t", nullptr, 10, &rows), 0);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].val, tbl_bytes{2});
    EXPECT_EQ(top(a_.get()), 3);
    put(b_.get(), "t", {4}, {4});
    EXPECT_EQ(log_after(a_.get(), 3), (strs{"4 t set 4"}));
}

// A reader's place holds the log; without readers all but the newest
// goes; the cap drops changes that a stalled reader still stands on, so
// that it finds the gap.
TEST_P(TblStore, TheLogIsPrunedToItsSlowestReaderAndToItsCap) {
    int64_t place = -1;
    ASSERT_EQ(a_->join(&place), 0);
    EXPECT_EQ(place, 0);
    for (uint8_t i = 0; i < 200; i++) put(b_.get(), "t", {uint8_t(i % 10)}, {i});
    EXPECT_EQ(log_after(a_.get(), 0).size(), 200u);
    EXPECT_EQ(log_after(a_.get(), 0).front(), "1 t set 0");
    ASSERT_EQ(a_->record(200), 0);
    for (uint8_t i = 0; i < 100; i++) put(b_.get(), "t", {uint8_t(i % 10)}, {uint8_t(i + 1)});
    EXPECT_LE(log_size(a_.get()), 100);
    EXPECT_EQ(log_after(a_.get(), 200).size(), 100u);

    ASSERT_EQ(a_->record(300), 0);
    b_->set_log_cap(64);
    for (int i = 0; i < 400; i++) put(b_.get(), "t", {1}, {uint8_t(i), uint8_t(i >> 8)});
    EXPECT_LE(log_size(a_.get()), 64 + 128);
    const strs after = log_after(a_.get(), 300);
    ASSERT_FALSE(after.empty());
    EXPECT_NE(after.front().rfind("301 ", 0), 0u);  // the reader's next change went
    EXPECT_EQ(after.back().rfind("700 ", 0), 0u);

    ASSERT_EQ(a_->leave(), 0);
    for (int i = 0; i < 300; i++) put(b_.get(), "t", {2}, {uint8_t(i), uint8_t(i >> 8)});
    EXPECT_LE(log_size(a_.get()), 128);
    EXPECT_EQ(top(a_.get()), 1000);
}

// Only a writer makes a missing store: a reader of a mistyped root must
// find nothing rather than an empty store.
TEST_P(TblStore, OnlyAWriterMakesAStoreAReadOnlyConnectionNeverWrites) {
    a_.reset(), b_.reset();
    const std::string elsewhere = root_ + "/other/var/run/hnx/store-17.db";
    if (on_redis()) redis_.command({"FLUSHALL"});
    if (on_memory()) tbl_memory_drop_all();
    const std::string said = err_of([&] {
        EXPECT_EQ(tbl_store::open(16, elsewhere, tbl_open::read_only), nullptr);
        EXPECT_EQ(tbl_store::open(16, elsewhere, tbl_open::existing), nullptr);
    });
    EXPECT_EQ(said.rfind("ss_rt_tbl: store 16 (", 0), 0u) << said;
    EXPECT_FALSE(fs::exists(root_ + "/other"));
    EXPECT_NE(tbl_store::open(16, elsewhere), nullptr);
    EXPECT_EQ(fs::exists(elsewhere), GetParam() == store_backend::sqlite);
    EXPECT_NE(tbl_store::open(16, elsewhere, tbl_open::existing), nullptr);

    // A read-only connection reads and never writes.
    a_ = tbl_store::open(16, path_);
    put(a_.get(), "t", {1}, {1, 2, 3});
    auto reader = other(tbl_open::read_only);
    ASSERT_NE(reader, nullptr);
    tbl_bytes got;
    bool found = false, changed = true;
    ASSERT_EQ(reader->get("t", {1}, &got, &found), 0);
    EXPECT_TRUE(found);
    EXPECT_EQ(got, (tbl_bytes{1, 2, 3}));
    err_of([&] {
        EXPECT_EQ(reader->put("t", {2}, {2}, &changed), -11);
        EXPECT_EQ(reader->erase("t", {1}, {1}, &changed), -11);
    });
    EXPECT_EQ(top(a_.get()), 1);
}

INSTANTIATE_TEST_SUITE_P(Stores, TblStore, every_store_backend(), store_backend_name);

void tool_start_on_memory() {
    setenv("HNX_STORE", "memory", 1);
    char tool[] = "hnx-tbl", arg[] = "dump";
    char *argv[] = {tool, arg, nullptr};
    int argc = 2;
    hnx_host_store_arg(&argc, argv);
    std::exit(0);
}

// A store in one process's memory is no store for a tool, which always
// works on the store of the daemon and its users.
TEST(TblMemory, ToolsRefuseAStoreInTheirOwnMemory) {
    tbl_where where;
    EXPECT_EQ(tbl_where_parse("memory", &where), "");
    EXPECT_TRUE(where.memory);
    EXPECT_FALSE(where.redis);
    EXPECT_EXIT(tool_start_on_memory(), testing::ExitedWithCode(2),
        "^hnx-tbl: store \"memory\" is private to one process and no tool can share it; give "
        "sqlite, redis://HOST:PORT\\[/DB\\] or unix:///PATH\\[\\?db=N\\]\n$");
}

}  // namespace
