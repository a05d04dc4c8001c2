// Row prices for the search on sets of bits: a floor under the cost of
// every cover of a part, answers built from the prices, and at each node a
// bound and the columns that no cheaper cover below it can take. Internal
// to that search.
//
// For prices u >= 0 on the rows, the prices' sum plus, for each column
// that costs less than the prices of its rows, that difference, is at most
// the cost of any cover: a cover pays each column's cost, which is its
// rows' prices plus its reduced cost, and holds every row at least once.
// Below a node the same holds for its open rows and allowed columns, and a
// column of positive reduced cost adds it to the cost of any cover that
// takes it.
#pragma once

#include <cstdint>

#include "decision/l3mac_mask_cover_colset.h"

struct cover_pricing {
    const colset *row;    // the part's rows
    uint32_t nrows;
    uint32_t ncols;
    const int64_t *cost;  // per column
    // The rows of each column, ascending: col_rows[col_start[c]] up to
    // col_rows[col_start[c + 1]]. A round sums each column's prices from
    // these: the same look at each incidence, without walking bits.
    const uint32_t *col_start;
    const uint32_t *col_rows;
    int64_t *price;       // per row: the prices of the highest floor
    int64_t *work;        // per row: the prices of the round in hand
    int32_t *slope;       // per row: scratch of the rounds
    int64_t unit;         // every cover costs a multiple of it
};

// Steps of the plain search before a part is priced; rounds of price
// changes at the root, at most; and how often the prices in hand build an
// answer.
inline constexpr uint64_t COVER_PRICE_AFTER = 30000;
inline constexpr uint32_t COVER_PRICE_ROUNDS = 300;
inline constexpr uint32_t COVER_PRICE_ANSWER_EVERY = 20;

// The best answer known: its columns and cost, bettered in place.
struct cover_price_best {
    uint32_t *cols;
    uint32_t *count;
    int64_t *cost;
    bool improved;
};

// Sets the prices by subgradient rounds and gives the highest floor they
// showed, rounded up to a multiple of the unit: no cover costs less. Every
// COVER_PRICE_ANSWER_EVERY rounds the prices in hand build an answer,
// which replaces `best` when it costs less. The rounds end early when the
// floor reaches the best answer or the budget is spent; each looks at
// every row and incidence once, counted in *steps.
int64_t cover_price_floor(cover_pricing *pr, cover_price_best *best, uint64_t *steps,
                          uint64_t budget);

// At a node with `open` rows, `cost_now` chosen and the columns *allowed:
// true when no cover below it costs less than `best`; otherwise the columns
// whose reduced cost lifts the bound to `best` leave *allowed.
bool cover_price_node(const cover_pricing *pr, const uint32_t *open, uint32_t n,
                      int64_t cost_now, int64_t best, colset *allowed, uint64_t *steps);
