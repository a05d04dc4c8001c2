// Betters the greedy answer of a part too large to search (a dense set's),
// and gives the search of a small part a better answer to start from:
// a chosen column gives way to another one that holds every row only it
// covers, when that leaves some other chosen column needless, which then
// goes: one entry fewer each time. Passes over the chosen columns repeat
// while one of them betters the answer and steps last. Every incidence
// looked at is one step.
//
// On a large part, a column may also give way when nothing goes at once:
// to the one, no dearer, that leaves the most rows held twice. That brings
// other chosen columns closer to needless, as a logic minimizer's reduce
// and expand do, and passes go on while such moves are made. Every move
// lowers the cost or keeps it and holds more rows twice, so the passes
// end, within the steps in any case.
#include <cstring>

#include "decision/l3mac_mask_cover_run.h"
#include "frame/l3mac_mem.h"

namespace {

struct improver {
    cover_part *p;
    uint32_t *cov;    // per row: chosen columns that hold it
    uint8_t *in;      // per column: chosen
    uint32_t *seen;   // per row: stamp of the column being tried
    uint32_t *gone;   // per row: stamp of the column giving way
    uint32_t stamp, gone_stamp;
    bool plateau;     // moves that keep the cost are allowed
    uint32_t *only;   // rows only the column in hand covers
    uint64_t steps, budget;
};

void add(improver *v, uint32_t c, int d) {
    const cover_part *p = v->p;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) v->cov[p->cr[i]] += d;
    v->in[c] = d > 0;
    v->steps += p->cs[c + 1] - p->cs[c];
}

bool needless(improver *v, uint32_t b) {
    const cover_part *p = v->p;
    bool all = true;
    for (uint32_t i = p->cs[b]; i < p->cs[b + 1] && all; ++i) all = v->cov[p->cr[i]] >= 2;
    v->steps += p->cs[b + 1] - p->cs[b];
    return all;
}

// With c just chosen: a chosen column that only c made needless, through
// a row that c now covers twice. COVER_NONE when there is none.
uint32_t needless_beside(improver *v, uint32_t c) {
    const cover_part *p = v->p;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) {
        const uint32_t x = p->cr[i];
        if (v->cov[x] != 2) continue;
        for (uint32_t j = p->rs[x]; j < p->rs[x + 1]; ++j) {
            const uint32_t b = p->rc[j];
            if (b != c && v->in[b] && needless(v, b)) return b;
        }
        v->steps += p->rs[x + 1] - p->rs[x];
        if (v->steps > v->budget) break;
    }
    return COVER_NONE;
}

void drop_listed(cover_searcher *s, uint32_t c) {
    uint32_t n = 0;
    for (uint32_t k = 0; k < s->nbest; ++k)
        if (s->best[k] != c) s->best[n++] = s->best[k];
    s->nbest = n;
}

// How many more rows are held twice when c replaces a, with c's rows
// stamped in seen and a's in gone.
int64_t twice_gain(improver *v, uint32_t a, uint32_t c) {
    const cover_part *p = v->p;
    int64_t d = 0;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) {
        const uint32_t x = p->cr[i];
        d += v->cov[x] == 1 && v->gone[x] != v->gone_stamp;
    }
    for (uint32_t i = p->cs[a]; i < p->cs[a + 1]; ++i) {
        const uint32_t x = p->cr[i];
        d -= v->cov[x] == 2 && v->seen[x] != v->stamp;
    }
    v->steps += p->cs[c + 1] - p->cs[c] + p->cs[a + 1] - p->cs[a];
    return d;
}

// Tries to let the chosen column s->best[k] give way; true when the answer
// lost a column (s->best[k] is then another one, or the next). *moved when
// it gave way to one that keeps the cost.
bool try_column(improver *v, cover_searcher *s, uint32_t k, bool *moved) {
    const cover_part *p = v->p;
    const uint32_t a = s->best[k];
    uint32_t n = 0, pivot = COVER_NONE;
    for (uint32_t i = p->cs[a]; i < p->cs[a + 1]; ++i) {
        const uint32_t x = p->cr[i];
        if (v->cov[x] != 1) continue;
        v->only[n++] = x;
        if (pivot == COVER_NONE || p->rs[x + 1] - p->rs[x] < p->rs[pivot + 1] - p->rs[pivot])
            pivot = x;
    }
    v->steps += p->cs[a + 1] - p->cs[a];
    if (n == 0) {
        add(v, a, -1);
        drop_listed(s, a);
        return true;
    }
    int64_t most = 0;
    uint32_t to = COVER_NONE;
    if (v->plateau) {
        ++v->gone_stamp;
        for (uint32_t i = p->cs[a]; i < p->cs[a + 1]; ++i) v->gone[p->cr[i]] = v->gone_stamp;
        v->steps += p->cs[a + 1] - p->cs[a];
    }
    for (uint32_t j = p->rs[pivot]; j < p->rs[pivot + 1] && v->steps <= v->budget; ++j) {
        const uint32_t c = p->rc[j];
        if (c == a || v->in[c]) continue;
        ++v->stamp;
        for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) v->seen[p->cr[i]] = v->stamp;
        bool holds = true;
        for (uint32_t q = 0; q < n && holds; ++q) holds = v->seen[v->only[q]] == v->stamp;
        v->steps += p->cs[c + 1] - p->cs[c] + n;
        if (!holds) continue;
        add(v, a, -1);
        add(v, c, 1);
        const uint32_t b = needless_beside(v, c);
        if (b != COVER_NONE && p->cost[c] < p->cost[a] + p->cost[b]) {
            add(v, b, -1);
            s->best[k] = c;
            drop_listed(s, b);
            return true;
        }
        add(v, c, -1);
        add(v, a, 1);
        if (!v->plateau || p->cost[c] > p->cost[a]) continue;
        const int64_t d = twice_gain(v, a, c);
        if (d > most) most = d, to = c;
    }
    if (to != COVER_NONE) {
        add(v, a, -1);
        add(v, to, 1);
        s->best[k] = to;
        *moved = true;
    }
    return false;
}

}  // namespace

int cover_improve(cover_searcher *s, cover_part *p, uint64_t budget, bool plateau) {
    improver v;
    v.p = p;
    v.cov = s->cov;
    v.in = static_cast<uint8_t *>(l3mac_calloc(p->nc ? p->nc : 1, 1));
    v.seen = static_cast<uint32_t *>(l3mac_calloc(p->nr ? p->nr : 1, sizeof(uint32_t)));
    v.gone = plateau ? static_cast<uint32_t *>(l3mac_calloc(p->nr ? p->nr : 1, sizeof(uint32_t)))
                     : nullptr;
    v.only = s->cand;  // free: no branch and bound runs beside this
    v.stamp = v.gone_stamp = 0;
    v.plateau = plateau;
    v.steps = s->steps;
    v.budget = budget;
    int rv = 0;
    if (!v.in || !v.seen || (plateau && !v.gone)) {
        rv = -1;
    } else {
        for (uint32_t w = 0; w < p->nr; ++w) v.cov[w] = 0;
        for (uint32_t k = 0; k < s->nbest; ++k) add(&v, s->best[k], 1);
        for (bool again = true; again && v.steps <= budget;) {
            bool better = false, moved = false;
            for (uint32_t k = 0; k < s->nbest && v.steps <= budget; ++k)
                better |= try_column(&v, s, k, &moved);
            again = better || moved;
        }
        s->best_cost = 0;
        for (uint32_t k = 0; k < s->nbest; ++k) s->best_cost += p->cost[s->best[k]];
        s->steps = v.steps;
    }
    l3mac_free(v.in);
    l3mac_free(v.seen);
    l3mac_free(v.gone);
    return rv;
}
