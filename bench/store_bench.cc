// Lookup, insert and delete cost of the keyed stores beside std::unordered_map
// with the same keys: the 20-byte TCAM key and the 132-byte user key.
#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <random>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>

#include "store/l3mac_db.h"
#include "store/l3mac_store_traits.h"

namespace {

int create(tcam_db_t **d) { return tcam_db_create(d); }
int create(user_db_t **d) { return user_db_create(d); }
tcam_entry *get(tcam_db_t *d, const void *k) { return tcam_db_get(d, k); }
user_entry *get(user_db_t *d, const void *k) { return user_db_get(d, k); }
tcam_entry *add(tcam_db_t *d, const void *k) { return tcam_db_get_or_add(d, k); }
user_entry *add(user_db_t *d, const void *k) { return user_db_get_or_add(d, k); }
int del(tcam_db_t *d, const tcam_entry *r) { return tcam_db_del(d, r); }
int del(user_db_t *d, const user_entry *r) { return user_db_del(d, r); }

template <class Rec> constexpr uint32_t key_len = l3mac_store_traits<Rec>::key_len;
template <class Rec> using key_t = std::array<uint8_t, key_len<Rec>>;

struct key_hash {
    template <size_t N> size_t operator()(const std::array<uint8_t, N> &k) const {
        return std::hash<std::string_view>{}(
            std::string_view(reinterpret_cast<const char *>(k.data()), N));
    }
};

template <class Rec> using umap_t = std::unordered_map<key_t<Rec>, Rec *, key_hash>;

// n distinct keys as the service builds them: a TCAM key with a random MAC,
// VLAN and phyid; a user key with a user of 1 to 41 and a uuid text.
template <class Rec> std::vector<key_t<Rec>> make_keys(size_t n, uint32_t seed) {
    std::mt19937 gen(seed);
    auto rng = [&gen] { return uint32_t(gen()); };
    std::vector<key_t<Rec>> keys;
    std::unordered_set<key_t<Rec>, key_hash> seen;
    while (keys.size() < n) {
        key_t<Rec> k{};
        if constexpr (std::is_same_v<Rec, tcam_entry>) {
            tcam_key t{rng() & 0xfff, 0xfff, {}, uint8_t(rng() % 5), 0, rng() % 64};
            for (auto &b : t.mac) b = uint8_t(rng());
            std::memcpy(k.data(), &t, sizeof t);
        } else {
            const uint32_t user = 1 + rng() % 41;
            std::memcpy(k.data(), &user, 4);
            std::snprintf(reinterpret_cast<char *>(&k[4]), 128,
                          "%08x-%04x-%04x-%04x-%08x%04x", rng(), rng() & 0xffff,
                          rng() & 0xffff, rng() & 0xffff, rng(), rng() & 0xffff);
        }
        if (seen.insert(k).second) keys.push_back(k);
    }
    return keys;
}

// Keys of a size, and the same keys in another order for lookups and deletes.
template <class Rec> struct key_set {
    std::vector<key_t<Rec>> in, shuffled;
};

template <class Rec> const key_set<Rec> &keys_of(size_t n) {
    static std::map<size_t, key_set<Rec>> cache;
    auto [it, fresh] = cache.try_emplace(n);
    if (fresh) {
        it->second.in = make_keys<Rec>(n, 7);
        it->second.shuffled = it->second.in;
        std::shuffle(it->second.shuffled.begin(), it->second.shuffled.end(), std::mt19937(11));
    }
    return it->second;
}

template <class Rec> l3mac_store<Rec> *build_store(const std::vector<key_t<Rec>> &keys) {
    l3mac_store<Rec> *db = nullptr;
    create(&db);
    for (const auto &k : keys) add(db, k.data());
    return db;
}

template <class Rec> void drop_store(l3mac_store<Rec> *db) {
    std::vector<Rec *> all;
    db->scan([&](Rec *r) { return all.push_back(r), 0; });
    for (Rec *r : all) del(db, r);
    l3mac_free(db->flags);
    l3mac_free(db->slots);
    l3mac_free(db);
}

template <class Rec> umap_t<Rec> build_umap(const std::vector<key_t<Rec>> &keys) {
    umap_t<Rec> m;
    for (const auto &k : keys) m.emplace(k, nullptr);
    return m;
}

// Time of one operation, for the bulk runs that do `ops` per iteration.
void per_op(benchmark::State &state, size_t ops) {
    state.counters["per_op"] = benchmark::Counter(
        double(ops), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// --- get: hits, in an order other than the order of insertion -------------

template <class Rec> void BM_store_get(benchmark::State &state) {
    const auto &ks = keys_of<Rec>(size_t(state.range(0)));
    l3mac_store<Rec> *db = build_store<Rec>(ks.in);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(get(db, ks.shuffled[i].data()));
        if (++i == ks.shuffled.size()) i = 0;
    }
    drop_store(db);
}

template <class Rec> void BM_umap_get(benchmark::State &state) {
    const auto &ks = keys_of<Rec>(size_t(state.range(0)));
    umap_t<Rec> m = build_umap<Rec>(ks.in);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(m.find(ks.shuffled[i]));
        if (++i == ks.shuffled.size()) i = 0;
    }
}

// --- get_or_add: n new keys into an empty table, growth included -----------

template <class Rec> void BM_store_get_or_add(benchmark::State &state) {
    const auto &ks = keys_of<Rec>(size_t(state.range(0)));
    for (auto _ : state) {
        l3mac_store<Rec> *db = build_store<Rec>(ks.in);
        state.PauseTiming();
        drop_store(db);
        state.ResumeTiming();
    }
    per_op(state, ks.in.size());
}

template <class Rec> void BM_umap_get_or_add(benchmark::State &state) {
    const auto &ks = keys_of<Rec>(size_t(state.range(0)));
    for (auto _ : state) {
        auto *m = new umap_t<Rec>();
        for (const auto &k : ks.in) benchmark::DoNotOptimize(m->try_emplace(k, nullptr));
        state.PauseTiming();
        delete m;
        state.ResumeTiming();
    }
    per_op(state, ks.in.size());
}

// --- del: every key of a full table, by a record carrying the key ----------

template <class Rec> void BM_store_del(benchmark::State &state) {
    const auto &ks = keys_of<Rec>(size_t(state.range(0)));
    alignas(Rec) static unsigned char blank[sizeof(Rec)];
    const size_t off = l3mac_store_traits<Rec>::key(reinterpret_cast<Rec *>(blank)) - blank;
    for (auto _ : state) {
        state.PauseTiming();
        l3mac_store<Rec> *db = build_store<Rec>(ks.in);
        state.ResumeTiming();
        for (const auto &k : ks.shuffled) {
            std::memcpy(blank + off, k.data(), k.size());
            del(db, reinterpret_cast<Rec *>(blank));
        }
        state.PauseTiming();
        drop_store(db);
        state.ResumeTiming();
    }
    per_op(state, ks.in.size());
}

template <class Rec> void BM_umap_del(benchmark::State &state) {
    const auto &ks = keys_of<Rec>(size_t(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        umap_t<Rec> m = build_umap<Rec>(ks.in);
        state.ResumeTiming();
        for (const auto &k : ks.shuffled) m.erase(k);
    }
    per_op(state, ks.in.size());
}

// --- the hash alone, which a lookup of a long key is mostly made of --------

void BM_lookup2(benchmark::State &state) {
    std::vector<uint8_t> key(size_t(state.range(0)), 0x5a);
    for (auto _ : state) {
        benchmark::DoNotOptimize(key.data());
        benchmark::DoNotOptimize(l3mac_hash(key.data(), uint32_t(key.size())));
    }
}

void BM_std_hash(benchmark::State &state) {
    std::vector<uint8_t> key(size_t(state.range(0)), 0x5a);
    const std::string_view v(reinterpret_cast<const char *>(key.data()), key.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(key.data());
        benchmark::DoNotOptimize(std::hash<std::string_view>{}(v));
    }
}

void sizes(benchmark::internal::Benchmark *b) {
    b->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kNanosecond);
}

void bulk_sizes(benchmark::internal::Benchmark *b) {
    sizes(b);
    b->Unit(benchmark::kMillisecond)->MinTime(0.5);
}

}  // namespace

BENCHMARK(BM_lookup2)->Arg(12)->Arg(20)->Arg(132);
BENCHMARK(BM_std_hash)->Arg(12)->Arg(20)->Arg(132);
BENCHMARK_TEMPLATE(BM_store_get, tcam_entry)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_umap_get, tcam_entry)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_store_get, user_entry)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_umap_get, user_entry)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_store_get_or_add, tcam_entry)->Apply(bulk_sizes);
BENCHMARK_TEMPLATE(BM_umap_get_or_add, tcam_entry)->Apply(bulk_sizes);
BENCHMARK_TEMPLATE(BM_store_get_or_add, user_entry)->Apply(bulk_sizes);
BENCHMARK_TEMPLATE(BM_umap_get_or_add, user_entry)->Apply(bulk_sizes);
BENCHMARK_TEMPLATE(BM_store_del, tcam_entry)->Apply(bulk_sizes);
BENCHMARK_TEMPLATE(BM_umap_del, tcam_entry)->Apply(bulk_sizes);
BENCHMARK_TEMPLATE(BM_store_del, user_entry)->Apply(bulk_sizes);
BENCHMARK_TEMPLATE(BM_umap_del, user_entry)->Apply(bulk_sizes);
