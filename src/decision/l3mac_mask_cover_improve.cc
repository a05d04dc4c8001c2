// Betters the greedy answer of a part too large to search (a dense set's),
// and gives the search of a small part a better answer to start from:
// a chosen column gives way to another one that holds every row only it
// covers, when that leaves some other chosen column needless, which then
// goes: one entry fewer each time. Passes over the chosen columns repeat
// while one of them betters the answer and steps last. Every incidence
// looked at is one step.
#include <cstring>

#include "decision/l3mac_mask_cover_run.h"
#include "frame/l3mac_mem.h"

namespace {

struct improver {
    cover_part *p;
    uint32_t *cov;    // per row: chosen columns that hold it
    uint8_t *in;      // per column: chosen
    uint32_t *seen;   // per row: stamp of the column being tried
    uint32_t stamp;
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

// Tries to let the chosen column s->best[k] give way; true when the answer
// lost a column (s->best[k] is then another one, or the next).
bool try_column(improver *v, cover_searcher *s, uint32_t k) {
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
    }
    return false;
}

}  // namespace

int cover_improve(cover_searcher *s, cover_part *p, uint64_t budget) {
    improver v;
    v.p = p;
    v.cov = s->cov;
    v.in = static_cast<uint8_t *>(l3mac_calloc(p->nc ? p->nc : 1, 1));
    v.seen = static_cast<uint32_t *>(l3mac_calloc(p->nr ? p->nr : 1, sizeof(uint32_t)));
    v.only = s->cand;  // free: no branch and bound runs beside this
    v.stamp = 0;
    v.steps = s->steps;
    v.budget = budget;
    if (!v.in || !v.seen) {
        l3mac_free(v.in);
        l3mac_free(v.seen);
        return -1;
    }
    for (uint32_t w = 0; w < p->nr; ++w) v.cov[w] = 0;
    for (uint32_t k = 0; k < s->nbest; ++k) add(&v, s->best[k], 1);
    for (bool better = true; better && v.steps <= budget;) {
        better = false;
        for (uint32_t k = 0; k < s->nbest && v.steps <= budget; ++k)
            better |= try_column(&v, s, k);
    }
    s->best_cost = 0;
    for (uint32_t k = 0; k < s->nbest; ++k) s->best_cost += p->cost[s->best[k]];
    s->steps = v.steps;
    l3mac_free(v.in);
    l3mac_free(v.seen);
    return 0;
}
