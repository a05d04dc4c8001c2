// The table service over its store: rows, the journal, delivery to other
// processes, data smoothing, corrupt rows and the change log's bound. (A
// table read page by page: the store's pages, and a stalled reader that
// reads a thousand rows afresh; the restore's scan of the backup table
// with the record as the service reads it: ds_test.)
#include <chrono>
#include <vector>

#include "platform/host/hnx_host.h"
#include "platform/host/tbl_redis.h"
#include "platform/host/tbl_scan.h"
#include "platform/host/tbl_state.h"
#include "support/l3mac_world.h"
#include "support/managed_proc.h"
#include "support/redis_server.h"
#include "support/tbl_kit.h"

namespace {

using strs = std::vector<std::string>;

std::vector<uint32_t> standing_hw_ids() {
    std::vector<uint32_t> ids;
    for (const auto &b : hnx_host_tbl_rows("s_route.l3mac_hw_res")) {
        auto *r = s_route__l3mac_hw_res__unpack(nullptr, b.size(), b.data());
        ids.push_back(r->index->hw_id);
        s_route__l3mac_hw_res__free_unpacked(r, nullptr);
    }
    return ids;
}

// The four tables of store 16, made as the daemon makes them, and writers
// in other processes; on each store backend.
class TblService : public OverStores<L3macWorld> {
protected:
    void SetUp() override {
        OverStores::SetUp();
        if (IsSkipped()) return;
        l3mac_tbl_init();  // no runtime yet: only the tables are made
        hw_res_ = l3mac_ctx.tbl_hw_res, bak_ = l3mac_ctx.tbl_bak;
        ASSERT_TRUE(hw_res_ && bak_);
        hw_seen().clear();
    }
    void subscribe() { ASSERT_EQ(hw_subscribe(hw_res_), 0); }
    int set(uint32_t id, uint32_t evlan) { return hw_set(hw_res_, id, evlan); }
    int del(uint32_t id, bool with_attr = false) { return hw_del(hw_res_, id, with_attr); }
    static void in_child_ok(const std::function<void()> &fn) { ASSERT_EQ(child_status(fn), 0); }
    ss_rt_tbl *hw_res_ = nullptr, *bak_ = nullptr;
};

TEST_P(TblService, RowsStandInKeyOrderEveryCallIsJournalledForeignRowsRefused) {
    for (uint32_t id : {300u, 5u, 70u}) ASSERT_EQ(set(id, id + 1), 0);
    EXPECT_EQ(set(5, 99), 0);
    EXPECT_EQ(del(70), 0);
    EXPECT_EQ(del(8), 0);
    EXPECT_EQ(standing_hw_ids(), (std::vector<uint32_t>{5, 300}));  // in the store's key order
    const auto &j = hnx_host_tbl_journal();
    hw_row replace(5, 99);
    std::vector<uint8_t> packed(s_route__l3mac_hw_res__get_packed_size(&replace.res));
    s_route__l3mac_hw_res__pack(&replace.res, packed.data());
    ASSERT_EQ(j.size(), 6u);
    EXPECT_EQ(std::tie(j[3].table, j[3].is_add, j[3].row, j[4].is_add),
              std::make_tuple(std::string("s_route.l3mac_hw_res"), true, packed, false));

    EXPECT_EQ(err_of([&] {
                  EXPECT_EQ(ss_rt_tbl_add_str(bak_, replace.get(), 0, 0), -4);
                  EXPECT_EQ(ss_rt_tbl_add_str(nullptr, replace.get(), 0, 0), -4);
              }),
              "ss_rt_tbl: s_route.l3mac_bak: row refused: a s_route.l3mac_hw_res is not its row\n"
              "ss_rt_tbl: row refused: no table\n");
    EXPECT_TRUE(hnx_host_tbl_rows("s_route.l3mac_bak").empty());
}

// Another process's changes arrive in write order, once; this process's own
// writes and a rewrite of a row as it stands are no change; a delete
// carries the key only.
TEST_P(TblService, AnotherProcessesChangesArriveInWriteOrderOnceOwnAndEqualWritesNever) {
    SKIP_ON_MEMORY("the writer is another process");
    subscribe();
    strs want;
    const pid_t child = child_start([this] {
        for (uint32_t i = 0; i < 600; i++)
            if (set(i % 50, i), i % 7 == 0) del(i % 50);
    });
    for (uint32_t i = 0; i < 600; i++) {
        want.push_back("set " + std::to_string(i % 50) + ":" + std::to_string(i));
        if (i % 7 == 0) want.push_back("del " + std::to_string(i % 50));
    }
    // Delivery while the child still writes, then the rest.
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (hw_seen().size() < want.size() && std::chrono::steady_clock::now() < until)
        hnx_host_tbl_poll();
    ASSERT_EQ(child_wait(child), 0);
    EXPECT_EQ(hnx_host_tbl_poll(), 0);
    EXPECT_EQ(hw_seen(), want);

    hw_seen().clear();
    ASSERT_EQ(set(4, 40), 0);
    EXPECT_EQ(hnx_host_tbl_poll(), 0);
    in_child_ok([this] { set(4, 40), set(4, 41), del(4, true); });
    EXPECT_EQ(hnx_host_tbl_poll(), 2);
    EXPECT_EQ(hw_seen(), (strs{"set 4:41", "del 4"}));
}

TEST_P(TblService, ACorruptRowIsSkippedWithOneLine) {
    subscribe();
    for (uint32_t i = 1; i <= 3; i++) ASSERT_EQ(set(i, i), 0);
    // Field 5 claims five bytes and holds one.
    if (on_redis()) {
        ASSERT_EQ(redis_.command({"HSET", "hnx:16:rows:s_route.l3mac_hw_res", "\x08\x02",
                                  "\x2a\x05\x01"}), "0");
    } else if (on_memory()) {
        bool changed = false;
        ASSERT_EQ(tbl_store_of(16)->put("s_route.l3mac_hw_res", {0x08, 0x02}, {0x2a, 0x05, 0x01},
                                        &changed), 0);
    } else {
        ASSERT_EQ(sqlite_client(root_).exec("UPDATE rows SET val = x'2a0501' WHERE key = x'0802'"),
                  SQLITE_OK);
    }
    EXPECT_EQ(err_of([this] { EXPECT_EQ(ss_rt_tbl_scan_detail(hw_res_, 0, 0), 0); }),
              "ss_rt_tbl: table s_route.l3mac_hw_res: row of 3 bytes cannot be unpacked, skipped\n");
    EXPECT_EQ(hw_seen(), (strs{"set 1:1", "set 3:3"}));
}

// A reader that died without leaving does not hold the log: the next
// writer drops it. (The log's bound by live readers and by its cap is the
// store's own promise: TblStore.)
TEST_P(TblService, AReaderThatDiedDoesNotHoldTheChangeLog) {
    SKIP_ON_MEMORY("the reader that dies is another process");
    in_child_ok([this] { subscribe(); });
    for (uint32_t i = 0; i < 1000; i++) set(i % 20, i);
    EXPECT_LT(hw_log_size(), 200);
}

// The runtime's loop: the connect callback first, then smoothing, each once
// and never inside the call that made it due; an unended window expires on
// the loop's own timer, and deletes the rows not written inside it.
strs g_calls;

TEST_P(TblService, TheLoopConnectsSmoothsAndExpiresAnUnendedWindow) {
    g_calls.clear();
    kw_global *global = kw_global_init("hnx-tbl-test", 0);
    ASSERT_NE(global, nullptr);
    uv_loop_t *loop = hnx_host_loop(global);
    ASSERT_EQ(ss_rt_tbl_init(global, "hnx-tbl-test", 4), 0);
    ASSERT_EQ(ss_rt_tbl_connect_db([] {
                  g_calls.push_back("connect");
                  return ss_rt_tbl_reg_ds_func([] { return g_calls.push_back("smooth"), 0; });
              }), 0);
    EXPECT_TRUE(g_calls.empty());
    uv_run(loop, UV_RUN_NOWAIT);
    uv_run(loop, UV_RUN_NOWAIT);
    EXPECT_EQ(g_calls, (strs{"connect", "smooth"}));

    ASSERT_EQ(set(2, 2), 0);
    ASSERT_EQ(ss_rt_tbl_ds_begin_detail(hw_res_, 0, 0), 0);
    ASSERT_EQ(set(1, 1), 0);
    EXPECT_EQ(standing_hw_ids().size(), 2u);
    EXPECT_EQ(err_of([loop] { uv_run(loop, UV_RUN_NOWAIT); }),
              "ss_rt_tbl: s_route.l3mac_hw_res: data smoothing not ended in time, ended now\n");
    EXPECT_EQ(standing_hw_ids(), (std::vector<uint32_t>{1}));
    EXPECT_EQ(ss_rt_tbl_ds_end_detail(hw_res_, 0), -7);  // no window any more
    kw_global_finish(global);
}

INSTANTIATE_TEST_SUITE_P(Stores, TblService, every_store_backend(), store_backend_name);

// Readers and writers of a Redis store shared by several hosts.
class TblSharedRedis : public TblService {};

// A writer knows a reader of another host alive by its lease, never by a pid
// of its own host; a change is this reader's own only when this very
// connection wrote it: the writer's number in the entry's ID is its own, not
// a pid that a process of another host may have too.
TEST_P(TblSharedRedis, ReadersAreKnownByTheirLeaseAndWritersByTheirConnectionNeverByAPid) {
    subscribe();
    auto write_many = [this](uint32_t base, uint32_t n) {
        for (uint32_t i = 0; i < n; i++) set(i % 20, base + i);
    };
    in_child_ok([&] { write_many(0, 150); });
    EXPECT_EQ(hnx_host_tbl_poll(), 150);
    // A line card's reader, at the top now: its pid is not alive here.
    const std::string top = redis_.command({"GET", "hnx:16:top"});
    const std::string card = "4194303@line-card-2/0f6d1c9e-1d3b-4e0b-9a55-2d1e8c7b1a00/4026531836";
    ASSERT_EQ(redis_.command({"HSET", "hnx:16:readers", card, top}), "1");
    ASSERT_EQ(redis_.command({"SET", "hnx:16:lease:" + card, top, "PX", "60000"}), "OK");
    in_child_ok([&] { write_many(1000, 1000); });
    EXPECT_EQ(redis_.command({"HEXISTS", "hnx:16:readers", card}), "1");
    EXPECT_GE(hw_log_size(), 1000);
    EXPECT_EQ(hnx_host_tbl_poll(), 1000);
    // Its lease ran out: it no longer holds the log.
    ASSERT_EQ(redis_.command({"DEL", "hnx:16:lease:" + card}), "1");
    in_child_ok([&] { write_many(5000, 150); });
    EXPECT_EQ(redis_.command({"HEXISTS", "hnx:16:readers", card}), "0");
    EXPECT_LT(hw_log_size(), 200);
    EXPECT_EQ(hnx_host_tbl_poll(), 150);

    // This process's own lease runs out while it stands still: it is
    // dropped, the log is trimmed past it, and it reads afresh.
    auto *st = dynamic_cast<tbl_redis *>(tbl_store_of(16));
    ASSERT_NE(st, nullptr);
    ASSERT_EQ(redis_.command({"DEL", "hnx:16:lease:" + st->reader_id()}), "1");
    hw_seen().clear();
    in_child_ok([&] {
        write_many(7000, 300);
        del(3);
    });
    EXPECT_EQ(redis_.command({"HEXISTS", "hnx:16:readers", st->reader_id()}), "0");
    const std::string said = err_of([] { EXPECT_EQ(hnx_host_tbl_poll(), 20); });
    EXPECT_NE(said.find("changes gone before they were read: reading the subscribed tables afresh"),
              std::string::npos) << said;
    EXPECT_NE(said.find("tables read afresh: 19 rows set, 1 deleted"), std::string::npos) << said;
    EXPECT_EQ(hw_seen().size(), 20u);
    // Having read afresh it is a reader again, with a lease.
    EXPECT_EQ(redis_.command({"EXISTS", "hnx:16:lease:" + st->reader_id()}), "1");

    in_child_ok([&] { set(5, 50); });
    EXPECT_EQ(hnx_host_tbl_poll(), 1);
    hw_seen().clear();
    // The same change again, logged under another writer's number, then
    // under this connection's.
    const char *again = R"(
local e = redis.call('XREVRANGE', KEYS[1], '+', '-', 'COUNT', 1)[1][2]
redis.call('XADD', KEYS[1], redis.call('INCR', KEYS[2]) .. '-' .. ARGV[1], unpack(e))
return 'OK')";
    const std::string other = std::to_string(std::stoull(st->writer()) ^ 1);
    for (const std::string &w : {other, st->writer()})
        ASSERT_EQ(redis_.command({"EVAL", again, "2", "hnx:16:log", "hnx:16:top", w}), "OK");
    EXPECT_EQ(hnx_host_tbl_poll(), 1);
    EXPECT_EQ(hw_seen(), (strs{"set 5:50"}));
    // This process's own writes are still not handed back to it.
    EXPECT_EQ(set(6, 60), 0);
    EXPECT_EQ(hnx_host_tbl_poll(), 0);
}

// The value after `name` ("blocked_clients:", "cmdstat_xread:calls=") in
// a section of INFO.
std::string info_field(const redis_server &r, const std::string &section, const std::string &name) {
    const std::string info = r.command({"INFO", section});
    const size_t at = info.find(name);
    if (at == std::string::npos) return "";
    const size_t from = at + name.size();
    return info.substr(from, info.find_first_of("\r\n,", from) - from);
}

// A reader on its loop waits on the server, blocked in XREAD, instead of
// asking every few milliseconds: a change of another process wakes it at
// once, its own writes wake it once and it waits again, and while nothing
// is written it sends nothing but the one-second backstop's check. The
// server gone wakes it too, and it ends.
TEST_P(TblSharedRedis, AReaderOnItsLoopWaitsOnTheServerAndWakesOnAChangeOrTheServerGone) {
    kw_global *global = kw_global_init("hnx-tbl-test", 0);
    ASSERT_NE(global, nullptr);
    uv_loop_t *loop = hnx_host_loop(global);
    ASSERT_EQ(ss_rt_tbl_init(global, "hnx-tbl-test", 4), 0);
    subscribe();
    const tbl_feed &f = tbl_proc().feeds[16];
    ASSERT_NE(f.store_wait, nullptr);
    EXPECT_EQ(uv_timer_get_repeat(f.backstop), 1000u);
    EXPECT_EQ(info_field(redis_, "clients", "blocked_clients:"), "1");
    // The server counts an XREAD as it takes it, blocked or not.
    auto xreads = [this] { return info_field(redis_, "commandstats", "cmdstat_xread:calls="); };
    EXPECT_EQ(xreads(), "1");

    in_child_ok([&] { set(7, 70), set(8, 80); });
    for (int turns = 0; hw_seen().size() < 2 && turns < 10; turns++) uv_run(loop, UV_RUN_ONCE);
    EXPECT_EQ(hw_seen(), (strs{"set 7:70", "set 8:80"}));
    EXPECT_EQ(xreads(), "2");  // woken once, waiting again
    EXPECT_EQ(info_field(redis_, "clients", "blocked_clients:"), "1");

    // Its own write wakes it once; it waits after it, not from before it.
    ASSERT_EQ(set(9, 90), 0);
    uv_run(loop, UV_RUN_NOWAIT);  // commits the turn
    for (int turns = 0; xreads() == "2" && turns < 10; turns++) uv_run(loop, UV_RUN_ONCE);
    for (int turns = 0; turns < 20; turns++) uv_run(loop, UV_RUN_NOWAIT);
    EXPECT_EQ(xreads(), "3");
    EXPECT_EQ(info_field(redis_, "clients", "blocked_clients:"), "1");
    EXPECT_EQ(hw_seen().size(), 2u);
    kw_global_finish(global);

    // The server gone while a reader waits: the wait wakes it, and it ends
    // for its supervisor with the one line that says so.
    testing::internal::CaptureStderr();
    const int status = child_status([this] {
        tbl_store_of(16);  // forgets the parent's connections, and its loop
        kw_global *global = kw_global_init("hnx-tbl-test", 0);
        uv_loop_t *loop = hnx_host_loop(global);
        ss_rt_tbl_init(global, "hnx-tbl-test", 4);
        subscribe();
        tbl_feed &f = tbl_proc().feeds[16];
        if (!f.store_wait) _exit(1);
        uv_timer_stop(f.backstop);  // only the wait may find the server gone
        redis_.command({"SHUTDOWN", "NOSAVE"});
        for (int turns = 0; turns < 10; turns++) uv_run(loop, UV_RUN_ONCE);
        _exit(2);  // still running: the wait never woke
    });
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(status, kTblExitStore);
    EXPECT_TRUE(hw_server_lost(said, redis_.url())) << said;
}

INSTANTIATE_TEST_SUITE_P(Redis, TblSharedRedis, testing::Values(store_backend::redis),
                         store_backend_name);

}  // namespace
