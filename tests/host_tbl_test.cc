// The table service over its store: rows, the journal, delivery to other
// processes, scans, data smoothing, corrupt rows and the change log's bound.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "platform/host/hnx_host.h"
#include "platform/host/tbl_state.h"
#include "support/l3mac_world.h"
#include "support/tbl_world.h"

namespace {

// What the subscriber saw: "set <hw_id>:<evlan>" or "del <hw_id>".
std::vector<std::string> g_seen;

int on_hw_set(const ProtobufCMessage *m) {
    auto *r = reinterpret_cast<const SRoute__L3macHwRes *>(m);
    g_seen.push_back("set " + std::to_string(r->index->hw_id) + ":" +
                     std::to_string(r->attr ? r->attr->evlan : 0));
    return 0;
}

int on_hw_del(const ProtobufCMessage *m) {
    auto *r = reinterpret_cast<const SRoute__L3macHwRes *>(m);
    g_seen.push_back("del " + std::to_string(r->index->hw_id) + (r->attr ? " with attr" : ""));
    return 0;
}

std::vector<uint32_t> standing_hw_ids() {
    std::vector<uint32_t> ids;
    for (const auto &bytes : hnx_host_tbl_rows("s_route.l3mac_hw_res")) {
        auto *r = s_route__l3mac_hw_res__unpack(nullptr, bytes.size(), bytes.data());
        ids.push_back(r->index->hw_id);
        s_route__l3mac_hw_res__free_unpacked(r, nullptr);
    }
    return ids;
}

int64_t log_size() {
    int64_t n = -1;
    tbl_store_of(16)->log_size(&n);
    return n;
}

// Polls until `n` changes have arrived, for at most a few seconds.
void poll_until(size_t n) {
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (g_seen.size() < n && std::chrono::steady_clock::now() < until) hnx_host_tbl_poll();
}

class TblService : public TblWorld {
protected:
    void SetUp() override {
        TblWorld::SetUp();
        g_seen.clear();
    }
    void subscribe() {
        ASSERT_EQ(ss_rt_tbl_subscribe_detail(hw_res_, on_hw_set, on_hw_del, 0, 0), 0);
    }
};

TEST_F(TblService, RowsStandInKeyOrderAndEveryCallIsJournalled) {
    for (uint32_t id : {300u, 5u, 70u}) {
        hw_row r(id, id + 1);
        ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0), 0);
    }
    hw_row replace(5, 99), del(70, 0, false), absent(8, 0, false);
    EXPECT_EQ(ss_rt_tbl_add_str(hw_res_, replace.get(), 0, 0), 0);
    EXPECT_EQ(ss_rt_tbl_del_str(hw_res_, del.get(), 0, 0), 0);
    EXPECT_EQ(ss_rt_tbl_del_str(hw_res_, absent.get(), 0, 0), 0);
    // Packed keys order by their bytes: 5 and 300 (two-byte varint, 0xac).
    EXPECT_EQ(standing_hw_ids(), (std::vector<uint32_t>{5, 300}));

    const auto &j = hnx_host_tbl_journal();
    ASSERT_EQ(j.size(), 6u);
    EXPECT_EQ(j[3].table, "s_route.l3mac_hw_res");
    EXPECT_TRUE(j[3].is_add);
    EXPECT_FALSE(j[4].is_add);
    std::vector<uint8_t> packed(s_route__l3mac_hw_res__get_packed_size(&replace.res));
    s_route__l3mac_hw_res__pack(&replace.res, packed.data());
    EXPECT_EQ(j[3].row, packed);
    hnx_host_tbl_journal_clear();
    EXPECT_TRUE(hnx_host_tbl_journal().empty());
}

TEST_F(TblService, ARowOfAnotherTableIsRefusedAndChangesNothing) {
    hw_row r(1, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ss_rt_tbl_add_str(bak_, r.get(), 0, 0), -4);
    EXPECT_EQ(ss_rt_tbl_add_str(nullptr, r.get(), 0, 0), -4);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ss_rt_tbl: s_route.l3mac_bak: row refused: a s_route.l3mac_hw_res is not its row\n"
              "ss_rt_tbl: row refused: no table\n");
    EXPECT_TRUE(hnx_host_tbl_rows("s_route.l3mac_bak").empty());
    EXPECT_TRUE(hnx_host_tbl_rows("s_route.l3mac_hw_res").empty());
}

TEST_F(TblService, ResetStartsAgainUnderANewRoot) {
    hw_row r(1, 1);
    ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0), 0);
    TearDown();
    SetUp();
    EXPECT_TRUE(hnx_host_tbl_rows("s_route.l3mac_hw_res").empty());
    EXPECT_TRUE(hnx_host_tbl_journal().empty());
}

TEST_F(TblService, AnotherProcessesChangesArriveInWriteOrderOnce) {
    subscribe();
    std::vector<std::string> want;
    pid_t child = in_child([this] {
        for (uint32_t i = 0; i < 600; i++) {
            hw_row add(i % 50, i);
            ss_rt_tbl_add_str(hw_res_, add.get(), 0, 0);
            if (i % 7 == 0) {
                hw_row del(i % 50, 0, false);
                ss_rt_tbl_del_str(hw_res_, del.get(), 0, 0);
            }
        }
    });
    for (uint32_t i = 0; i < 600; i++) {
        want.push_back("set " + std::to_string(i % 50) + ":" + std::to_string(i));
        if (i % 7 == 0) want.push_back("del " + std::to_string(i % 50));
    }
    // Delivery while the child still writes, then the rest.
    poll_until(want.size());
    ASSERT_TRUE(child_ok(child));
    EXPECT_EQ(hnx_host_tbl_poll(), 0);
    EXPECT_EQ(g_seen, want);
}

TEST_F(TblService, OwnWritesAndEqualRewritesAreNoChange) {
    subscribe();
    hw_row r(4, 40);
    ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0), 0);
    EXPECT_EQ(hnx_host_tbl_poll(), 0);
    pid_t child = in_child([this] {
        hw_row same(4, 40), other(4, 41);
        ss_rt_tbl_add_str(hw_res_, same.get(), 0, 0);
        ss_rt_tbl_add_str(hw_res_, other.get(), 0, 0);
    });
    ASSERT_TRUE(child_ok(child));
    EXPECT_EQ(hnx_host_tbl_poll(), 1);
    EXPECT_EQ(g_seen, (std::vector<std::string>{"set 4:41"}));
}

TEST_F(TblService, ADeleteCarriesTheKeyOnly) {
    subscribe();
    pid_t child = in_child([this] {
        hw_row r(9, 90);
        ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0);
        ss_rt_tbl_del_str(hw_res_, r.get(), 0, 0);  // given with attr
    });
    ASSERT_TRUE(child_ok(child));
    hnx_host_tbl_poll();
    EXPECT_EQ(g_seen, (std::vector<std::string>{"set 9:90", "del 9"}));
}

// The backup row as the service's restore reads it: from the record's byte 648.
std::vector<std::string> g_scanned;

int on_backup(void *, void *rec) {
    auto *row = *reinterpret_cast<const SRoute__L3macBak *const *>(static_cast<char *>(rec) + 648);
    g_scanned.push_back(std::to_string(row->index->evlan) + "@" + std::to_string(row->hw_id));
    return 0;
}

TEST_F(TblService, ScansHandEveryRowOverBeforeReturning) {
    g_scanned.clear();
    for (uint32_t i = 0; i < 600; i++) {
        SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
        SRoute__L3macBak bak = S_ROUTE__L3MAC_BAK__INIT;
        attr.evlan = i;
        bak.index = &attr;
        bak.hw_id = 1000 + i;
        ASSERT_EQ(ss_rt_tbl_add_str(bak_, &bak.base, 0, 0), 0);
        hw_row hw(i, i);
        ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, hw.get(), 0, 0), 0);
    }
    SRoute__L3macHwAttr tpl_attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    SRoute__L3macBak tpl = S_ROUTE__L3MAC_BAK__INIT;
    tpl.index = &tpl_attr;
    ASSERT_EQ(kw_mom_scan_sync(nullptr, 16, &tpl.base, 0, on_backup, 0), 0);
    ASSERT_EQ(g_scanned.size(), 600u);
    EXPECT_NE(std::find(g_scanned.begin(), g_scanned.end(), "599@1599"), g_scanned.end());

    subscribe();
    ASSERT_EQ(ss_rt_tbl_scan_detail(hw_res_, 0, 0), 0);
    EXPECT_EQ(g_seen.size(), 600u);
}

TEST_F(TblService, SmoothingDeletesWhatWasNotWrittenAndSubscribersSeeIt) {
    subscribe();
    pid_t child = in_child([this] {
        for (uint32_t i = 1; i <= 4; i++) {
            hw_row r(i, i);
            ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0);
        }
        ss_rt_tbl_ds_begin_detail(hw_res_, 3600, 0);
        hw_row same(2, 2), changed(3, 33), fresh(5, 5);
        ss_rt_tbl_add_str(hw_res_, same.get(), 0, 0);
        ss_rt_tbl_add_str(hw_res_, changed.get(), 0, 0);
        ss_rt_tbl_add_str(hw_res_, fresh.get(), 0, 0);
        ss_rt_tbl_ds_end_detail(hw_res_, 0);
    });
    ASSERT_TRUE(child_ok(child));
    hnx_host_tbl_poll();
    EXPECT_EQ(g_seen, (std::vector<std::string>{"set 1:1", "set 2:2", "set 3:3", "set 4:4",
                                                "set 3:33", "set 5:5", "del 1", "del 4"}));
    EXPECT_EQ(standing_hw_ids(), (std::vector<uint32_t>{2, 3, 5}));
    EXPECT_EQ(ss_rt_tbl_ds_end_detail(hw_res_, 0), -7);
}

TEST_F(TblService, SmoothingWithoutAnEndEndsByItself) {
    hw_row keep(1, 1), old(2, 2);
    ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, old.get(), 0, 0), 0);
    ASSERT_EQ(ss_rt_tbl_ds_begin_detail(hw_res_, 1, 0), 0);
    ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, keep.get(), 0, 0), 0);
    hnx_host_tbl_poll();
    EXPECT_EQ(standing_hw_ids().size(), 2u);
    testing::internal::CaptureStderr();
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (standing_hw_ids().size() == 2 && std::chrono::steady_clock::now() < until)
        hnx_host_tbl_poll();
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(standing_hw_ids(), (std::vector<uint32_t>{1}));
    EXPECT_EQ(err, "ss_rt_tbl: s_route.l3mac_hw_res: data smoothing not ended in time, ended now\n");
}

TEST_F(TblService, ACorruptRowIsSkippedWithOneLine) {
    subscribe();
    for (uint32_t i = 1; i <= 3; i++) {
        hw_row r(i, i);
        ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0), 0);
    }
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open((root_ + "/var/run/hnx/store-16.db").c_str(), &db), SQLITE_OK);
    sqlite3_busy_timeout(db, 5000);
    // Field 5 claims five bytes and holds one.
    ASSERT_EQ(sqlite3_exec(db, "UPDATE rows SET val = x'2a0501' WHERE key = x'0802'", nullptr,
                           nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ss_rt_tbl_scan_detail(hw_res_, 0, 0), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ss_rt_tbl: table s_route.l3mac_hw_res: row of 3 bytes cannot be unpacked, skipped\n");
    EXPECT_EQ(g_seen, (std::vector<std::string>{"set 1:1", "set 3:3"}));
}

TEST_F(TblService, AStoreFileThatIsNoStoreIsRefusedWithALine) {
    hnx_host_tbl_reset();
    std::FILE *f = std::fopen((root_ + "/var/run/hnx/store-16.db").c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("these are not the rows you are looking for, not even a header of one\n", f);
    std::fclose(f);
    SRoute__L3macHwRes tpl = S_ROUTE__L3MAC_HW_RES__INIT;
    SRoute__L3macHwKey key = S_ROUTE__L3MAC_HW_KEY__INIT;
    testing::internal::CaptureStderr();
    EXPECT_EQ(ss_rt_tbl_create_detail(16, 1, &tpl.base, 20, 12, &key.base, 20, 1), nullptr);
    EXPECT_EQ(ss_rt_tbl_connect_db([] { return 0; }), -11);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("ss_rt_tbl: store 16 (" + root_ + "/var/run/hnx/store-16.db): "),
              std::string::npos) << err;
    EXPECT_NE(err.find("file is not a database"), std::string::npos) << err;
    hw_row r(1, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(ss_rt_tbl_add_str(nullptr, r.get(), 0, 0), -4);
    testing::internal::GetCapturedStderr();
}

TEST_F(TblService, TheChangeLogStaysBounded) {
    subscribe();
    auto write_many = [this](uint32_t base, uint32_t n) {
        for (uint32_t i = 0; i < n; i++) {
            hw_row r(i % 20, base + i);
            ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0);
        }
    };
    // A live reader holds the log until it has read: nothing is lost.
    ASSERT_TRUE(child_ok(in_child([&] { write_many(0, 1000); })));
    EXPECT_GE(log_size(), 1000);
    EXPECT_EQ(hnx_host_tbl_poll(), 1000);
    // What it has read goes with the next writes.
    ASSERT_TRUE(child_ok(in_child([&] { write_many(5000, 150); })));
    EXPECT_LT(log_size(), 200);
    EXPECT_EQ(hnx_host_tbl_poll(), 150);

    // A reader that died does not hold it.
    hnx_host_tbl_reset();
    hw_res_ = nullptr;
    SetUp();
    ASSERT_TRUE(child_ok(in_child([this] { subscribe(); })));
    write_many(0, 1000);
    EXPECT_LT(log_size(), 200);
}

// The runtime's loop: the connect callback first, then smoothing, each once
// and never inside the call that made it due; changes of another process
// arrive without a poll.
std::vector<std::string> g_calls;

int on_connect() {
    g_calls.push_back("connect");
    ss_rt_tbl_reg_ds_func([] {
        g_calls.push_back("smooth");
        return 0;
    });
    return 0;
}

TEST_F(TblService, TheLoopConnectsSmoothsAndDelivers) {
    g_calls.clear();
    kw_global *global = kw_global_init("hnx-tbl-test", 0);
    ASSERT_NE(global, nullptr);
    uv_loop_t *loop = hnx_host_loop(global);
    ASSERT_EQ(ss_rt_tbl_init(global, "hnx-tbl-test", 4), 0);
    ASSERT_EQ(ss_rt_tbl_connect_db(on_connect), 0);
    EXPECT_TRUE(g_calls.empty());
    uv_run(loop, UV_RUN_NOWAIT);
    uv_run(loop, UV_RUN_NOWAIT);
    EXPECT_EQ(g_calls, (std::vector<std::string>{"connect", "smooth"}));

    subscribe();
    pid_t child = in_child([this] {
        for (uint32_t i = 0; i < 100; i++) {
            hw_row r(i, i);
            ss_rt_tbl_add_str(hw_res_, r.get(), 0, 0);
        }
    });
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (g_seen.size() < 100 && std::chrono::steady_clock::now() < until)
        uv_run(loop, UV_RUN_ONCE);
    ASSERT_TRUE(child_ok(child));
    EXPECT_EQ(g_seen.size(), 100u);
    EXPECT_EQ(g_seen.back(), "set 99:99");

    // An unended window times out on the loop's own timer.
    hw_row old(7, 7);
    ASSERT_EQ(ss_rt_tbl_add_str(hw_res_, old.get(), 0, 0), 0);
    ASSERT_EQ(ss_rt_tbl_ds_begin_detail(hw_res_, 0, 0), 0);
    testing::internal::CaptureStderr();
    uv_run(loop, UV_RUN_NOWAIT);
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(standing_hw_ids().empty());
    kw_global_finish(global);
}

}  // namespace
