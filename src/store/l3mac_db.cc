// The four store instances and their operations: the null-handle answers
// here, the design in l3mac_store.h, the keys and rows in the traits.
#include "store/l3mac_db.h"

#include "diag/l3mac_log.h"
#include "s_route.pb-c.h"
#include "store/l3mac_store_traits.h"

uint8_t sw_l3mac_type_is_vfi(uint8_t mac_type) {
    switch (mac_type) {
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_OL:
        return 1;
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL:
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP:
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_TNL:
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_SUBIF:
        return 0;
    default:
        L3MAC_ERR_LINE("invalid mac_type %d\n", int{mac_type});
        return 0;
    }
}

namespace {

template <class Rec> int db_create(l3mac_store<Rec> **db) {
    if (db == nullptr) return L3MAC_E_PARAM;
    *db = static_cast<l3mac_store<Rec> *>(
        l3mac_calloc(1, sizeof(l3mac_store<Rec>)));
    return *db != nullptr ? SS_E_NONE : L3MAC_E_FATAL;
}

template <class Rec>
int db_scan(l3mac_store<Rec> *db, int (*cb)(Rec *, void *), void *arg) {
    if (db == nullptr || cb == nullptr) return L3MAC_E_PARAM;
    return db->scan([cb, arg](Rec *r) { return cb(r, arg); });
}

template <class Rec> int db_row(const Rec *r) {
    if (r == nullptr) return L3MAC_E_PARAM;
    l3mac_store_traits<Rec>::row(r);
    return SS_E_NONE;
}

template <class Rec> int db_show(const Rec *r, int is_form) {
    if (is_form) l3mac_store_traits<Rec>::header();
    return db_row(r);
}

}  // namespace

#define L3MAC_DB_DEFINE(name, rec)                                          \
    int name##_create(name##_t **db) { return db_create(db); }              \
    rec *name##_get(name##_t *db, const void *key) {                        \
        return db && key ? db->get(key) : nullptr;                          \
    }                                                                       \
    rec *name##_get_or_add(name##_t *db, const void *key) {                 \
        return db && key ? db->get_or_add(key) : nullptr;                   \
    }                                                                       \
    int name##_del(name##_t *db, const rec *record) {                       \
        if (db == nullptr || record == nullptr) return L3MAC_E_PARAM;       \
        return db->del(record);                                             \
    }                                                                       \
    int name##_scan(name##_t *db, int (*cb)(rec *, void *), void *arg) {    \
        return db_scan(db, cb, arg);                                        \
    }                                                                       \
    int name##_dump(name##_t *db, int32_t count, int is_form) {             \
        return db != nullptr ? db->dump(count, is_form) : L3MAC_E_PARAM;    \
    }                                                                       \
    int name##_row(const rec *record) { return db_row(record); }            \
    int name##_show(const rec *record, int is_form) {                       \
        return db_show(record, is_form);                                    \
    }

L3MAC_DB_DEFINE(mac_db, mac_entry)
L3MAC_DB_DEFINE(tcam_db, tcam_entry)
L3MAC_DB_DEFINE(user_db, user_entry)
L3MAC_DB_DEFINE(vrrp_db, mac_hw)
