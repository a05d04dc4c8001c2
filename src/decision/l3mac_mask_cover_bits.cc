// Search of a part of at most COVER_BITS_COLS columns, as the parts of
// operator plans and of VLAN ranges are: each row is the set of its
// columns in a few words, so that the bound of a node, the row to branch on
// and the rows a column leaves open take one AND per row instead of one
// look per incidence. Rows that hold all the columns of another row are
// dropped first (whatever covers the smaller row covers them too); on
// these parts they are most of the rows.
//
// Columns are renumbered by ascending cost, so that the lowest column of
// a row is its cheapest. Every row looked at is one step; when the budget
// is spent the best answer so far stands.
//
// Rows that share no column bound a node weakly where the ranges of a plan
// overlap in many primes: the answer is then often proved only after most
// of the tree. A part that this search leaves open after COVER_PRICE_AFTER
// steps is searched again with prices on the rows, set once at the root
// (l3mac_mask_cover_price.cc): they give a second bound at every node,
// keep out the columns that no cheaper cover below it can take, and end
// the search as soon as its answer meets their floor. Most parts end
// before that, where the prices would cost more than they save.
#include <algorithm>
#include <cstring>

#include "decision/l3mac_mask_cover_price.h"
#include "decision/l3mac_mask_cover_run.h"
#include "frame/l3mac_mem.h"

namespace {

struct bits_search {
    const cover_part *p;
    uint32_t nc;
    uint32_t bit_col[COVER_BITS_COLS];  // bit -> column of the part
    int64_t cost[COVER_BITS_COLS];      // per bit, ascending
    colset *row;                        // per kept row
    uint32_t nrows;
    uint32_t *scratch;                  // per row of the part, before the search
    uint32_t *arena;                    // open rows of the nodes on the path
    uint32_t chosen[COVER_BITS_COLS], nchosen;
    uint32_t best[COVER_BITS_COLS], nbest;
    int64_t best_cost;
    cover_pricing price;                // of the kept rows
    int64_t floor;                      // no cover costs less
    uint64_t steps, budget;
    bool out, improved;
    bool proved;                        // the best answer is at the floor
    bool priced;                        // the prices bound the nodes
};

// Columns by ascending cost, then number; each row as its set of them.
void open_bits(bits_search *b, const cover_part *p, colset *all) {
    b->p = p;
    b->nc = p->nc;
    for (uint32_t j = 0; j < p->nc; ++j) b->bit_col[j] = j;
    std::stable_sort(b->bit_col, b->bit_col + p->nc,
                     [p](uint32_t x, uint32_t y) { return p->cost[x] < p->cost[y]; });
    uint32_t col_bit[COVER_BITS_COLS];
    for (uint32_t k = 0; k < p->nc; ++k) {
        col_bit[b->bit_col[k]] = k;
        b->cost[k] = p->cost[b->bit_col[k]];
    }
    for (uint32_t w = 0; w < p->nr; ++w) {
        all[w] = {};
        for (uint32_t i = p->rs[w]; i < p->rs[w + 1]; ++i) all[w] = all[w] | single(col_bit[p->rc[i]]);
    }
    b->steps += p->rs[p->nr];
}

// Rows fewest columns first, by counting: the order the bound takes them
// in, and the one the other search keeps in s->order, so that it may still
// take the part over.
void sort_rows(bits_search *b, const colset *all, uint32_t *order) {
    const cover_part *p = b->p;
    uint32_t at[COVER_BITS_COLS + 2] = {};
    uint32_t *size = b->scratch;
    for (uint32_t w = 0; w < p->nr; ++w) ++at[(size[w] = count_of(all[w])) + 1];
    for (uint32_t z = 0; z <= COVER_BITS_COLS; ++z) at[z + 1] += at[z];
    for (uint32_t w = 0; w < p->nr; ++w) order[at[size[w]]++] = w;
    b->steps += p->nr;
}

// Keeps the rows, in `order`, that hold no earlier row's columns wholly
// (of equal rows the first). A kept row is filed under its lowest column,
// so that a row looks only at the rows filed under its own columns.
void keep_smallest_rows(bits_search *b, const colset *all, const uint32_t *order) {
    const cover_part *p = b->p;
    uint32_t first[COVER_BITS_COLS];
    uint32_t *next = b->scratch;
    for (uint32_t c = 0; c < b->nc; ++c) first[c] = COVER_NONE;
    b->nrows = 0;
    for (uint32_t k = 0; k < p->nr; ++k) {
        const colset r = all[order[k]];
        bool holds_other = false;
        for (colset rest = r; !empty(rest) && !holds_other;) {
            const uint32_t c = lowest(rest);
            rest = minus(rest, single(c));
            for (uint32_t j = first[c]; j != COVER_NONE && !holds_other; j = next[j]) {
                holds_other = empty(minus(b->row[j], r));
                ++b->steps;
            }
        }
        if (holds_other) continue;
        const uint32_t c = lowest(r);
        next[b->nrows] = first[c];
        first[c] = b->nrows;
        b->row[b->nrows++] = r;
    }
}

// The bound of the root over every row: a row that holds an earlier row's
// columns shares one with any row the earlier one shares one with, so it
// never adds to the bound, and the bound is the one of the kept rows.
int64_t root_bound(const bits_search *b, const colset *all, const uint32_t *order) {
    colset used = {};
    int64_t lb = 0;
    for (uint32_t k = 0; k < b->p->nr; ++k) {
        const colset m = all[order[k]];
        if (!empty(m & used)) continue;
        lb += b->cost[lowest(m)];
        used = used | m;
    }
    return lb;
}

void save_best(bits_search *b, int64_t cost) {
    std::memcpy(b->best, b->chosen, b->nchosen * sizeof(uint32_t));
    b->nbest = b->nchosen;
    b->best_cost = cost;
    b->improved = true;
}

// One node: `open` are the rows no chosen column holds, `allowed` the
// columns its subtree may still take. The bound is the cheapest column of
// each open row that shares no allowed column with an earlier such row,
// then the prices' bound; the branch is on the open row with the fewest
// allowed columns, its columns tried by the open rows they hold, most
// first, each banned in the subtrees of the later ones so that no set of
// columns comes twice.
void search_node(bits_search *b, const uint32_t *open, uint32_t n, colset allowed,
                 int64_t cost_now) {
    if (n == 0) {
        if (cost_now < b->best_cost) save_best(b, cost_now);
        b->proved = b->best_cost <= b->floor;
        return;
    }
    b->steps += n;
    if (b->steps > b->budget) {
        b->out = true;
        return;
    }
    colset used = {};
    int64_t lb = 0;
    uint32_t br = 0, br_size = ~0u;
    for (uint32_t k = 0; k < n; ++k) {
        const colset m = b->row[open[k]] & allowed;
        if (empty(m)) return;
        if (empty(m & used)) {
            lb += b->cost[lowest(m)];
            used = used | m;
        }
        if (br_size > 1) {
            const uint32_t size = count_of(m);
            if (size < br_size) br = open[k], br_size = size;
        }
    }
    if (cost_now + lb >= b->best_cost) return;
    if (b->priced && cover_price_node(&b->price, open, n, cost_now, b->best_cost, &allowed, &b->steps))
        return;
    const colset branch = b->row[br] & allowed;
    uint32_t cand[COVER_BITS_COLS], gain[COVER_BITS_COLS], at[COVER_BITS_COLS], nc = 0;
    for (colset rest = branch; !empty(rest); rest = minus(rest, single(cand[nc - 1])))
        cand[nc] = lowest(rest), at[cand[nc]] = nc, gain[nc++] = 0;
    for (uint32_t k = 0; k < n; ++k)
        for_each_col(b->row[open[k]] & branch, [&](uint32_t c) { ++gain[at[c]]; });
    b->steps += n;
    // Most open rows first, then the cheaper, then the lower bit.
    for (uint32_t i = 1; i < nc; ++i)
        for (uint32_t j = i; j > 0 && gain[j] > gain[j - 1]; --j) {
            std::swap(cand[j], cand[j - 1]);
            std::swap(gain[j], gain[j - 1]);
        }
    uint32_t *next = b->arena + (open - b->arena) + n;
    for (uint32_t i = 0; i < nc && !b->out && !b->proved; ++i) {
        const uint32_t c = cand[i];
        uint32_t left = 0;
        // Each row is written and kept only when c leaves it open: no
        // branch to mispredict. At most n are written, within the level.
        for (uint32_t k = 0; k < n; ++k) {
            next[left] = open[k];
            left += !has(b->row[open[k]], c);
        }
        b->steps += n;
        b->chosen[b->nchosen++] = c;
        search_node(b, next, left, allowed, cost_now + b->cost[c]);
        --b->nchosen;
        allowed = minus(allowed, single(c));
    }
}

// The search from the root within `budget`, the best answer so far kept.
void search_root(bits_search *b, uint64_t budget) {
    b->budget = budget;
    b->out = false;
    b->nchosen = 0;
    colset allowed = {};
    for (uint32_t k = 0; k < b->nc; ++k) allowed = allowed | single(k);
    // The root's rows are the arena's first nrows; its children's follow.
    for (uint32_t k = 0; k < b->nrows; ++k) b->arena[k] = k;
    search_node(b, b->arena, b->nrows, allowed, 0);
}

// A part that the plain search left open is priced and searched again.
// Where the floor meets the best answer, from the search or from one the
// prices built, that answer is the least. 0, or -1 when memory ran out.
int price_and_search(bits_search *b, uint64_t budget) {
    // One block: the prices, the prices in hand, the slopes, then each
    // column's rows, ascending, from col_start[c] up to col_start[c + 1].
    uint32_t held[COVER_BITS_COLS] = {};
    size_t incidences = 0;
    for (uint32_t w = 0; w < b->nrows; ++w) incidences += for_each_col(b->row[w], [&](uint32_t c) { ++held[c]; });
    const size_t rows = b->nrows + 1;
    auto *block = static_cast<int64_t *>(l3mac_malloc(
        rows * (2 * sizeof(int64_t) + sizeof(int32_t)) + (b->nc + 1 + incidences) * sizeof(uint32_t)));
    if (!block) return -1;
    auto *slope = reinterpret_cast<int32_t *>(block + 2 * rows);
    uint32_t *col_start = reinterpret_cast<uint32_t *>(slope + rows);
    uint32_t *col_rows = col_start + b->nc + 1;
    col_start[0] = 0;
    for (uint32_t c = 0; c < b->nc; ++c) {
        col_start[c + 1] = col_start[c] + held[c];
        held[c] = col_start[c];  // from here, where the column's next row goes
    }
    for (uint32_t w = 0; w < b->nrows; ++w) for_each_col(b->row[w], [&](uint32_t c) { col_rows[held[c]++] = w; });
    b->price = {b->row, b->nrows, b->nc, b->cost, col_start, col_rows, block, block + rows, slope, 1};
    b->out = false;
    cover_price_best best = {b->best, &b->nbest, &b->best_cost, false};
    b->floor = cover_price_floor(&b->price, &best, &b->steps, budget);
    b->improved |= best.improved;
    b->priced = true;
    if (b->floor < b->best_cost) search_root(b, budget);
    return 0;
}

void release_bits(bits_search *b, colset *all) {
    void *arrays[] = {all, b->row, b->arena, b->price.price};
    for (void *a : arrays) l3mac_free(a);
}

}  // namespace

int cover_search_bits(cover_searcher *s, cover_part *p, uint64_t budget, bool root_only) {
    bits_search b;
    b.steps = s->steps;
    b.budget = budget;
    b.out = b.improved = b.proved = b.priced = false;
    b.floor = 0;
    b.nchosen = 0;
    b.best_cost = s->best_cost;
    b.nbest = 0;
    // The candidate arena of the other search is free here.
    b.scratch = s->cand;
    b.arena = nullptr;
    b.price.price = nullptr;
    auto *all = static_cast<colset *>(l3mac_malloc(sizeof(colset) * (p->nr ? p->nr : 1)));
    b.row = static_cast<colset *>(l3mac_malloc(sizeof(colset) * (p->nr ? p->nr : 1)));
    if (!all || !b.row) {
        release_bits(&b, all);
        return -1;
    }
    open_bits(&b, p, all);
    sort_rows(&b, all, s->order);
    b.steps += p->nr;
    const bool proved = root_bound(&b, all, s->order) >= b.best_cost;
    if (proved || root_only) {
        s->steps = b.steps;
        s->out = !proved;
        release_bits(&b, all);
        return 0;
    }
    keep_smallest_rows(&b, all, s->order);
    l3mac_free(all);
    // A node's open rows follow its parent's; the path is at most one
    // column deep per level.
    b.arena = static_cast<uint32_t *>(
        l3mac_malloc(sizeof(uint32_t) * (static_cast<size_t>(b.nrows) * (b.nc + 2) + 1)));
    if (!b.arena) {
        release_bits(&b, nullptr);
        return -1;
    }
    search_root(&b, std::min(budget, b.steps + COVER_PRICE_AFTER));
    if (b.out && b.steps <= budget && price_and_search(&b, budget) != 0) {
        release_bits(&b, nullptr);
        return -1;
    }
    if (b.improved) {
        for (uint32_t k = 0; k < b.nbest; ++k) s->best[k] = b.bit_col[b.best[k]];
        s->nbest = b.nbest;
        s->best_cost = b.best_cost;
    }
    s->steps = b.steps;
    s->out = b.out;
    release_bits(&b, nullptr);
    return 0;
}
