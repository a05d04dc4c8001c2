// Compact cover of a set in a space of any width: the primes of the set
// (value 0 allowed) are the columns, its numbers the rows, and the
// covering search picks the fewest columns. An entry the MAC already holds
// costs a little less than a new one, never as much less as a whole entry,
// so that among the covers of fewest entries the one that keeps the most
// wins. An entry it holds that is a sub-cube of the set but no prime is a
// column of its own.
#include <algorithm>
#include <bit>
#include <cstring>

#include "decision/l3mac_mask_compact_run.h"
#include "frame/l3mac_mem.h"

namespace {

// A new entry's cost; a kept one costs 1 less. More than any cover's size.
constexpr int64_t ENTRY_COST = 1 << 16;

struct compact_run {
    const compact_input *in;
    uint32_t space;           // 2^width
    uint64_t *on;             // the set, value 0, not the top
    int32_t *row_of;          // per number: its row, or -1 (0, top, outside)
    uint32_t nrows;
    compact_cube *cols;       // primes, then the held entries that are no prime
    compact_cube *held;       // the held entries, sorted, once each
    uint32_t nheld;
    uint32_t ncols;
    uint32_t *col_start, *col_rows;
    int64_t *cost;
    uint32_t *chosen;
};

bool on_bit(const uint64_t *bits, uint32_t x) { return bits[x / 64] >> (x % 64) & 1u; }

// The numbers of a sub-cube: key with each subset of the free bits.
template <class F> void each_number(const compact_cube &c, F f) {
    uint32_t s = 0;
    do {
        f(c.key | s);
        s = (s - c.free) & c.free;
    } while (s != 0);
}

bool valid_cube(const compact_run *r, const compact_cube &c) {
    return ((c.key | c.free) & ~(r->space - 1)) == 0 && (c.key & c.free) == 0;
}

// Whether a held entry lies inside the set (value 0 allowed).
bool inside(const compact_run *r, const compact_cube &c) {
    if (!valid_cube(r, c)) return false;
    bool all = true;
    each_number(c, [&](uint32_t x) { all &= on_bit(r->on, x); });
    return all;
}

bool same_cube(const compact_cube &a, const compact_cube &b) {
    return a.key == b.key && a.free == b.free;
}

int open_compact_run(compact_run *r, const compact_input *in) {
    std::memset(r, 0, sizeof *r);
    r->in = in;
    r->space = 1u << in->width;
    const uint32_t words = r->space < 64 ? 1 : r->space / 64;
    r->on = static_cast<uint64_t *>(l3mac_calloc(words, sizeof(uint64_t)));
    r->row_of = static_cast<int32_t *>(l3mac_malloc(r->space * sizeof(int32_t)));
    if (!r->on || !r->row_of) return -1;
    const uint32_t top = r->space - 1;
    for (uint32_t x = 0; x < r->space; ++x) {
        const bool member = x != 0 && x != top && on_bit(in->set, x);
        r->row_of[x] = member ? static_cast<int32_t>(r->nrows++) : -1;
        if (member || x == 0) r->on[x / 64] |= 1ull << (x % 64);
    }
    return 0;
}

void close_compact_run(compact_run *r) {
    void *all[] = {r->on, r->row_of, r->cols, r->held, r->col_start, r->col_rows, r->cost, r->chosen};
    for (void *a : all) l3mac_free(a);
}

// Primes come ordered by free bits, then key; so are the held entries.
bool by_free_key(const compact_cube &a, const compact_cube &b) {
    return a.free != b.free ? a.free < b.free : a.key < b.key;
}

bool among(const compact_cube *sorted, uint32_t n, const compact_cube &c) {
    return std::binary_search(sorted, sorted + n, c, by_free_key);
}

// Sorts the held entries and adds those that are sub-cubes of the set but
// no prime as columns of their own.
int add_held_columns(compact_run *r, uint32_t nprimes) {
    const compact_input *in = r->in;
    r->held = static_cast<compact_cube *>(l3mac_malloc((in->have_cnt + 1) * sizeof(compact_cube)));
    auto *grown = static_cast<compact_cube *>(
        l3mac_realloc(r->cols, (nprimes + in->have_cnt + 1) * sizeof(compact_cube)));
    if (grown) r->cols = grown;
    if (!r->held || !grown) return -1;
    if (in->have_cnt) std::memcpy(r->held, in->have, in->have_cnt * sizeof(compact_cube));
    std::sort(r->held, r->held + in->have_cnt, by_free_key);
    r->nheld = static_cast<uint32_t>(std::unique(r->held, r->held + in->have_cnt, same_cube) - r->held);
    r->ncols = nprimes;
    for (uint32_t h = 0; h < r->nheld; ++h)
        if (inside(r, r->held[h]) && !among(r->cols, nprimes, r->held[h]))
            r->cols[r->ncols++] = r->held[h];
    return 0;
}

// Columns to rows, ascending (the numbers of a sub-cube come ascending and
// rows are numbered in the numbers' order); value 0 is no row.
int build_matrix(compact_run *r) {
    uint64_t nnz = 0;
    for (uint32_t j = 0; j < r->ncols; ++j)
        nnz += (1ull << compact_bits(r->cols[j].free)) - (r->cols[j].key == 0);
    r->col_start = static_cast<uint32_t *>(l3mac_malloc((r->ncols + 1) * sizeof(uint32_t)));
    r->col_rows = static_cast<uint32_t *>(l3mac_malloc((nnz ? nnz : 1) * sizeof(uint32_t)));
    r->cost = static_cast<int64_t *>(l3mac_malloc((r->ncols ? r->ncols : 1) * sizeof(int64_t)));
    r->chosen = static_cast<uint32_t *>(l3mac_malloc((r->ncols ? r->ncols : 1) * sizeof(uint32_t)));
    if (!r->col_start || !r->col_rows || !r->cost || !r->chosen) return -1;
    uint32_t at = 0;
    for (uint32_t j = 0; j < r->ncols; ++j) {
        r->col_start[j] = at;
        each_number(r->cols[j], [&](uint32_t x) {
            if (r->row_of[x] >= 0) r->col_rows[at++] = static_cast<uint32_t>(r->row_of[x]);
        });
        r->cost[j] = ENTRY_COST - (among(r->held, r->nheld, r->cols[j]) ? 1 : 0);
    }
    r->col_start[r->ncols] = at;
    return 0;
}

bool cube_before(const compact_cube &a, const compact_cube &b) {
    const int la = compact_bits(a.free), lb = compact_bits(b.free);
    if (la != lb) return la < lb;
    if (a.key != b.key) return a.key < b.key;
    return a.free < b.free;
}

int solve(compact_run *r, compact_output *out) {
    const cover_matrix m = {r->nrows, r->ncols, r->col_start, r->col_rows, r->cost};
    cover_answer ans = {r->chosen, 0, false, 0};
    if (l3mac_cover_solve(&m, r->in->budget, &ans) != 0) return -1;
    out->cubes = static_cast<compact_cube *>(
        l3mac_malloc((ans.count ? ans.count : 1) * sizeof(compact_cube)));
    if (!out->cubes) return -1;
    out->count = ans.count;
    out->kept = 0;
    for (uint32_t k = 0; k < ans.count; ++k) {
        out->cubes[k] = r->cols[ans.cols[k]];
        out->kept += r->cost[ans.cols[k]] != ENTRY_COST;
    }
    std::sort(out->cubes, out->cubes + out->count, cube_before);
    out->exact = ans.exact;
    out->steps = ans.steps;
    return 0;
}

}  // namespace

int l3mac_compact_cover(const compact_input *in, compact_output *out) {
    std::memset(out, 0, sizeof *out);
    compact_run r;
    int rv = open_compact_run(&r, in);
    uint32_t nprimes = 0;
    if (rv == 0) {
        // Few runs try the split first; the tables take what it gives up.
        rv = COMPACT_SPLIT_GAVE_UP;
        if (l3mac_compact_runs(in->width, r.on) <= COMPACT_SPLIT_RUNS)
            rv = l3mac_compact_primes_split(in->width, r.on, compact_split_most(in->width),
                                            &r.cols, &nprimes);
        if (rv == COMPACT_SPLIT_GAVE_UP)
            rv = l3mac_compact_primes(in->width, r.on, &r.cols, &nprimes);
    }
    if (rv == 0) rv = add_held_columns(&r, nprimes);
    if (rv == 0) rv = build_matrix(&r);
    if (rv == 0) rv = solve(&r, out);
    close_compact_run(&r);
    if (rv != 0) {
        l3mac_compact_release(out);
        return -1;
    }
    return 0;
}

void l3mac_compact_release(compact_output *out) {
    l3mac_free(out->cubes);
    out->cubes = nullptr;
    out->count = 0;
}
