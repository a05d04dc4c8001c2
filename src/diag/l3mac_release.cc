// Release of the whole service state, for harnesses that run one service
// after another in one process (tests that restart it, fuzz targets). The
// daemon never releases anything: its records live until the process ends.
#include "diag/l3mac_release.h"

#include "decision/l3mac_mac.h"
#include "frame/l3mac_ctx.h"
#include "store/l3mac_store_traits.h"

namespace {

template <class Rec>
void l3mac_release_store(l3mac_store<Rec> *&db) {
    if (!db) return;
    for (uint32_t i = 0; i < db->bucket; i++)
        if (l3mac_bkt_state(db->flags, i) == 0) l3mac_free(db->slots[i]);
    l3mac_free(db->flags);
    l3mac_free(db->slots);
    l3mac_free(db);
    db = nullptr;
}

}  // namespace

void l3mac_release_all() {
    l3mac_release_store(l3mac_ctx.mac_db);
    l3mac_release_store(l3mac_ctx.tcam_db);
    l3mac_release_store(l3mac_ctx.user_db);
    l3mac_release_store(l3mac_ctx.vrrp_db);
    l3mac_ctx.malloc_db = 0;
    l3mac_free(l3mac_ctx.l3mac_time_ring.samples);
    l3mac_ctx.l3mac_time_ring.samples = nullptr;
    list_init(&l3mac_pending_head);
}
