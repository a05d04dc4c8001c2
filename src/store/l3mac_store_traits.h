// What tells the four store instances apart: where each record's key lies,
// how a record is set up from its key, and how it is printed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "store/l3mac_db.h"
#include "store/l3mac_store.h"

// Key of Len raw bytes at byte Off of the record; Filler is the position of
// the key's 0 byte (-1: none), which a copied key always holds as 0, so
// that filler bytes compare equal whatever the caller left there.
template <class Rec, size_t Off, uint32_t Len, int Filler>
struct l3mac_key_layout {
    static constexpr uint32_t key_len = Len;

    static const uint8_t *key(const Rec *r) {
        return reinterpret_cast<const uint8_t *>(r) + Off;
    }

    static void key_copy(uint8_t *dst, const void *src) {
        std::memcpy(dst, src, Len);
        if constexpr (Filler >= 0) dst[Filler] = 0;
    }

    // The key to hash and compare: src itself when it has no filler byte to
    // clear, else its copy in buf.
    static const uint8_t *key_norm(uint8_t *buf, const void *src) {
        if constexpr (Filler < 0) return static_cast<const uint8_t *>(src);
        key_copy(buf, src);
        return buf;
    }

    // Set-up shared by every record: zeros, then the key bytes.
    static void fill(Rec *r, const void *src) {
        std::memset(static_cast<void *>(r), 0, sizeof(Rec));
        key_copy(reinterpret_cast<uint8_t *>(r) + Off, src);
    }

    // Visible effects of setting up a lookup's blank record: none here.
    static void blank(const uint8_t *) {}
};

static_assert(offsetof(mac_entry, phyid) == offsetof(mac_entry, mac_type) + 8);
static_assert(offsetof(mac_hw, rsvd) == 15 && offsetof(mac_hw, user_head) == 16);
static_assert(offsetof(user_entry, uuid) == 4);

template <>
struct l3mac_store_traits<mac_entry>
    : l3mac_key_layout<mac_entry, offsetof(mac_entry, mac_type),
                       L3MAC_MAC_KEY_LEN, 7> {
    // A lookup's blank record gets is_vfi too: an invalid type logs there.
    static void blank(const uint8_t *k) { sw_l3mac_type_is_vfi(k[0]); }

    static void setup(mac_entry *r, const void *k) {
        fill(r, k);
        list_init(&r->pending_lst);
        list_init(&r->user_head);
        list_init(&r->tcam_head);
        r->evlan_bmp.is_vfi = sw_l3mac_type_is_vfi(r->mac_type);
    }
    static void header();
    static void row(const mac_entry *r);
};

template <>
struct l3mac_store_traits<tcam_entry>
    : l3mac_key_layout<tcam_entry, offsetof(tcam_entry, key), 20, 15> {
    static void setup(tcam_entry *r, const void *k) {
        fill(r, k);
        list_init(&r->tcam_lst);
    }
    static void header();
    static void row(const tcam_entry *r);
};

template <>
struct l3mac_store_traits<user_entry>
    : l3mac_key_layout<user_entry, 0, L3MAC_USER_KEY_LEN, -1> {
    static void setup(user_entry *r, const void *k) {
        fill(r, k);
        list_init(&r->mac_lst);
    }
    static void header();
    static void row(const user_entry *r);
};

template <>
struct l3mac_store_traits<mac_hw>
    : l3mac_key_layout<mac_hw, 0, L3MAC_HW_KEY_LEN, 15> {
    static void setup(mac_hw *r, const void *k) {
        fill(r, k);
        list_init(&r->user_head);
    }
    static void header();
    static void row(const mac_hw *r);
};
