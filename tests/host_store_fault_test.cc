// Faults of the table store under a running service: another client holding
// the write lock at the start and while the service runs, a full disk, a
// change log with impossible numbers, and a reader that stopped while the
// log moved on. No entry may go because the store could not be read or
// written, and the service mends itself when the fault ends.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "decision/l3mac_decision.h"
#include "diag/l3mac_release.h"
#include "frame/l3mac_ds.h"
#include "platform/host/hnx_host.h"
#include "platform/host/tbl_feed.h"
#include "platform/host/tbl_retry.h"
#include "platform/host/tbl_scan.h"
#include "platform/host/tbl_turn.h"
#include "support/managed_proc.h"
#include "support/managed_world.h"
#include "support/redis_server.h"
#include "support/tbl_kit.h"

namespace {

constexpr int kTblWrite = 133;  // the service's failure code of a failed add
const mac6 kA{2, 0, 0, 0, 0, 0x0A}, kB{2, 0, 0, 0, 0, 0x0B};

class StoreFaultWorld : public ManagedWorld {
protected:
    // A new process over the same store, started as main starts it: the
    // connection and smoothing come from its loop, which the test turns.
    void start_as_main() {
        l3mac_release_all();
        hnx_host_tbl_reset();
        l3mac_service_reset();
        l3mac_ctx.global = kw_global_init("hnx-l3table-l3mac", 0);
        ASSERT_NE(l3mac_ctx.global, nullptr);
        l3mac_tbl_init();
        ASSERT_EQ(ss_rt_tbl_connect_db(l3mac_connect_cb), 0);
    }
    // A retry while the fault stands finds it still there; once `lift` ends
    // it the kept writes land: every entry of the service stands in both
    // tables, and no other. What the retries said.
    static std::string retry_across(const std::function<void()> &lift) {
        const std::string said = err_of([&] {
            EXPECT_EQ(tbl_retry_run(), 1);
            lift();
            EXPECT_EQ(tbl_retry_run(), 0);
        });
        EXPECT_EQ(tbl_kept_count(16), 0u);
        tbl_turn_commit();
        EXPECT_GT(in_use(), 0u);
        EXPECT_EQ(managed_hw_rows().size(), in_use());
        EXPECT_EQ(managed_bak_rows().size(), in_use());
        return said;
    }
};

// Faults of SQLite's own: another client's locks, its tables renamed.
class StoreFault : public StoreFaultWorld {};

// Faults that every backend meets alike.
class StoresFault : public OverStores<StoreFaultWorld> {};

// Another client holds the write lock. At the start the service waits for
// it and keeps every entry; while it runs, the loop waits only briefly, the
// writes are kept, a later write of the same key replaces the kept one, and
// all land once the lock goes.
TEST_F(StoreFault, AnotherClientsWriteLockAtTheStartAndWhileRunningLosesNoEntry) {
    start({.tcam_cap = 64});
    want(kA, {3, 5, 6});
    want(kB, {100, 200});
    sw_l3mac_mac_decision();
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();
    ASSERT_EQ(hw.size(), 5u);

    start_as_main();
    sqlite_client lock(root_);
    ASSERT_EQ(lock.exec("BEGIN IMMEDIATE"), SQLITE_OK);
    const std::string said = err_of([&] {
        for (int n = 0; n < 2; n++) uv_run(hnx_host_loop(l3mac_ctx.global), UV_RUN_NOWAIT);
        EXPECT_EQ(tbl_retry_run(), 1);  // still locked: the join waits
    });
    EXPECT_NE(said.find("ss_rt_tbl: store 16: cannot join the change log (join readers: database "
                        "is locked), trying again\n"), std::string::npos) << said;
    EXPECT_NE(said.find("ss_rt_tbl: data smoothing waits: store 16: not in its change log yet\n"),
              std::string::npos) << said;
    EXPECT_EQ(l3mac_is_ds_end(), 0);
    EXPECT_EQ(managed_hw_rows(), hw);

    EXPECT_NE(retry_across([&lock] { ASSERT_EQ(lock.exec("COMMIT"), SQLITE_OK); })
                  .find("ss_rt_tbl: data smoothing starts: the store is ready\n"),
              std::string::npos);
    EXPECT_EQ(l3mac_is_ds_end(), 1);
    EXPECT_EQ(managed_hw_rows(), hw);  // the service holds every entry again
    EXPECT_EQ(managed_bak_rows(), bak);

    ASSERT_EQ(err_count(kTblWrite), 0u);
    ASSERT_EQ(lock.exec("BEGIN IMMEDIATE"), SQLITE_OK);
    const auto began = std::chrono::steady_clock::now();
    const std::string refused = err_of([this] {
        want(kB, {7, 8, 9});
        sw_l3mac_mac_decision();
        unwant(kA, {3, 5});
        sw_l3mac_mac_decision();
        want(kA, {5});
        sw_l3mac_mac_decision();
    });
    // The old store waited 5 s for every write; one short wait is all now.
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(2));
    EXPECT_NE(refused.find("ss_rt_tbl: store 16: write refused (begin: database is locked): writes "
                           "are kept and retried until the store takes them\n"),
              std::string::npos) << refused;
    EXPECT_GT(err_count(kTblWrite), 0u);
    // One kept write per key: the requests' rows, the output and backup rows.
    EXPECT_LT(tbl_kept_count(16), tbl_proc().stats.failed);
    const std::string wrote = retry_across([&lock] { ASSERT_EQ(lock.exec("COMMIT"), SQLITE_OK); });
    EXPECT_NE(wrote.find("ss_rt_tbl: store 16: " + std::to_string(tbl_proc().stats.written) +
                         " kept writes written\n"), std::string::npos) << wrote;
    // The input table holds exactly the standing requests: A 5, 6 and B's five.
    EXPECT_EQ(hnx_host_tbl_rows("s_route.l3mac_res").size(), 7u);
}

// A scan inside smoothing that cannot read its table ends the process
// before the service could take the missing rows for deleted ones; outside
// smoothing the call only fails. (Smoothing held back until the store is
// ready: AnotherClientsWriteLockAtTheStartAndWhileRunningLosesNoEntry.)
TEST_F(StoreFault, AnUnreadableInputEndsTheProcessInsideSmoothing) {
    start({.tcam_cap = 64});
    want(kA, {3});
    tbl_turn_commit();
    const std::string said = err_of([this] {
        EXPECT_EQ(child_status([this] {
                      tbl_store_of(16);  // the child's own connection
                      sqlite_client(root_).exec("ALTER TABLE rows RENAME TO rows_away");
                      ss_rt_tbl_ds_begin_detail(l3mac_ctx.tbl_hw_res, 3600, 0);
                      ss_rt_tbl_scan_detail(l3mac_ctx.tbl_res, 0, 0);
                  }), kTblExitStore);
        EXPECT_EQ(ss_rt_tbl_scan_detail(l3mac_ctx.tbl_res, 0, 0), -11);  // not smoothing
    });
    EXPECT_NE(said.find("ss_rt_tbl: store 16: s_route.l3mac_res cannot be read during data "
                        "smoothing (read rows: no such table: rows): exiting with status 75 for "
                        "a restart; nothing was removed\n"), std::string::npos) << said;
}

// A full store (SQLite capped at its file's size, Redis at its memory):
// the failed adds are counted, the rows kept in write order, and written
// once there is room again, without a restart.
TEST_P(StoresFault, WritesThatFindTheDiskFullAreCountedKeptAndWrittenWhenRoomReturns) {
    const std::string full = on_redis()    ? "OOM command not allowed"
                             : on_memory() ? "the store is full"
                                           : "database or disk is full";
    start({.tcam_cap = 256});
    tbl_turn_commit();
    tbl_store *st = tbl_store_of(16);
    ASSERT_EQ(st->limit_pages(1), 0);  // no page beyond those it has
    const std::string said = err_of([this] {
        for (uint32_t m = 0; m < 40; m++) {
            want({2, 0, 0, 0, 1, uint8_t(m)}, {m + 1, m + 300});
            sw_l3mac_mac_decision();
        }
        tbl_turn_commit();  // Redis refuses a turn's writes at its commit
    });
    EXPECT_NE(said.find(full), std::string::npos) << said.substr(0, 2000);
    EXPECT_NE(said.find("): writes are kept and retried until the store takes them\n"),
              std::string::npos) << said.substr(0, 2000);
    if (!on_redis()) {  // SQLite refuses the write itself, Redis the turn at its commit
        EXPECT_GT(err_count(kTblWrite), 0u);
    }
    EXPECT_GT(tbl_kept_count(16), 0u);
    EXPECT_GT(tbl_proc().stats.failed, 0u);
    EXPECT_NE(tbl_proc().stats.last_error.find(full), std::string::npos);
    EXPECT_LT(managed_hw_rows().size(), size_t(in_use()));

    retry_across([st] { ASSERT_EQ(st->limit_pages(0), 0); });
    EXPECT_EQ(hnx_host_tbl_rows("s_route.l3mac_res").size(), 80u);
}

// The tables of store 16 in a process of its own with a loop, as a reader
// and writer of the change log; other writers are forked children.
class ChangeLogWorld : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        l3mac_ctx.global = kw_global_init("hnx-tbl-test", 0);
        l3mac_tbl_init();
        hw_ = l3mac_ctx.tbl_hw_res;
        ASSERT_NE(hw_, nullptr);
        hw_seen().clear();
    }
    void subscribe() { ASSERT_EQ(hw_subscribe(hw_), 0); }
    // Another process writes: its rows land as it writes them.
    void elsewhere(const std::function<void(ss_rt_tbl *)> &fn, int64_t log_cap = kTblLogCap) {
        ss_rt_tbl *t = hw_;
        ASSERT_EQ(child_status([&] {
                      tbl_store_of(16)->set_log_cap(log_cap);
                      fn(t);
                  }), 0);
    }
    // Row `id` set by another process, then read: what this reader was handed.
    std::vector<std::string> heard(uint32_t id) {
        hw_seen().clear();
        elsewhere([id](ss_rt_tbl *t) { hw_set(t, id, id); });
        EXPECT_EQ(hnx_host_tbl_poll(), 1);
        return hw_seen();
    }
    // What a reader of its own said as it ended for its supervisor when
    // `fault` struck its store between two checks of its files.
    std::string reader_end(const std::function<void()> &fault) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(child_status([&] {
                      subscribe();  // the child's own connection and feed
                      tbl_feed_check_files();
                      fault();
                      tbl_feed_check_files();
                  }), kTblExitStore);
        return testing::internal::GetCapturedStderr();
    }
    ss_rt_tbl *hw_ = nullptr;
};

// The change log's faults that only SQLite's file can have.
class ChangeLog : public ChangeLogWorld {};

// The change log's promises on every backend.
class StoresChangeLog : public OverStores<ChangeLogWorld> {};

// Change rows that no writer of the service makes, put there by another
// client: at the top of the number range, below zero, and a log emptied
// under its readers. None makes a reader deaf, now or after a restart. (A
// gap in the numbers is read afresh as a pruned log is:
// AStalledReaderThatLostChangesResynchronisesDeletionsIncluded.)
TEST_F(ChangeLog, ImpossibleSequenceNumbersNeverMakeAReaderDeaf) {
    using strs = std::vector<std::string>;
    subscribe();
    EXPECT_EQ(heard(1), strs{"set 1:1"});
    sqlite_client other(root_);
    const std::string stray = ", 's_route.l3mac_hw_res', 1, x'0801', x'2a020801', 1)";
    ASSERT_EQ(other.exec("INSERT INTO changes VALUES(9223372036854775807" + stray), SQLITE_OK);
    ASSERT_EQ(other.exec("INSERT INTO changes VALUES(-5" + stray), SQLITE_OK);
    EXPECT_EQ(heard(2), strs{"set 2:2"});

    // The log emptied: its numbers start again below the reader's place.
    ASSERT_EQ(other.exec("DELETE FROM changes"), SQLITE_OK);
    const std::string said = err_of([this] {
        EXPECT_EQ(hnx_host_tbl_poll(), 0);
        EXPECT_EQ(heard(4), strs{"set 4:4"});
    });
    EXPECT_NE(said.find("the change log went back"), std::string::npos);

    // A new process over the same store hears the others too.
    ASSERT_EQ(other.exec("INSERT INTO changes VALUES(9223372036854775806" + stray), SQLITE_OK);
    hnx_host_tbl_reset();
    l3mac_tbl_init();
    hw_ = l3mac_ctx.tbl_hw_res;
    subscribe();
    EXPECT_EQ(heard(5), strs{"set 5:5"});
    // Pruning takes the stray rows away.
    elsewhere([](ss_rt_tbl *t) { for (uint32_t i = 0; i < 200; i++) hw_set(t, 6, i); });
    EXPECT_EQ(other.one("SELECT count(*) FROM changes WHERE seq > 9007199254740992 OR seq < 1"), 0);
}

// A reader that stood still while the log was pruned past it reads the
// table afresh: every row that came or changed is set, every row it had
// seen that is gone is deleted. The log stays bounded meanwhile.
TEST_P(StoresChangeLog, AStalledReaderThatLostChangesResynchronisesDeletionsIncluded) {
    SKIP_ON_MEMORY("the writer is another process");
    subscribe();
    elsewhere([](ss_rt_tbl *t) { for (uint32_t i = 1; i <= 50; i++) hw_set(t, i, i); });
    EXPECT_EQ(hnx_host_tbl_poll(), 50);
    hw_seen().clear();
    // The reader is alive but does not read; the writer keeps 256 changes.
    elsewhere([](ss_rt_tbl *t) {
        for (uint32_t i = 1; i <= 10; i++) hw_del(t, i);
        for (uint32_t i = 100; i < 1100; i++) hw_set(t, i, i);
        hw_set(t, 20, 2000);
        for (uint32_t i = 0; i < 500; i++) hw_set(t, 5000, i);
    }, 256);
    EXPECT_LT(hw_log_size(), 256 + 128 + 2);
    const std::string said = err_of(hnx_host_tbl_poll);
    EXPECT_NE(said.find(" changes gone before they were read: reading the subscribed tables "
                        "afresh\nss_rt_tbl: store 16: tables read afresh: 1002 rows set, 10 "
                        "deleted\n"), std::string::npos) << said;
    std::vector<std::string> want{"set 20:2000", "set 5000:499"};
    for (uint32_t i = 1; i <= 10; i++) want.push_back("del " + std::to_string(i));
    for (uint32_t i = 100; i < 1100; i++) want.push_back("set " + std::to_string(i) + ":" + std::to_string(i));
    std::sort(want.begin(), want.end());
    std::sort(hw_seen().begin(), hw_seen().end());
    EXPECT_EQ(hw_seen(), want);
    // It reads on from there as before.
    hw_seen().clear();
    elsewhere([](ss_rt_tbl *t) { hw_del(t, 20); });
    EXPECT_EQ(hnx_host_tbl_poll(), 1);
    EXPECT_EQ(hw_seen(), (std::vector<std::string>{"del 20"}));
}

// A store removed, replaced or emptied in place (SQLite: the file renamed
// away, or truncated, its header gone; Redis: FLUSHDB; memory: dropped) is
// as good as gone: the reader ends for its supervisor.
TEST_P(StoresChangeLog, AStoreRemovedReplacedOrEmptiedEndsTheReader) {
    subscribe();
    const std::string path = root_ + "/var/run/hnx/store-16.db";
    if (!on_redis() && !on_memory()) {
        EXPECT_EQ(reader_end([&] { std::rename(path.c_str(), (path + ".old").c_str()); }),
                  "ss_rt_tbl: store 16 (" + path + ") was removed, replaced or emptied while in use: "
                  "exiting with status 75 for a restart on the store that stands now\n");
        std::rename((path + ".old").c_str(), path.c_str());
    }
    EXPECT_NE(reader_end([&] {
                  if (on_redis()) ASSERT_EQ(redis_.command({"FLUSHDB"}), "OK");
                  else if (on_memory()) tbl_memory_drop(path);
                  else ASSERT_EQ(truncate(path.c_str(), 0), 0);
              }).find(on_redis() ? ") was emptied or replaced while in use: exiting with status 75"
                                 : ") was removed, replaced or emptied while in use"),
              std::string::npos);
}

// A store damaged by another client is refused at the start with a line
// that says how to recover on it: SQLite pages damaged in a way that
// quick_check passes, or Redis keys of the wrong type. (A Redis server gone
// ends a reader with one line: TblSharedRedis in host_tbl_test, the daemon
// in e2e_redis_test.)
TEST_P(StoresChangeLog, ADamagedStoreIsRefusedAtTheStartWithItsRemedy) {
    SKIP_ON_MEMORY("its damage comes from another client");
    const std::string path = root_ + "/var/run/hnx/store-16.db";
    std::string damage, remedy;
    if (on_redis()) {
        hnx_host_tbl_reset();
        redis_.command({"DEL", "hnx:16:log"});
        ASSERT_EQ(redis_.command({"SET", "hnx:16:log", "junk"}), "OK");
        damage = redis_.url() + ") is damaged (hnx:16:log is a string, not a stream";
        remedy = "delete its keys on the server (redis-cli --scan --pattern 'hnx:16:*' | xargs "
                 "redis-cli DEL)";
    } else {
        for (uint32_t i = 1; i <= 300; i++) hw_set(hw_, i, i);
        hnx_host_tbl_reset();  // every connection closed: the log is in the file
        // A bit flipped in the rows' keys: integrity_check finds it,
        // quick_check does not.
        const std::string bytes = managed_slurp(path);
        bool damaged = false;
        for (size_t at = 4096; at < bytes.size() && !damaged; at += 97) {
            std::string flipped = bytes;
            flipped[at] = char(flipped[at] ^ 0x40);
            std::ofstream(path, std::ios::binary | std::ios::trunc) << flipped;
            sqlite_client c(root_);
            damaged = c.one("SELECT count(*) FROM pragma_quick_check WHERE quick_check = 'ok'") == 1 &&
                      c.one("SELECT count(*) FROM pragma_integrity_check WHERE integrity_check = 'ok'") == 0;
        }
        ASSERT_TRUE(damaged);
        damage = path + ") is damaged (";
        remedy = "move the file away (with its -wal and -shm files)";
    }
    testing::internal::CaptureStderr();
    l3mac_tbl_init();
    EXPECT_EQ(l3mac_ctx.tbl_hw_res, nullptr);
    EXPECT_EQ(ss_rt_tbl_connect_db(l3mac_connect_cb), -11);
    const std::string said = testing::internal::GetCapturedStderr();
    const std::string head = "ss_rt_tbl: store 16 (" + damage,
                      tail = "): refused. Stop every process of the store, " + remedy +
                             " and start them again: each writes its rows anew\n";
    EXPECT_EQ(l3mac_count_of(said, head), 1) << said;
    EXPECT_NE(said.find(tail), std::string::npos) << said;
    if (on_redis()) {
        EXPECT_EQ(l3mac_count_of(said, head + tail), 1) << said;
    }
}

INSTANTIATE_TEST_SUITE_P(Stores, StoresFault, every_store_backend(), store_backend_name);
INSTANTIATE_TEST_SUITE_P(Stores, StoresChangeLog, every_store_backend(), store_backend_name);

}  // namespace
