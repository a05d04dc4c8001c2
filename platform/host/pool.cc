// The index resource manager: pools of TCAM indexes, a bitmap of held
// indexes behind the public head of each pool.
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "platform/host/hnx_host.h"
#include "platform/sw_res_comm.h"

namespace {

struct pool_rec {
    sw_res_rm head;  // first: the handle the service holds
    uint32_t count;  // indexes 0 .. count-1
    uint32_t rsvd;
    std::vector<uint64_t> held;  // one bit an index
};
// The handle is the record's address; the cast back relies on this.
static_assert(std::is_standard_layout_v<pool_rec>);

// Pools live as long as the process; this keeps them reachable.
std::vector<std::unique_ptr<pool_rec>> g_pools;

pool_rec *rec_of(sw_res_rm *rm) { return reinterpret_cast<pool_rec *>(rm); }

bool is_held(const pool_rec *p, uint32_t i) { return p->held[i / 64] >> (i % 64) & 1; }

void set_held(pool_rec *p, uint32_t i, bool on) {
    uint64_t bit = uint64_t{1} << (i % 64);
    if (on) p->held[i / 64] |= bit;
    else p->held[i / 64] &= ~bit;
}

// The lowest free index; the caller has made sure that one exists.
uint32_t lowest_free(const pool_rec *p) {
    for (size_t w = 0;; w++)
        if (~p->held[w]) return static_cast<uint32_t>(w * 64 + __builtin_ctzll(~p->held[w]));
}

void take(pool_rec *p, uint32_t i) {
    set_held(p, i, true);
    p->head.in_use++;
}

int check_request(const sw_res_alloc_req *req) {
    if (req->one != 1 || req->count != 1 || req->is_gr > 1) return SW_RES_E_BAD_REQ;
    return 0;
}

// The exact index of a restore: in the pool, within the limit, not held.
int take_wanted(pool_rec *p, int64_t want, uint32_t *idx) {
    if (want < 0 || want >= p->count) return SW_RES_E_RANGE;
    if (p->head.in_use >= p->head.limit) return SW_RES_E_FULL;
    uint32_t i = static_cast<uint32_t>(want);
    if (is_held(p, i)) return SW_RES_E_TAKEN;
    take(p, i);
    *idx = i;
    return 0;
}

int take_lowest(pool_rec *p, uint32_t *idx) {
    if (p->head.in_use >= p->head.limit) return SW_RES_E_FULL;
    uint32_t i = lowest_free(p);
    take(p, i);
    *idx = i;
    return 0;
}

}  // namespace

int sw_res_comm_create_rm(int32_t algo, sw_res_rm **rm, int32_t count, int32_t,
                          int32_t rsvd_size) {
    if (rm == nullptr) return SW_RES_E_NULL;
    if (count < 0 || rsvd_size < 0) return SW_RES_E_BAD_ARG;
    auto p = std::unique_ptr<pool_rec>(new (std::nothrow) pool_rec{});
    if (!p) return SW_RES_E_NO_MEM;
    p->count = static_cast<uint32_t>(count);
    p->rsvd = static_cast<uint32_t>(rsvd_size);
    p->head.algo = static_cast<uint32_t>(algo);
    p->head.limit = count > rsvd_size ? p->count - p->rsvd : 0;
    p->held.assign((p->count + 63) / 64, 0);
    *rm = &p->head;
    g_pools.push_back(std::move(p));
    return 0;
}

int sw_res_comm_alloc_idx(const sw_res_alloc_req *req, sw_res_rm *rm, uint32_t *idx) {
    if (req == nullptr || rm == nullptr || idx == nullptr) return SW_RES_E_NULL;
    if (int rv = check_request(req)) return rv;
    pool_rec *p = rec_of(rm);
    return req->is_gr ? take_wanted(p, req->want, idx) : take_lowest(p, idx);
}

int sw_res_comm_free_idx_old(uint32_t idx, int32_t n, sw_res_rm *rm) {
    if (rm == nullptr) return SW_RES_E_NULL;
    if (n < 1) return SW_RES_E_BAD_REQ;
    pool_rec *p = rec_of(rm);
    if (idx >= p->count || static_cast<uint32_t>(n) > p->count - idx) return SW_RES_E_NOT_HELD;
    for (uint32_t i = idx; i < idx + static_cast<uint32_t>(n); i++)
        if (!is_held(p, i)) return SW_RES_E_NOT_HELD;
    for (uint32_t i = idx; i < idx + static_cast<uint32_t>(n); i++) set_held(p, i, false);
    p->head.in_use -= static_cast<uint32_t>(n);
    return 0;
}

void hnx_host_pool_reset() { g_pools.clear(); }

size_t hnx_host_pool_count() { return g_pools.size(); }

uint64_t hnx_host_pool_held() {
    uint64_t held = 0;
    for (const auto &p : g_pools) held += p->head.in_use;
    return held;
}
