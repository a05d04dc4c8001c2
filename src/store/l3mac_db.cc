// Placeholder bodies until this module is written.
#include "store/l3mac_db.h"
uint32_t l3mac_hash(const void *, uint32_t) { return 0; }
uint8_t sw_l3mac_type_is_vfi(uint8_t t) { return t == 1; }
#define STUB(name, rec) \
  int name##_create(name##_t **db) { *db = nullptr; return -17; } \
  rec *name##_get(name##_t *, const void *) { return nullptr; } \
  rec *name##_get_or_add(name##_t *, const void *) { return nullptr; } \
  int name##_del(name##_t *, const rec *) { return -4; } \
  int name##_scan(name##_t *, int (*)(rec *, void *), void *) { return -4; } \
  int name##_dump(name##_t *, int32_t, int) { return -4; } \
  int name##_row(const rec *) { return -4; } \
  int name##_show(const rec *, int) { return -4; }
STUB(mac_db, mac_entry)
STUB(tcam_db, tcam_entry)
STUB(user_db, user_entry)
STUB(vrrp_db, mac_hw)
