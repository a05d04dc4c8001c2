// The one keyed store design: open addressing over record references, two
// state bits per bucket, triangular probing, growth and rebuild in place.
//
// A store owns its records and never moves one, so that the references held
// by lists and other records survive growth and rebuilds. Keys are raw bytes
// inside the record; l3mac_store_traits<Rec> (l3mac_store_traits.h) tells
// where they lie, how a record is set up and how it is printed.
#pragma once

#include <cassert>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "frame/l3mac_codes.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"
#include "store/l3mac_store_fwd.h"

uint32_t l3mac_hash(const void *key, uint32_t n);

template <class Rec> struct l3mac_store_traits;

// Bucket states in `flags`: both bits clear is live.
inline constexpr uint32_t L3MAC_BKT_DEL = 1;
inline constexpr uint32_t L3MAC_BKT_EMPTY = 2;

// `used` at which a table of n buckets reorganises: n * 0.77, rounded.
inline uint32_t l3mac_store_limit(uint32_t n) {
    return static_cast<uint32_t>(n * 0.77 + 0.5);
}

// Words of `flags` for n buckets: 16 buckets a word, at least one word.
inline uint32_t l3mac_flag_words(uint32_t n) { return n < 16 ? 1 : n / 16; }

inline uint32_t l3mac_bkt_state(const uint32_t *flags, uint32_t i) {
    return (flags[i >> 4] >> ((i & 15) << 1)) & 3;
}

inline void l3mac_bkt_set(uint32_t *flags, uint32_t i, uint32_t bits) {
    flags[i >> 4] |= bits << ((i & 15) << 1);
}

inline void l3mac_bkt_clear(uint32_t *flags, uint32_t i, uint32_t bits) {
    flags[i >> 4] &= ~(bits << ((i & 15) << 1));
}

// Created zero-filled by l3mac_calloc: no buckets and no arrays until the
// first insert. Never destroyed: a store lives until the process ends.
template <class Rec> class l3mac_store {
    using traits = l3mac_store_traits<Rec>;
    static constexpr uint32_t key_len = traits::key_len;

public:
    uint32_t bucket;  // 0, or a power of two, at least 4
    uint32_t cur;     // live records
    uint32_t used;    // live and deleted buckets
    uint32_t limit;   // `used` at which the next insert reorganises
    uint32_t *flags;  // two state bits per bucket
    Rec **slots;      // the record of each live bucket

    // The record of the key, or null.
    Rec *get(const void *key) {
        alignas(4) uint8_t buf[key_len];
        const uint8_t *k = traits::key_norm(buf, key);
        const uint32_t i = lookup(k, l3mac_hash(k, key_len));
        return i == bucket ? nullptr : slots[i];
    }

    // The record of the key, created from the key when missing; null when
    // memory runs out, and then the store and malloc_db are as they were.
    // The key is hashed once for the lookup and the placing: the hash does
    // not depend on the table's size.
    Rec *get_or_add(const void *key) {
        alignas(4) uint8_t buf[key_len];
        const uint8_t *k = traits::key_norm(buf, key);
        const uint32_t h = l3mac_hash(k, key_len);
        const uint32_t i = lookup(k, h);
        if (i != bucket) return slots[i];
        Rec *rec = static_cast<Rec *>(l3mac_malloc(sizeof(Rec)));
        if (rec == nullptr) return nullptr;
        l3mac_ctx.malloc_db++;
        traits::setup(rec, key);
        if (used >= limit && reorganise(next_size()) != SS_E_NONE) {
            l3mac_ctx.malloc_db--;
            l3mac_free(rec);
            return nullptr;
        }
        insert(rec, h);
        return rec;
    }

    // Releases the record whose key equals that of `rec`, if there is one.
    int del(const Rec *rec) {
        if (bucket == 0) return SS_E_NONE;
        alignas(4) uint8_t buf[key_len];
        const uint8_t *k = traits::key_norm(buf, traits::key(rec));
        const uint32_t i = find(k, l3mac_hash(k, key_len));
        if (i == bucket) return SS_E_NONE;
        l3mac_ctx.malloc_db--;
        l3mac_free(slots[i]);
        l3mac_bkt_set(flags, i, L3MAC_BKT_DEL);
        cur--;  // `used` stays: the bucket still carries probe sequences
        return SS_E_NONE;
    }

    // Calls fn(record) for each live record in bucket order; stops at the
    // first non-zero result and returns it. fn may delete but not insert:
    // an insert can reorganise `slots` under the walk.
    template <class Fn> int scan(Fn &&fn) {
        for (uint32_t i = 0; i < bucket; i++) {
            if (l3mac_bkt_state(flags, i) != 0) continue;
            if (int rv = fn(slots[i])) return rv;
        }
        return SS_E_NONE;
    }

    // Prints the head line, the header if asked, the rows and the counts.
    // count -1 prints all rows; otherwise the walk stops after the row that
    // brings the printed rows to count, so that 0 or less prints one.
    int dump(int32_t count, int is_form) {
        std::printf("\ndb:%p cur:%d bucket:%d\n", static_cast<void *>(this),
                    static_cast<int>(cur), static_cast<int>(bucket));
        if (is_form) traits::header();
        int32_t printed = 0;
        scan([&](Rec *rec) {
            traits::row(rec);
            printed++;
            return count != -1 && printed >= count ? L3MAC_E_FULL : SS_E_NONE;
        });
        std::printf("\ndump max count:  %d", count);
        std::printf("\ndump cur count:  %d", printed);
        return SS_E_NONE;
    }

private:
    // Bucket of key k (hash h), or `bucket` when it is absent. An empty
    // table touches no array. Otherwise a lookup sets up a blank record from
    // the key; only its key bytes are read, so only they are built, with
    // the set-up's other visible effects (traits::blank).
    uint32_t lookup(const uint8_t *k, uint32_t h) const {
        if (bucket == 0) return 0;
        traits::blank(k);
        return find(k, h);
    }

    // Bucket of the live record with key k, or `bucket` when there is none.
    // An empty bucket ends the walk; a deleted one does not, so that it never
    // hides a record placed behind it.
    uint32_t find(const uint8_t *k, uint32_t h) const {
        const uint32_t mask = bucket - 1;
        const uint32_t start = h & mask;
        uint32_t i = start, step = 0;
        do {
            const uint32_t st = l3mac_bkt_state(flags, i);
            if (st & L3MAC_BKT_EMPTY) return bucket;
            if (st == 0 && std::memcmp(traits::key(slots[i]), k, key_len) == 0)
                return i;
            i = (i + ++step) & mask;
        } while (i != start);
        return bucket;
    }

    // Rebuild at the same size while more than half the table is free of
    // live records (that clears the deleted buckets); grow otherwise.
    uint32_t next_size() const {
        if (bucket > 2 * cur) return bucket;
        return bucket < 4 ? 4 : bucket * 2;
    }

    // Puts a record whose key is absent into the table: the start bucket if
    // it is empty, else the last deleted bucket the walk passes before the
    // first empty one, else that empty one.
    void insert(Rec *rec, uint32_t h) {
        const uint32_t i = place(h);
        if (l3mac_bkt_state(flags, i) & L3MAC_BKT_EMPTY) used++;
        slots[i] = rec;
        l3mac_bkt_clear(flags, i, L3MAC_BKT_DEL | L3MAC_BKT_EMPTY);
        cur++;
    }

    uint32_t place(uint32_t h) const {
        const uint32_t mask = bucket - 1;
        const uint32_t start = h & mask;
        uint32_t i = start, step = 0, del = bucket;
        do {
            const uint32_t st = l3mac_bkt_state(flags, i);
            if (st & L3MAC_BKT_EMPTY) break;
            if (st & L3MAC_BKT_DEL) del = i;
            i = (i + ++step) & mask;
        } while (i != start);
        if (del != bucket) return del;
        assert(l3mac_bkt_state(flags, i) & L3MAC_BKT_EMPTY);
        return i;
    }

    // Rehashes every live record into n buckets without a second `slots`:
    // only `flags` exists twice meanwhile. Nothing changes on failure.
    int reorganise(uint32_t n) {
        const size_t fbytes = l3mac_flag_words(n) * sizeof(uint32_t);
        uint32_t *nflags = static_cast<uint32_t *>(l3mac_malloc(fbytes));
        if (nflags == nullptr) return L3MAC_E_NOMEM;
        std::memset(nflags, 0xAA, fbytes);
        if (n > bucket) {
            void *ns = l3mac_realloc(slots, n * sizeof(Rec *));
            if (ns == nullptr) {
                l3mac_free(nflags);
                return L3MAC_E_NOMEM;
            }
            slots = static_cast<Rec **>(ns);
        }
        for (uint32_t j = 0; j < bucket; j++)
            if (l3mac_bkt_state(flags, j) == 0) rehome(j, nflags, n);
        l3mac_free(flags);
        flags = nflags;
        bucket = n;
        used = cur;
        limit = l3mac_store_limit(n);
        return SS_E_NONE;
    }

    // Moves the record of old bucket j to its place among n buckets. A
    // record not yet moved that sits at that place is swapped into hand and
    // placed in turn; the deleted bit in the old flags marks "taken out".
    void rehome(uint32_t j, uint32_t *nflags, uint32_t n) {
        const uint32_t mask = n - 1;
        l3mac_bkt_set(flags, j, L3MAC_BKT_DEL);
        Rec *hand = slots[j];
        for (;;) {
            uint32_t i = l3mac_hash(traits::key(hand), key_len) & mask;
            for (uint32_t step = 0;
                 !(l3mac_bkt_state(nflags, i) & L3MAC_BKT_EMPTY);)
                i = (i + ++step) & mask;
            l3mac_bkt_clear(nflags, i, L3MAC_BKT_EMPTY);
            if (i < bucket && l3mac_bkt_state(flags, i) == 0) {
                Rec *sat = slots[i];
                slots[i] = hand;
                hand = sat;
                l3mac_bkt_set(flags, i, L3MAC_BKT_DEL);
                continue;
            }
            slots[i] = hand;
            return;
        }
    }
};
