// Index resource manager: pools of TCAM indexes.
#pragma once

#include <cstddef>
#include <cstdint>

// A pool. Only its second and third 32-bit words are public: the limit of
// the pool and the number of indexes in use. The manager owns the rest.
struct sw_res_rm {
    uint32_t algo;
    uint32_t limit;
    uint32_t in_use;
};

// Request record of sw_res_comm_alloc_idx; zero-filled by the caller.
struct sw_res_alloc_req {
    uint8_t one;        // always 1
    uint8_t rsvd1;
    uint8_t is_gr;      // 1: take exactly `want`
    uint8_t rsvd2[5];
    uint32_t count;     // number of indexes, 1
    uint8_t rsvd3[28];
    int64_t want;       // wanted index, 0 when the manager chooses
    uint8_t rsvd4[136];
};
static_assert(offsetof(sw_res_alloc_req, is_gr) == 2);
static_assert(offsetof(sw_res_alloc_req, count) == 8);
static_assert(offsetof(sw_res_alloc_req, want) == 40);
static_assert(sizeof(sw_res_alloc_req) >= 184);

// Codes of the index resource manager, apart from the service's own. A
// refused call holds nothing and changes nothing.
inline constexpr int SW_RES_E_FULL = -201;      // in use at the limit
inline constexpr int SW_RES_E_TAKEN = -202;     // the wanted index is held
inline constexpr int SW_RES_E_RANGE = -203;     // the wanted index is not in the pool
inline constexpr int SW_RES_E_NULL = -204;      // no handle, request or result place
inline constexpr int SW_RES_E_NOT_HELD = -205;  // a freed index is not held, or not in the pool
inline constexpr int SW_RES_E_BAD_REQ = -206;   // count not 1, first byte not 1, is_gr not 0/1
inline constexpr int SW_RES_E_BAD_ARG = -207;   // negative size or reserved size
inline constexpr int SW_RES_E_NO_MEM = -208;

// Creates a pool of `count` indexes, numbered 0 .. count-1; stores the
// handle in *rm. `rsvd_size` of them are kept back for other users of the
// TCAM: the pool holds at most count - rsvd_size (never below 0) at once,
// which is its limit, but any index may be the one held. `algo` is kept in
// the first word; `zero` is not used. 0 or a code.
int sw_res_comm_create_rm(int32_t algo, sw_res_rm **rm, int32_t count,
                          int32_t zero, int32_t rsvd_size);

// Takes one index: the lowest free one, or with is_gr 1 exactly `want`.
// 0 with the index in *idx, or a code with nothing held.
int sw_res_comm_alloc_idx(const sw_res_alloc_req *req, sw_res_rm *rm,
                          uint32_t *idx);

// Frees `n` indexes starting at idx; all of them must be held, or none is
// freed. 0 or a code.
int sw_res_comm_free_idx_old(uint32_t idx, int32_t n, sw_res_rm *rm);
