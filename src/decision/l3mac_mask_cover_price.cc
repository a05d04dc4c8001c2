// Row prices of the search on sets of bits (see l3mac_mask_cover_price.h).
// Prices and steps are whole cost units, never floating point, so that
// the floor, and with it the cover given, are the same on every machine.
#include "decision/l3mac_mask_cover_price.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace {

int64_t gcd64(int64_t a, int64_t b) {
    while (b != 0) a = std::exchange(b, a % b);
    return a;
}

// The smallest multiple of the unit at or above x. Every cover costs
// more than 0, so a bound at or below 0 stays as it is: it proves nothing.
int64_t round_up(int64_t x, int64_t unit) { return x <= 0 ? x : (x + unit - 1) / unit * unit; }

// A round's step halves after this many rounds that did not raise the
// floor by a 64th of a unit, and the rounds end after this many halvings:
// a floor that creeps up by less will not reach the next unit soon.
constexpr uint32_t FLAT_ROUNDS = 20;
constexpr uint32_t HALVINGS = 20;
constexpr int64_t RISE_PARTS = 64;

// Each row starts at the least share of a column's cost among its
// columns, the cost shared out over the rows the column holds.
void first_prices(cover_pricing *pr, uint64_t *steps) {
    for (uint32_t w = 0; w < pr->nrows; ++w) {
        int64_t least = INT64_MAX;
        for_each_col(pr->row[w], [&](uint32_t c) {
            const int64_t held = pr->col_start[c + 1] - pr->col_start[c];
            least = std::min(least, pr->cost[c] / held);
        });
        pr->work[w] = pr->price[w] = least;
    }
    *steps += pr->col_start[pr->ncols] + pr->nrows;
}

// The bound of the prices in hand, with each column's reduced cost.
int64_t bound_of(const cover_pricing *pr, int64_t *reduced, uint64_t *steps) {
    int64_t bound = 0;
    for (uint32_t w = 0; w < pr->nrows; ++w) bound += pr->work[w];
    for (uint32_t c = 0; c < pr->ncols; ++c) {
        int64_t r = pr->cost[c];
        for (uint32_t i = pr->col_start[c]; i < pr->col_start[c + 1]; ++i) r -= pr->work[pr->col_rows[i]];
        reduced[c] = r;
        bound += std::min<int64_t>(r, 0);
    }
    *steps += pr->col_start[pr->ncols];
    return bound;
}

// An answer from the prices in hand: the columns below their rows'
// prices, then for each row still open its column of least reduced cost,
// then the columns whose rows all have another go, dearest first.
void answer_from(const cover_pricing *pr, const int64_t *reduced, cover_price_best *best,
                 uint64_t *steps) {
    colset chosen = {};
    for (uint32_t c = 0; c < pr->ncols; ++c)
        if (reduced[c] < 0) chosen = chosen | single(c);
    for (uint32_t w = 0; w < pr->nrows; ++w) {
        if (!empty(pr->row[w] & chosen)) continue;
        uint32_t pick = COVER_NONE;
        *steps += for_each_col(pr->row[w], [&](uint32_t c) {
            if (pick == COVER_NONE || reduced[c] < reduced[pick]) pick = c;
        });
        chosen = chosen | single(pick);
    }
    uint32_t order[COVER_BITS_COLS], n = 0;
    for_each_col(chosen, [&](uint32_t c) { order[n++] = c; });
    std::sort(order, order + n, [reduced](uint32_t x, uint32_t y) {
        return reduced[x] != reduced[y] ? reduced[x] > reduced[y] : x > y;
    });
    for (uint32_t i = 0; i < n; ++i) {
        const colset rest = minus(chosen, single(order[i]));
        bool needed = false;
        for (uint32_t w = 0; w < pr->nrows && !needed; ++w) needed = empty(pr->row[w] & rest);
        *steps += pr->nrows;
        if (!needed) chosen = rest;
    }
    int64_t cost = 0;
    for_each_col(chosen, [&](uint32_t c) { cost += pr->cost[c]; });
    if (cost >= *best->cost) return;
    uint32_t count = 0;
    for_each_col(chosen, [&](uint32_t c) { best->cols[count++] = c; });
    *best->count = count;
    *best->cost = cost;
    best->improved = true;
}

}  // namespace

// Subgradient rounds: a row that no column below its price holds gains,
// one that several hold loses, by a step that shrinks with the gap to the
// best answer and halves when the floor stops rising. A row at price 0
// that would lose stays.
int64_t cover_price_floor(cover_pricing *pr, cover_price_best *best, uint64_t *steps,
                          uint64_t budget) {
    pr->unit = 0;
    for (uint32_t c = 0; c < pr->ncols; ++c) pr->unit = gcd64(pr->unit, pr->cost[c]);
    first_prices(pr, steps);
    int64_t floor = 0;
    uint32_t halvings = 1, flat = 0;
    for (uint32_t k = 0; k < COVER_PRICE_ROUNDS && *steps <= budget; ++k) {
        int64_t reduced[COVER_BITS_COLS];
        const int64_t bound = bound_of(pr, reduced, steps);
        if (bound > floor + pr->unit / RISE_PARTS) {
            flat = 0;
        } else if (++flat == FLAT_ROUNDS) {
            flat = 0;
            if (++halvings == HALVINGS) break;
        }
        if (bound > floor) {
            floor = bound;
            std::copy(pr->work, pr->work + pr->nrows, pr->price);
            *steps += pr->nrows;
        }
        if (k % COVER_PRICE_ANSWER_EVERY == COVER_PRICE_ANSWER_EVERY - 1)
            answer_from(pr, reduced, best, steps);
        if (round_up(floor, pr->unit) >= *best->cost) break;
        colset below = {};
        for (uint32_t c = 0; c < pr->ncols; ++c)
            if (reduced[c] < 0) below = below | single(c);
        int64_t norm = 0;
        for (uint32_t w = 0; w < pr->nrows; ++w) {
            int32_t g = 1 - static_cast<int32_t>(count_of(pr->row[w] & below));
            if (pr->work[w] == 0 && g < 0) g = 0;
            pr->slope[w] = g;
            norm += static_cast<int64_t>(g) * g;
        }
        *steps += pr->nrows;
        if (norm == 0) break;
        const int64_t step = ((*best->cost - bound) << 1 >> halvings) / norm;
        if (step <= 0) break;
        for (uint32_t w = 0; w < pr->nrows; ++w)
            pr->work[w] = std::max<int64_t>(0, pr->work[w] + step * pr->slope[w]);
    }
    return round_up(floor, pr->unit);
}

bool cover_price_node(const cover_pricing *pr, const uint32_t *open, uint32_t n,
                      int64_t cost_now, int64_t best, colset *allowed, uint64_t *steps) {
    int64_t reduced[COVER_BITS_COLS];
    for (uint32_t c = 0; c < pr->ncols; ++c) reduced[c] = pr->cost[c];
    int64_t bound = cost_now;
    for (uint32_t k = 0; k < n; ++k) {
        const int64_t u = pr->price[open[k]];
        if (u == 0) continue;
        bound += u;
        *steps += for_each_col(pr->row[open[k]] & *allowed, [&](uint32_t c) { reduced[c] -= u; });
    }
    *steps += for_each_col(*allowed, [&](uint32_t c) { bound += std::min<int64_t>(reduced[c], 0); });
    // best is a cover's cost, a multiple of the unit: a bound rounds up to
    // it exactly when it is above the multiple below, which spares a
    // division for each column.
    const int64_t below_best = best - pr->unit;
    if (bound > below_best) return true;
    colset cannot = {};
    for_each_col(*allowed, [&](uint32_t c) {
        if (reduced[c] > 0 && bound + reduced[c] > below_best) cannot = cannot | single(c);
    });
    *allowed = minus(*allowed, cannot);
    return false;
}
