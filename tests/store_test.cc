// The keyed stores: hash, growth and rebuild, bucket reuse, allocation
// failures, random runs against a model, and the printed dumps and rows.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"
#include "store/l3mac_db.h"
#include "store/l3mac_store_traits.h"
#include "support/l3mac_world.h"

namespace {

// One overload set over the four instances, so that tests are written once.
#define STORE_OPS(name, rec)                                                          \
    [[maybe_unused]] int create(name##_t **d) { return name##_create(d); }            \
    [[maybe_unused]] rec *get(name##_t *d, const void *k) { return name##_get(d, k); } \
    [[maybe_unused]] rec *add(name##_t *d, const void *k) {                           \
        return name##_get_or_add(d, k);                                               \
    }                                                                                 \
    [[maybe_unused]] int del(name##_t *d, const rec *r) { return name##_del(d, r); }  \
    [[maybe_unused]] int dump(name##_t *d, int32_t n, int f) { return name##_dump(d, n, f); }
STORE_OPS(mac_db, mac_entry)
STORE_OPS(tcam_db, tcam_entry)
STORE_OPS(user_db, user_entry)
STORE_OPS(vrrp_db, mac_hw)
#undef STORE_OPS

template <class Rec> using key_t = std::array<uint8_t, l3mac_store_traits<Rec>::key_len>;

// Key number n of each instance, built zero-filled as the callers build it.
template <class Rec> key_t<Rec> make_key(uint32_t n) {
    key_t<Rec> k{};
    const uint8_t mac[6] = {0x02, 0, uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n), 7};
    const uint8_t type = n % 5;
    if constexpr (std::is_same_v<Rec, mac_entry>) {
        k[0] = type;
        std::memcpy(&k[1], mac, 6);
        std::memcpy(&k[8], &n, 4);
    } else if constexpr (std::is_same_v<Rec, user_entry>) {
        const uint32_t user = 1 + n % 41;
        std::memcpy(&k[0], &user, 4);
        std::snprintf(reinterpret_cast<char *>(&k[4]), 128, "uuid-%u", n);
    } else {  // tcam_entry and mac_hw share the head of their keys
        const uint32_t evlan = n & 0xfff, mask = 0xfff;
        std::memcpy(&k[0], &evlan, 4);
        std::memcpy(&k[4], &mask, 4);
        std::memcpy(&k[8], mac, 6);
        k[14] = type;
        if constexpr (std::is_same_v<Rec, tcam_entry>) std::memcpy(&k[16], &n, 4);
    }
    return k;
}

template <class Rec> const uint8_t *key_of(const Rec *r) {
    return l3mac_store_traits<Rec>::key(r);
}

// Everything a failed insert must leave as it was.
template <class Rec> struct snapshot {
    uint32_t bucket, cur, used, limit, malloc_db;
    std::vector<uint32_t> flags;
    std::vector<Rec *> slots;

    explicit snapshot(const l3mac_store<Rec> *d)
        : bucket(d->bucket), cur(d->cur), used(d->used), limit(d->limit),
          malloc_db(l3mac_ctx.malloc_db) {
        if (bucket == 0) return;
        flags.assign(d->flags, d->flags + l3mac_flag_words(bucket));
        for (uint32_t i = 0; i < bucket; i++)
            slots.push_back(l3mac_bkt_state(d->flags, i) == 0 ? d->slots[i] : nullptr);
    }
    bool operator==(const snapshot &) const = default;
};

class StoreTest : public L3macWorld {
protected:
    void TearDown() override {
        drop(mac_);
        drop(tcam_);
        drop(user_);
        drop(vrrp_);
        EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
        L3macWorld::TearDown();
    }

    // Stores live until the process ends; a test releases its own so that
    // the leak checker sees a clean exit.
    template <class Rec> static void drop(l3mac_store<Rec> *d) {
        if (d == nullptr) return;
        std::vector<Rec *> all;
        d->scan([&](Rec *r) { return all.push_back(r), 0; });
        for (Rec *r : all) EXPECT_EQ(del(d, r), 0);
        l3mac_free(d->flags);
        l3mac_free(d->slots);
        l3mac_free(d);
    }

    template <class Rec> l3mac_store<Rec> *&store();

    mac_db_t *mac_ = nullptr;
    tcam_db_t *tcam_ = nullptr;
    user_db_t *user_ = nullptr;
    vrrp_db_t *vrrp_ = nullptr;
};

template <> mac_db_t *&StoreTest::store<mac_entry>() { return mac_; }
template <> tcam_db_t *&StoreTest::store<tcam_entry>() { return tcam_; }
template <> user_db_t *&StoreTest::store<user_entry>() { return user_; }
template <> vrrp_db_t *&StoreTest::store<mac_hw>() { return vrrp_; }

// Mac keys numbered from `from` whose start bucket among `n` is that of key `from`.
std::vector<key_t<mac_entry>> colliding(uint32_t from, uint32_t n, size_t want) {
    std::vector<key_t<mac_entry>> out;
    const uint32_t h0 = l3mac_hash(make_key<mac_entry>(from).data(), 12) & (n - 1);
    for (uint32_t i = from; out.size() < want; i++) {
        auto k = make_key<mac_entry>(i);
        if ((l3mac_hash(k.data(), 12) & (n - 1)) == h0) out.push_back(k);
    }
    return out;
}

}  // namespace

TEST(StoreHash, Lookup2CheckValues) {
    const uint8_t zeros[132] = {};
    EXPECT_EQ(l3mac_hash(zeros, 12), 0x35DD81C8u);
    EXPECT_EQ(l3mac_hash(zeros, 16), 0x3D67C75Bu);
    EXPECT_EQ(l3mac_hash(zeros, 20), 0x5F9EBD1Du);
    EXPECT_EQ(l3mac_hash(zeros, 132), 0x13155C0Bu);
}

TEST_F(StoreTest, GrowsOnScheduleAndRecordsNeverMove) {
    ASSERT_EQ(create(&mac_), 0);
    EXPECT_EQ(get(mac_, make_key<mac_entry>(0).data()), nullptr);
    std::vector<mac_entry *> recs;
    const std::vector<std::pair<uint32_t, uint32_t>> grows = {
        {1, 4}, {4, 8}, {7, 16}, {13, 32}, {26, 64}, {50, 128}};
    uint32_t want = 0;
    for (uint32_t n = 1; n <= 60; n++) {
        recs.push_back(add(mac_, make_key<mac_entry>(n).data()));
        ASSERT_NE(recs.back(), nullptr);
        for (auto [at, size] : grows)
            if (n == at) want = size;
        ASSERT_EQ(mac_->bucket, want) << "after record " << n;
        EXPECT_EQ(mac_->limit, l3mac_store_limit(want));
        EXPECT_EQ(mac_->cur, n);
        EXPECT_EQ(mac_->used, n);
        if (n == 1) { EXPECT_EQ(mac_->limit, 3u); }
    }
    EXPECT_EQ(l3mac_ctx.malloc_db, 60u);
    for (uint32_t n = 1; n <= 60; n++) {
        EXPECT_EQ(get(mac_, make_key<mac_entry>(n).data()), recs[n - 1]);
        EXPECT_EQ(add(mac_, make_key<mac_entry>(n).data()), recs[n - 1]);
    }
    EXPECT_EQ(l3mac_ctx.malloc_db, 60u);
}

TEST_F(StoreTest, LimitTable) {
    const uint32_t limits[] = {3, 6, 12, 25, 49, 99, 197, 394, 788, 1577, 3154};
    for (uint32_t i = 0, n = 4; i < 11; i++, n *= 2) EXPECT_EQ(l3mac_store_limit(n), limits[i]);
}

TEST_F(StoreTest, RebuildsAtSameSizeWhenMostlyDeleted) {
    ASSERT_EQ(create(&mac_), 0);
    mac_entry *r[3];
    for (uint32_t n = 0; n < 3; n++) r[n] = add(mac_, make_key<mac_entry>(n).data());
    EXPECT_EQ(del(mac_, r[0]), 0);
    EXPECT_EQ(del(mac_, r[1]), 0);
    EXPECT_EQ(mac_->used, 3u);
    EXPECT_EQ(mac_->cur, 1u);
    ASSERT_NE(add(mac_, make_key<mac_entry>(9).data()), nullptr);
    EXPECT_EQ(mac_->bucket, 4u);
    EXPECT_EQ(mac_->used, 2u);
    EXPECT_EQ(mac_->cur, 2u);
    EXPECT_EQ(get(mac_, make_key<mac_entry>(2).data()), r[2]);
}

TEST_F(StoreTest, DeletedBucketKeepsProbeChainAndIsReused) {
    ASSERT_EQ(create(&mac_), 0);
    auto k = colliding(0, 4, 2);
    mac_entry *a = add(mac_, k[0].data()), *b = add(mac_, k[1].data());
    ASSERT_EQ(mac_->bucket, 4u);
    EXPECT_EQ(del(mac_, a), 0);
    EXPECT_EQ(get(mac_, k[1].data()), b) << "a deleted bucket hid the record behind it";
    EXPECT_EQ(get(mac_, k[0].data()), nullptr);
    EXPECT_EQ(del(mac_, b), 0);
    EXPECT_EQ(get(mac_, k[1].data()), nullptr);
    EXPECT_EQ(l3mac_ctx.malloc_db, 0u);
    ASSERT_NE(add(mac_, k[0].data()), nullptr);
    EXPECT_EQ(mac_->used, 2u) << "the insert should reuse a deleted bucket";
    EXPECT_EQ(mac_->cur, 1u);
}

// The insert takes the last deleted bucket that its walk passes.
TEST_F(StoreTest, InsertTakesLastDeletedBucketOfItsWalk) {
    ASSERT_EQ(create(&mac_), 0);
    auto k = colliding(0, 8, 5);
    for (int i = 0; i < 4; i++) ASSERT_NE(add(mac_, k[i].data()), nullptr);
    ASSERT_EQ(mac_->bucket, 8u);
    const uint32_t s = l3mac_hash(k[0].data(), 12) & 7;
    EXPECT_EQ(del(mac_, mac_->slots[s]), 0);
    EXPECT_EQ(del(mac_, mac_->slots[(s + 1) & 7]), 0);
    mac_entry *e = add(mac_, k[4].data());
    EXPECT_EQ(mac_->slots[(s + 1) & 7], e);
    EXPECT_EQ(mac_->used, 4u);
    EXPECT_EQ(mac_->cur, 3u);
}

// Each allocation of an insert fails in turn: on a new store, while growing
// and while rebuilding at the same size.
TEST_F(StoreTest, AllocationFailureChangesNothing) {
    ASSERT_EQ(create(&mac_), 0);
    auto fail_each = [&](uint32_t next, int points) {
        for (int p = 0; p < points; p++) {
            const snapshot<mac_entry> before(mac_);
            l3mac_mem_fail_after = p;
            EXPECT_EQ(add(mac_, make_key<mac_entry>(next).data()), nullptr) << "point " << p;
            l3mac_mem_fail_after = -1;
            EXPECT_TRUE(snapshot<mac_entry>(mac_) == before) << "point " << p;
        }
        ASSERT_NE(add(mac_, make_key<mac_entry>(next).data()), nullptr);
    };
    fail_each(0, 3);  // record, flags, slots
    for (uint32_t n = 1; n < 3; n++) add(mac_, make_key<mac_entry>(n).data());
    fail_each(3, 3);  // growth to 8
    EXPECT_EQ(mac_->bucket, 8u);
    for (uint32_t n = 4; n < 6; n++) add(mac_, make_key<mac_entry>(n).data());
    for (uint32_t n = 0; n < 5; n++) del(mac_, get(mac_, make_key<mac_entry>(n).data()));
    fail_each(6, 2);  // rebuild at 8: record, flags
    EXPECT_EQ(mac_->bucket, 8u);
    EXPECT_EQ(mac_->used, 2u);
    EXPECT_EQ(l3mac_ctx.malloc_db, 2u);
}

TEST_F(StoreTest, NullHandlesAndEmptyStore) {
    const auto k = make_key<mac_entry>(1);
    l3mac_mem_fail_after = 0;
    EXPECT_EQ(create(&mac_), -17);
    EXPECT_EQ(mac_, nullptr);
    EXPECT_EQ(get(mac_, k.data()), nullptr);
    EXPECT_EQ(add(mac_, k.data()), nullptr);
    mac_entry blank{};
    EXPECT_EQ(del(mac_, &blank), -4);
    EXPECT_EQ(mac_db_scan(mac_, [](mac_entry *, void *) { return 1; }, nullptr), -4);
    EXPECT_EQ(dump(mac_, -1, 1), -4);
    EXPECT_EQ(mac_db_row(nullptr), -4);

    ASSERT_EQ(create(&mac_), 0);
    EXPECT_EQ(get(mac_, k.data()), nullptr);  // no arrays to touch yet
    EXPECT_EQ(del(mac_, &blank), 0);
    EXPECT_EQ(mac_db_scan(mac_, [](mac_entry *, void *) { return 1; }, nullptr), 0);
    capture_stdout();
    EXPECT_EQ(dump(mac_, -1, 0), 0);
    char head[64];
    std::snprintf(head, sizeof head, "\ndb:%p cur:0 bucket:0\n", static_cast<void *>(mac_));
    EXPECT_EQ(captured_stdout(), std::string(head) + "\ndump max count:  -1\ndump cur count:  0");
}

TEST_F(StoreTest, ScanStopsAtFirstNonZeroAndAllowsDelete) {
    ASSERT_EQ(create(&user_), 0);
    for (uint32_t n = 0; n < 20; n++) add(user_, make_key<user_entry>(n).data());
    struct walk { user_db_t *db; int seen; };
    walk w{user_, 0};
    auto del_all = [](user_entry *r, void *a) {
        auto *w = static_cast<walk *>(a);
        w->seen++;
        return user_db_del(w->db, r);
    };
    EXPECT_EQ(user_db_scan(user_, del_all, &w), 0);
    EXPECT_EQ(w.seen, 20);
    EXPECT_EQ(user_->cur, 0u);
    for (uint32_t n = 0; n < 5; n++) add(user_, make_key<user_entry>(n).data());
    w.seen = 0;
    auto stop_at_3 = [](user_entry *, void *a) { return ++static_cast<walk *>(a)->seen == 3 ? -9 : 0; };
    EXPECT_EQ(user_db_scan(user_, stop_at_3, &w), -9);
    EXPECT_EQ(w.seen, 3);
}

// Random runs of the three mutating operations against a model, with
// deletes by the stored record and by a zero-filled record carrying the key.
template <class Rec> class StoreModelTest : public StoreTest {};
using StoreRecs = testing::Types<mac_entry, tcam_entry, user_entry, mac_hw>;
TYPED_TEST_SUITE(StoreModelTest, StoreRecs);

TYPED_TEST(StoreModelTest, MatchesUnorderedMap) {
    using Rec = TypeParam;
    auto *&db = this->template store<Rec>();
    ASSERT_EQ(create(&db), 0);
    std::unordered_map<uint32_t, Rec *> model;
    std::mt19937 rng(20240611u + sizeof(Rec));
    auto check_all = [&] {
        ASSERT_EQ(db->cur, model.size());
        ASSERT_EQ(l3mac_ctx.malloc_db, model.size());
        ASSERT_LE(db->used, db->limit);
        ASSERT_EQ(db->bucket & (db->bucket - 1), 0u);
        std::vector<Rec *> seen, want;
        db->scan([&](Rec *r) { return seen.push_back(r), 0; });
        for (auto &[n, r] : model) want.push_back(r);
        std::sort(seen.begin(), seen.end());
        std::sort(want.begin(), want.end());
        ASSERT_EQ(seen, want);
    };
    for (int op = 0; op < 20000; op++) {
        const uint32_t n = rng() % 400;
        const auto k = make_key<Rec>(n);
        const auto it = model.find(n);
        switch (rng() % 10) {
        case 0: case 1: case 2: case 3: case 4: {
            Rec *r = add(db, k.data());
            ASSERT_NE(r, nullptr);
            if (it != model.end()) { ASSERT_EQ(r, it->second); }
            ASSERT_EQ(std::memcmp(key_of(r), k.data(), k.size()), 0);
            model[n] = r;
            break;
        }
        case 5: case 6: {
            ASSERT_EQ(del(db, it != model.end() ? it->second : nullptr), it != model.end() ? 0 : -4);
            if (it != model.end()) model.erase(it);
            break;
        }
        case 7: {
            alignas(Rec) unsigned char blank[sizeof(Rec)] = {};
            l3mac_store_traits<Rec>::key_copy(blank + (key_of(reinterpret_cast<Rec *>(blank)) - blank), k.data());
            ASSERT_EQ(del(db, reinterpret_cast<Rec *>(blank)), 0);
            model.erase(n);
            break;
        }
        default:
            ASSERT_EQ(get(db, k.data()), it != model.end() ? it->second : nullptr);
        }
        if (op % 1000 == 999) check_all();
    }
    check_all();
}

TEST_F(StoreTest, SetUpLinksListsAndMarksVfi) {
    ASSERT_EQ(create(&mac_), 0);
    ASSERT_EQ(create(&tcam_), 0);
    ASSERT_EQ(create(&user_), 0);
    ASSERT_EQ(create(&vrrp_), 0);
    auto km = make_key<mac_entry>(1);  // mac_type 1: L3MAC_OL
    km[7] = 0x5a;                      // a stray filler byte is not part of the key
    mac_entry *m = add(mac_, km.data());
    EXPECT_EQ(m->evlan_bmp.is_vfi, 1);
    EXPECT_EQ(m->rsvd, 0);
    EXPECT_EQ(get(mac_, make_key<mac_entry>(1).data()), m);
    EXPECT_TRUE(list_empty(&m->pending_lst) && list_empty(&m->user_head) && list_empty(&m->tcam_head));
    EXPECT_EQ(add(mac_, make_key<mac_entry>(2).data())->evlan_bmp.is_vfi, 0);
    EXPECT_TRUE(list_empty(&add(tcam_, make_key<tcam_entry>(1).data())->tcam_lst));
    EXPECT_TRUE(list_empty(&add(user_, make_key<user_entry>(1).data())->mac_lst));
    EXPECT_TRUE(list_empty(&add(vrrp_, make_key<mac_hw>(1).data())->user_head));
}

TEST_F(StoreTest, InvalidMacTypeLogsEvenInALookup) {
    for (uint8_t t = 0; t < 5; t++) EXPECT_EQ(sw_l3mac_type_is_vfi(t), t == 1);
    set_log(1);
    ASSERT_EQ(create(&mac_), 0);
    auto k = make_key<mac_entry>(0);
    k[0] = 9;
    capture_stdout();
    EXPECT_EQ(get(mac_, k.data()), nullptr);  // an empty store sets nothing up
    EXPECT_EQ(captured_stdout(), "");
    add(mac_, make_key<mac_entry>(1).data());
    capture_stdout();
    EXPECT_EQ(get(mac_, k.data()), nullptr);
    const std::string out = captured_stdout();
    const std::string head = "[ERROR]sw_l3mac_type_is_vfi:", tail = "|invalid mac_type 9\n";
    EXPECT_TRUE(out.starts_with(head) && out.ends_with(tail)) << out;
    EXPECT_EQ(out.size(), head.size() + 4 + tail.size()) << out;  // "%4d" line
    set_log(0);
}

// Rows are counted as the lines between the head line and the closing lines.
TEST_F(StoreTest, DumpCountRules) {
    ASSERT_EQ(create(&vrrp_), 0);
    for (uint32_t n = 0; n < 5; n++) add(vrrp_, make_key<mac_hw>(n).data());
    auto rows = [&](int32_t count) {
        capture_stdout();
        EXPECT_EQ(dump(vrrp_, count, 0), 0);
        const std::string out = captured_stdout();
        const size_t body = out.find("bucket:8\n") + 9, end = out.find("\ndump max count:");
        EXPECT_NE(end, std::string::npos);
        const auto printed = std::count(out.begin() + body, out.begin() + end, '\n');
        char tail[80];
        std::snprintf(tail, sizeof tail, "\ndump max count:  %d\ndump cur count:  %d", count, int(printed));
        EXPECT_EQ(out.substr(end), tail);
        return printed;
    };
    EXPECT_EQ(rows(-1), 5);
    EXPECT_EQ(rows(2), 2);
    EXPECT_EQ(rows(0), 1);
    EXPECT_EQ(rows(-3), 1);
    EXPECT_EQ(rows(9), 5);
}

TEST_F(StoreTest, RowsAndHeaders) {
    ASSERT_EQ(create(&mac_), 0);
    ASSERT_EQ(create(&tcam_), 0);
    ASSERT_EQ(create(&user_), 0);
    ASSERT_EQ(create(&vrrp_), 0);
    const uint8_t mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    const std::string mtxt = "00:11:22:33:44:55";

    uint8_t km[12] = {1};
    std::memcpy(km + 1, mac, 6);
    km[8] = 0x2a;
    capture_stdout();
    EXPECT_EQ(mac_db_show(add(mac_, km), 1), 0);
    EXPECT_EQ(captured_stdout(), "\nmac_type  mac                 phyid     \n"
                          "1         " + mtxt + "   0x2a      \n");

    uint8_t kt[20] = {100, 0, 0, 0, 0xff, 0x0f, 0, 0};
    std::memcpy(kt + 8, mac, 6);
    kt[14] = 2;
    kt[16] = 0x10;
    tcam_entry *t = add(tcam_, kt);
    t->idx = 7;
    t->ref_cnt = 2;
    t->valid = 1;
    capture_stdout();
    EXPECT_EQ(tcam_db_show(t, 1), 0);
    EXPECT_EQ(captured_stdout(),
              "\nevlan     evlan_mask          mac_type  mac                 phyid     idx       ref_cnt   valid     \n"
              "100       4095                2         " + mtxt + "   0x10      7         2         1         \n");

    uint8_t ku[132] = {3};
    std::strcpy(reinterpret_cast<char *>(ku + 4), "u-1");
    user_entry *u = add(user_, ku);
    u->is_match_evlan = 1;
    u->mac_type = 4;
    u->evlan = 10;
    u->mac_entry = reinterpret_cast<void *>(0x1234);
    std::memcpy(u->mac, mac, 6);
    u->phyid = 0xff;
    capture_stdout();
    EXPECT_EQ(user_db_show(u, 1), 0);
    EXPECT_EQ(captured_stdout(),
              "\nuser      uuid                          is_match_evlan  mac_type  evlan     mac_entry      mac                 phyid     \n"
              "3         u-1                           1               4         10        0x1234         " + mtxt + "   0xff      \n");

    uint8_t kh[16] = {20, 0, 0, 0, 0xff, 0x0f, 0, 0};
    std::memcpy(kh + 8, mac, 6);
    kh[14] = 2;
    mac_hw *h = add(vrrp_, kh);
    h->is_hw = 1;
    capture_stdout();
    EXPECT_EQ(vrrp_db_row(h), 0);
    EXPECT_EQ(vrrp_db_show(nullptr, 1), -4);  // the header alone
    EXPECT_EQ(captured_stdout(), "20        4095        2         " + mtxt + "1         \n"
                          "\nevlan     evlan_mask  mac_type  mac            is_hw     \n");
}
