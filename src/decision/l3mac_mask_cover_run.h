// Weighted covering's inner records, shared by its steps: the matrix both
// ways with what the reductions decided (l3mac_mask_cover_reduce.cc), its
// independent parts (l3mac_mask_cover_split.cc), the search of one part
// (l3mac_mask_cover_search.cc), all driven by l3mac_cover_solve
// (l3mac_mask_cover.cc). Every array is sized for the whole matrix by the
// caller, so that any part fits in them.
#pragma once

#include <cstdint>

#include "decision/l3mac_mask_compact_run.h"

inline constexpr uint32_t COVER_NONE = ~0u;
// Both directions of the matrix, and what the reductions have decided.
struct cover_reducer {
    const cover_matrix *m;
    uint32_t *row_start, *row_cols;
    uint8_t *row_live;   // still to be covered by the search
    uint8_t *col_live;   // may still be chosen
    uint8_t *taken;      // chosen: by a reduction or by the search
    uint32_t *row_deg;   // live columns of a live row
    uint32_t *col_deg;   // live rows of a live column
    uint64_t *row_hash;  // of the live columns of a row
    uint32_t *row_order; // live rows by hash
    uint64_t steps, budget;
};

// One part of the matrix, renumbered from 0, for the search.
struct cover_part {
    uint32_t nr, nc;
    uint32_t *cs, *cr;   // column -> rows
    uint32_t *rs, *rc;   // row -> columns
    int64_t *cost;
    uint32_t *gcol;      // column -> column of the whole matrix
};

struct cover_frame {
    uint32_t begin, end, next, taken;
};

struct cover_searcher {
    cover_part *p;
    uint32_t *cov;       // per row: chosen columns that hold it
    uint32_t *banned;    // per column: branches that exclude it
    uint32_t *mark;      // per column: stamp of the bound's pass
    uint32_t stamp_now;
    uint32_t *order;     // rows by ascending degree, for the bound
    uint32_t *cand;      // candidate arena of the open frames
    cover_frame *frames;
    uint32_t *chosen, nchosen;
    uint32_t *best, nbest;
    int64_t cost_now, best_cost;
    uint32_t uncovered;
    uint64_t steps, budget;
    bool out;
    bool no_memory;      // a search on sets of bits or an improvement found no memory
    bool unsearched;     // too large for the branch and bound
};

// Fills both directions of `m` with every row and column live, the steps
// of that counted against `budget`.
void cover_open_reducer(cover_reducer *r, const cover_matrix *m, uint64_t budget);
// The exact reductions, repeated while they change anything and steps last.
void cover_reduce(cover_reducer *r);

// The live rows joined by live columns into parts: part_rows holds the
// rows of each part together, ascending, part_start where each begins;
// parts are numbered by their smallest row. up[] is scratch for nrows.
uint32_t cover_split_parts(const cover_reducer *r, uint32_t *up, uint32_t *part_start,
                           uint32_t *part_rows);
// Renumbers the rows of one part, and the live columns on them, from 0.
// row_local and col_local map the whole matrix's numbers to the part's;
// col_local must be COVER_NONE for every column before, and is again after.
void cover_cut_part(const cover_reducer *r, const uint32_t *rows, uint32_t nrows,
                    uint32_t *row_local, uint32_t *col_local, cover_part *p);

// Parts of at most this many columns are searched with each row's columns
// as one set of bits.
inline constexpr uint32_t COVER_BITS_COLS = 128;

// The search of a part of at most COVER_BITS_COLS columns, from the
// greedy answer in s->best: s->best, s->best_cost, s->steps and s->out as
// cover_search_part leaves them. With `root_only`, it only tells whether
// the root's bound proves the greedy answer least (s->out false then).
// 0, or -1 when memory ran out.
int cover_search_bits(cover_searcher *s, cover_part *p, uint64_t budget, bool root_only);

// Betters the answer in s->best of part `p` by local changes within
// `budget` steps (s->steps counted in): the whole answer of a part too
// large for the branch and bound, a better start for the search on sets
// of bits. With `plateau`, changes that keep the cost are made too, where
// they bring other columns closer to needless. 0, or -1 when memory ran
// out.
int cover_improve(cover_searcher *s, cover_part *p, uint64_t budget, bool plateau);

// Searches part `p` with `budget` steps: s->best holds its answer (columns
// of p), s->steps what it took. False when the search had to stop before it
// had proved its answer least, or when memory ran out (s->no_memory).
bool cover_search_part(cover_searcher *s, cover_part *p, uint64_t budget);
// Whether the greedy answer of part `p` (of at most COVER_BITS_COLS
// columns) is proved least by the bound alone: s->best holds it then.
bool cover_settle_part(cover_searcher *s, cover_part *p, uint64_t budget);
