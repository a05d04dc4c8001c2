// The four keyed stores of the service, instances of one design
// (l3mac_store.h): the MAC, TCAM, user and mac_hw stores.
#pragma once

#include <cstdint>

#include "decision/l3mac_mac.h"
#include "request/l3mac_user.h"
#include "store/l3mac_store_fwd.h"
#include "tcam/l3mac_tcam.h"
#include "vrrp/l3mac_vrrp.h"

// lookup2 hash of Bob Jenkins over n raw bytes, init value 0.
uint32_t l3mac_hash(const void *key, uint32_t n);

// 1 for L3MAC_OL, 0 for the other types; an invalid type logs and gives 0.
uint8_t sw_l3mac_type_is_vfi(uint8_t mac_type);

#define L3MAC_DB_DECLARE(name, rec)                                      \
    int name##_create(name##_t **db);                                     \
    rec *name##_get(name##_t *db, const void *key);                       \
    rec *name##_get_or_add(name##_t *db, const void *key);                \
    int name##_del(name##_t *db, const rec *record);                      \
    int name##_scan(name##_t *db, int (*cb)(rec *, void *), void *arg);   \
    int name##_dump(name##_t *db, int32_t count, int is_form);            \
    int name##_row(const rec *record);                                    \
    int name##_show(const rec *record, int is_form);

L3MAC_DB_DECLARE(mac_db, mac_entry)
L3MAC_DB_DECLARE(tcam_db, tcam_entry)
L3MAC_DB_DECLARE(user_db, user_entry)
L3MAC_DB_DECLARE(vrrp_db, mac_hw)

#undef L3MAC_DB_DECLARE
