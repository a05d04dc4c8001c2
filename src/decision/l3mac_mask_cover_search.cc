// Search of one part of the weighted covering: a row-by-row greedy pick
// gives a first answer, and a depth-first search branches on the row with
// the fewest columns left, bounded below by rows that share no column.
// Parts of few columns take the same search on sets of bits
// (l3mac_mask_cover_bits.cc). Every incidence looked at is one step; when
// the budget is spent the best answer so far stands.
#include <algorithm>
#include <cstring>

#include "decision/l3mac_mask_cover_run.h"

namespace {

void choose(cover_searcher *s, uint32_t c) {
    const cover_part *p = s->p;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) s->uncovered -= s->cov[p->cr[i]]++ == 0;
    s->steps += p->cs[c + 1] - p->cs[c];
    s->cost_now += p->cost[c];
    s->chosen[s->nchosen++] = c;
}

void unchoose(cover_searcher *s, uint32_t c) {
    const cover_part *p = s->p;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) s->uncovered += --s->cov[p->cr[i]] == 0;
    s->cost_now -= p->cost[c];
    --s->nchosen;
}

uint32_t gain_of(cover_searcher *s, uint32_t c) {
    const cover_part *p = s->p;
    uint32_t g = 0;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) g += s->cov[p->cr[i]] == 0;
    s->steps += p->cs[c + 1] - p->cs[c];
    return g;
}

// c before d: it covers more new rows, then costs less, then comes first.
bool better_pick(const cover_searcher *s, uint32_t c, uint32_t gc, uint32_t d, uint32_t gd) {
    if (gc != gd) return gc > gd;
    if (s->p->cost[c] != s->p->cost[d]) return s->p->cost[c] < s->p->cost[d];
    return c < d;
}

void save_best(cover_searcher *s) {
    std::memcpy(s->best, s->chosen, s->nchosen * sizeof(uint32_t));
    s->nbest = s->nchosen;
    s->best_cost = s->cost_now;
}

void unchoose_at(cover_searcher *s, uint32_t k) {
    const cover_part *p = s->p;
    const uint32_t c = s->chosen[k];
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) s->uncovered += --s->cov[p->cr[i]] == 0;
    s->cost_now -= p->cost[c];
    std::memmove(s->chosen + k, s->chosen + k + 1, (s->nchosen - k - 1) * sizeof(uint32_t));
    --s->nchosen;
}

// The first answer: each row still open, rarest first, takes its column
// that covers the most open rows; then columns that turned out needless
// go again, the latest first. The open rows of each column are counted
// once and kept up to date. The search starts again from nothing.
void greedy(cover_searcher *s) {
    const cover_part *p = s->p;
    uint32_t *open = s->mark;  // free until the search
    for (uint32_t c = 0; c < p->nc; ++c) open[c] = p->cs[c + 1] - p->cs[c];
    s->steps += p->nr + p->nc;
    for (uint32_t k = 0; k < p->nr; ++k) {
        const uint32_t w = s->order[k];
        if (s->cov[w]) continue;
        uint32_t pick = COVER_NONE;
        for (uint32_t i = p->rs[w]; i < p->rs[w + 1]; ++i) {
            const uint32_t c = p->rc[i];
            if (pick == COVER_NONE || better_pick(s, c, open[c], pick, open[pick])) pick = c;
        }
        s->steps += p->rs[w + 1] - p->rs[w];
        for (uint32_t i = p->cs[pick]; i < p->cs[pick + 1]; ++i) {
            const uint32_t x = p->cr[i];
            if (s->cov[x] != 0) continue;
            for (uint32_t j = p->rs[x]; j < p->rs[x + 1]; ++j) --open[p->rc[j]];
            s->steps += p->rs[x + 1] - p->rs[x];
        }
        choose(s, pick);
    }
    for (uint32_t k = s->nchosen; k-- > 0;) {
        const uint32_t c = s->chosen[k];
        bool needed = false;
        for (uint32_t i = p->cs[c]; i < p->cs[c + 1] && !needed; ++i) needed = s->cov[p->cr[i]] == 1;
        s->steps += p->cs[c + 1] - p->cs[c];
        if (!needed) unchoose_at(s, k);
    }
    save_best(s);
    while (s->nchosen) unchoose_at(s, s->nchosen - 1);
    for (uint32_t c = 0; c < p->nc; ++c) open[c] = 0;
}

enum node_state { NODE_DONE, NODE_OPEN, NODE_DEAD };

// The bound of the node: open rows that share no allowed column need as
// many different columns, each at least the cheapest of its row. Also
// picks the open row with the fewest allowed columns to branch on.
node_state look_at_node(cover_searcher *s, int64_t *bound, uint32_t *branch_row) {
    if (s->uncovered == 0) return NODE_DONE;
    const cover_part *p = s->p;
    ++s->stamp_now;
    s->steps += p->nr;  // every row is looked at, covered or not
    int64_t lb = 0;
    uint32_t br = COVER_NONE, br_live = COVER_NONE;
    for (uint32_t k = 0; k < p->nr; ++k) {
        const uint32_t w = s->order[k];
        if (s->cov[w]) continue;
        uint32_t live = 0;
        int64_t cheapest = 0;
        bool shares = false;
        for (uint32_t i = p->rs[w]; i < p->rs[w + 1]; ++i) {
            const uint32_t c = p->rc[i];
            if (s->banned[c]) continue;
            if (live++ == 0 || p->cost[c] < cheapest) cheapest = p->cost[c];
            shares |= s->mark[c] == s->stamp_now;
        }
        s->steps += p->rs[w + 1] - p->rs[w];
        if (live == 0) return NODE_DEAD;
        if (live < br_live) br = w, br_live = live;
        if (shares) continue;
        lb += cheapest;
        for (uint32_t i = p->rs[w]; i < p->rs[w + 1]; ++i) s->mark[p->rc[i]] = s->stamp_now;
    }
    *bound = lb;
    *branch_row = br;
    return NODE_OPEN;
}

// The allowed columns of the row, best pick first, onto the arena.
void open_frame(cover_searcher *s, uint32_t depth, uint32_t arena_at, uint32_t w) {
    const cover_part *p = s->p;
    uint32_t n = 0;
    uint32_t *cand = s->cand + arena_at;
    for (uint32_t i = p->rs[w]; i < p->rs[w + 1]; ++i)
        if (!s->banned[p->rc[i]]) cand[n++] = p->rc[i];
    // A handful of columns: insertion by the greedy's order.
    uint32_t gains[64];
    const uint32_t ranked = n < 64 ? n : 64;
    for (uint32_t i = 0; i < ranked; ++i) gains[i] = gain_of(s, cand[i]);
    for (uint32_t i = 1; i < ranked; ++i)
        for (uint32_t j = i; j > 0 && better_pick(s, cand[j], gains[j], cand[j - 1], gains[j - 1]); --j) {
            std::swap(cand[j], cand[j - 1]);
            std::swap(gains[j], gains[j - 1]);
        }
    s->frames[depth] = {arena_at, arena_at + n, arena_at, COVER_NONE};
}

// Depth first from the empty choice; a column that has been tried at a
// node is banned in its later siblings' subtrees, so that no set of
// columns is reached twice.
void branch_and_bound(cover_searcher *s) {
    int64_t lb = 0;
    uint32_t br = COVER_NONE;
    // Every node looks at each row and incidence of the part once; when
    // one dive to the greedy answer's depth costs more than the steps left,
    // the search could not even reach a leaf, and the greedy answer stands.
    const uint64_t node = s->p->nr + s->p->rs[s->p->nr];
    if (s->steps + node * s->nbest > s->budget) {
        s->out = s->unsearched = true;
        return;
    }
    if (look_at_node(s, &lb, &br) != NODE_OPEN || lb >= s->best_cost) return;
    open_frame(s, 0, 0, br);
    uint32_t depth = 1;
    while (depth > 0) {
        cover_frame *f = &s->frames[depth - 1];
        if (f->taken != COVER_NONE) {
            unchoose(s, f->taken);
            ++s->banned[f->taken];
            f->taken = COVER_NONE;
        }
        if (s->steps > s->budget) s->out = true;
        if (s->out || f->next == f->end) {
            for (uint32_t i = f->begin; i < f->next; ++i) --s->banned[s->cand[i]];
            --depth;
            continue;
        }
        f->taken = s->cand[f->next++];
        choose(s, f->taken);
        const node_state st = look_at_node(s, &lb, &br);
        if (st == NODE_DONE && s->cost_now < s->best_cost) save_best(s);
        if (st != NODE_OPEN || s->cost_now + lb >= s->best_cost) continue;
        open_frame(s, depth, f->end, br);
        ++depth;
    }
}

// The part's rows by ascending degree, nothing chosen, then the greedy
// answer as the best so far.
void open_search(cover_searcher *s, cover_part *p, uint64_t budget) {
    s->p = p;
    for (uint32_t k = 0; k < p->nr; ++k) s->cov[k] = 0;
    for (uint32_t j = 0; j < p->nc; ++j) s->banned[j] = 0, s->mark[j] = 0;
    // Rows by ascending degree (1 to nc), by counting in mark, which is
    // free until the greedy.
    uint32_t *at = s->mark;
    for (uint32_t w = 0; w < p->nr; ++w) ++at[p->rs[w + 1] - p->rs[w] - 1];
    for (uint32_t j = 0, sum = 0; j < p->nc; ++j) {
        const uint32_t here = at[j];
        at[j] = sum;
        sum += here;
    }
    for (uint32_t w = 0; w < p->nr; ++w) s->order[at[p->rs[w + 1] - p->rs[w] - 1]++] = w;
    for (uint32_t j = 0; j < p->nc; ++j) at[j] = 0;
    s->stamp_now = 0;
    s->nchosen = s->nbest = 0;
    s->cost_now = 0;
    s->uncovered = p->nr;
    s->steps = 0;
    s->budget = budget;
    s->out = s->no_memory = s->unsearched = false;
    greedy(s);
}

}  // namespace

bool cover_search_part(cover_searcher *s, cover_part *p, uint64_t budget) {
    open_search(s, p, budget);
    // Few columns go to the search on sets of bits.
    if (p->nc > COVER_BITS_COLS) {
        branch_and_bound(s);
        if (s->unsearched && cover_improve(s, p, budget, true) != 0) s->no_memory = true;
    } else {
        // A few passes of local changes first: a better answer to start
        // from cuts more of the tree than they cost.
        const uint64_t quick = s->steps + 8ull * (p->nr + p->cs[p->nc]);
        if (cover_improve(s, p, quick < budget ? quick : budget, false) != 0 ||
            cover_search_bits(s, p, budget, false) != 0)
            s->no_memory = s->out = true;
    }
    return !s->out;
}

bool cover_settle_part(cover_searcher *s, cover_part *p, uint64_t budget) {
    open_search(s, p, budget);
    if (cover_search_bits(s, p, budget, true) != 0) s->no_memory = s->out = true;
    return !s->out;
}
