// Weighted covering for the compact cover search: columns (sub-cubes) of
// least total cost that hold every row (number of the set). The exact
// reductions come first; what is left falls into independent parts,
// searched one by one, smallest first, each with its share of the steps
// that are left. Three kinds of matrix skip the reductions: one that its
// essential columns cover, one of few columns whose greedy answer the
// bound proves at once, and one too large for them to end within the
// budget.
#include <algorithm>
#include <cstring>

#include "decision/l3mac_mask_cover_run.h"
#include "frame/l3mac_mem.h"

namespace {

template <class T> T *alloc_n(size_t n) {
    return static_cast<T *>(l3mac_malloc(sizeof(T) * (n ? n : 1)));
}

struct workspace {
    cover_reducer r;
    uint32_t *up, *row_local, *col_local;
    uint32_t *part_start, *part_rows, *part_order;
    cover_part p;
    cover_searcher s;
};

constexpr size_t WORKSPACE_ARRAYS = 30;

void workspace_arrays(workspace *w, void *out[WORKSPACE_ARRAYS]) {
    void *all[WORKSPACE_ARRAYS] = {
        w->r.row_start, w->r.row_cols, w->r.row_live, w->r.col_live, w->r.taken, w->r.row_deg,
        w->r.col_deg, w->r.row_hash, w->r.row_order, w->up, w->row_local, w->col_local, w->part_start,
        w->part_rows, w->part_order, w->p.cs, w->p.cr, w->p.rs, w->p.rc, w->p.cost, w->p.gcol,
        w->s.cov, w->s.banned, w->s.mark, w->s.order, w->s.cand, w->s.frames, w->s.chosen,
        w->s.best, nullptr};
    std::memcpy(out, all, sizeof all);
}

void free_workspace(workspace *w) {
    void *all[WORKSPACE_ARRAYS];
    workspace_arrays(w, all);
    for (void *a : all) l3mac_free(a);
}

// Every array sized for the whole matrix, so that any part fits in them.
int alloc_workspace(workspace *w, const cover_matrix *m) {
    std::memset(w, 0, sizeof *w);
    const uint32_t nr = m->nrows, nc = m->ncols, nnz = m->col_start[nc];
    w->r.row_start = alloc_n<uint32_t>(nr + 1);
    w->r.row_cols = alloc_n<uint32_t>(nnz);
    w->r.row_live = alloc_n<uint8_t>(nr);
    w->r.col_live = alloc_n<uint8_t>(nc);
    w->r.taken = alloc_n<uint8_t>(nc);
    w->r.row_deg = alloc_n<uint32_t>(nr);
    w->r.col_deg = alloc_n<uint32_t>(nc);
    w->r.row_hash = alloc_n<uint64_t>(nr);
    w->r.row_order = alloc_n<uint32_t>(nr);
    w->up = alloc_n<uint32_t>(nr);
    w->row_local = alloc_n<uint32_t>(nr);
    w->col_local = alloc_n<uint32_t>(nc);
    w->part_start = alloc_n<uint32_t>(nr + 1);
    w->part_rows = alloc_n<uint32_t>(nr);
    w->part_order = alloc_n<uint32_t>(nr);
    w->p.cs = alloc_n<uint32_t>(nc + 1);
    w->p.cr = alloc_n<uint32_t>(nnz);
    w->p.rs = alloc_n<uint32_t>(nr + 1);
    w->p.rc = alloc_n<uint32_t>(nnz);
    w->p.cost = alloc_n<int64_t>(nc);
    w->p.gcol = alloc_n<uint32_t>(nc);
    w->s.cov = alloc_n<uint32_t>(nr);
    w->s.banned = alloc_n<uint32_t>(nc);
    w->s.mark = alloc_n<uint32_t>(nc);
    w->s.order = alloc_n<uint32_t>(nr);
    w->s.cand = alloc_n<uint32_t>(nnz);
    w->s.frames = alloc_n<cover_frame>(nr + 1);
    w->s.chosen = alloc_n<uint32_t>(nr + 1);
    w->s.best = alloc_n<uint32_t>(nr + 1);
    void *all[WORKSPACE_ARRAYS];
    workspace_arrays(w, all);
    for (size_t i = 0; i + 1 < WORKSPACE_ARRAYS; ++i)
        if (!all[i]) return -1;
    return 0;
}

// holds every row of an earlier one; such a column goes, the latest first.
uint64_t drop_needless_columns(const cover_matrix *m, uint32_t *cov, cover_answer *ans) {
    uint64_t steps = 0;
    for (uint32_t w = 0; w < m->nrows; ++w) cov[w] = 0;
    for (uint32_t k = 0; k < ans->count; ++k) {
        const uint32_t c = ans->cols[k];
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) ++cov[m->col_rows[i]];
        steps += m->col_start[c + 1] - m->col_start[c];
    }
    uint32_t kept = ans->count;
    for (uint32_t k = ans->count; k-- > 0;) {
        const uint32_t c = ans->cols[k];
        bool needed = false;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1] && !needed; ++i)
            needed = cov[m->col_rows[i]] == 1;
        if (needed) continue;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) --cov[m->col_rows[i]];
        ans->cols[k] = COVER_NONE;
        --kept;
    }
    uint32_t at = 0;
    for (uint32_t k = 0; k < ans->count; ++k)
        if (ans->cols[k] != COVER_NONE) ans->cols[at++] = ans->cols[k];
    ans->count = kept;
    return steps;
}

// The whole matrix as one part, its columns numbered as cover_cut_part
// numbers a part's, by their lowest row (the greedy's ties follow that).
void whole_part(workspace *w, const cover_matrix *m) {
    cover_part *p = &w->p;
    const uint32_t nr = m->nrows, nc = m->ncols, nnz = m->col_start[nc];
    // A column of no row (value 0 alone) is in no part.
    auto holds_rows = [m](uint32_t c) { return m->col_start[c + 1] > m->col_start[c]; };
    p->nr = nr;
    p->nc = 0;
    uint32_t *at = w->up;  // columns by lowest row, by counting
    for (uint32_t k = 0; k <= nr; ++k) w->part_start[k] = 0;
    for (uint32_t c = 0; c < nc; ++c)
        if (holds_rows(c)) ++w->part_start[m->col_rows[m->col_start[c]] + 1], ++p->nc;
    for (uint32_t k = 0; k < nr; ++k) w->part_start[k + 1] += w->part_start[k];
    for (uint32_t k = 0; k < nr; ++k) at[k] = w->part_start[k];
    for (uint32_t c = 0; c < nc; ++c)
        if (holds_rows(c)) p->gcol[at[m->col_rows[m->col_start[c]]]++] = c;
    uint32_t fill = 0;
    for (uint32_t j = 0; j < p->nc; ++j) {
        const uint32_t c = p->gcol[j];
        w->col_local[c] = j;
        p->cs[j] = fill;
        p->cost[j] = m->cost[c];
        const uint32_t len = m->col_start[c + 1] - m->col_start[c];
        std::memcpy(p->cr + fill, m->col_rows + m->col_start[c], len * sizeof(uint32_t));
        fill += len;
    }
    p->cs[p->nc] = fill;
    std::memcpy(p->rs, w->r.row_start, (nr + 1) * sizeof(uint32_t));
    for (uint32_t i = 0; i < nnz; ++i) p->rc[i] = w->col_local[w->r.row_cols[i]];
    for (uint32_t c = 0; c < nc; ++c) w->col_local[c] = COVER_NONE;
    w->r.steps += 2 * static_cast<uint64_t>(nnz);
}

// The part's answer in s->best as the matrix's columns.
void answer_whole(workspace *w, const cover_matrix *m, cover_answer *ans) {
    ans->count = w->s.nbest;
    for (uint32_t j = 0; j < w->s.nbest; ++j) ans->cols[j] = w->p.gcol[w->s.best[j]];
    std::sort(ans->cols, ans->cols + ans->count);
    ans->steps = w->r.steps + w->s.steps + drop_needless_columns(m, w->s.cov, ans);
}

// Whether the columns that are the only ones of some row (taken) hold
// every row: they are then the answer, as for a whole space, whose primes
// each hold a number no other does.
bool settle_by_essentials(workspace *w, const cover_matrix *m, cover_answer *ans) {
    cover_reducer *r = &w->r;
    uint32_t *cov = w->s.cov;
    for (uint32_t k = 0; k < m->nrows; ++k) cov[k] = 0;
    ans->count = 0;
    for (uint32_t k = 0; k < m->nrows; ++k) {
        if (r->row_start[k + 1] - r->row_start[k] != 1) continue;
        const uint32_t c = r->row_cols[r->row_start[k]];
        if (r->taken[c]) continue;
        r->taken[c] = 1;
        ans->cols[ans->count++] = c;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) cov[m->col_rows[i]] = 1;
        r->steps += m->col_start[c + 1] - m->col_start[c];
    }
    bool all = true;
    for (uint32_t k = 0; k < m->nrows && all; ++k) all = cov[k] != 0;
    r->steps += m->nrows;
    for (uint32_t j = 0; j < ans->count; ++j) r->taken[ans->cols[j]] = 0;
    if (!all) return false;
    std::sort(ans->cols, ans->cols + ans->count);
    ans->exact = true;
    ans->steps = r->steps;
    return true;
}

// A matrix of few columns whose greedy answer the bound already proves
// least, as a single range's often is, is answered without the
// reductions, which would cost more than the rest of the search. The
// steps of a try that proves nothing count against the budget.
bool settle_whole(workspace *w, const cover_matrix *m, cover_answer *ans) {
    whole_part(w, m);
    const bool settled = cover_settle_part(&w->s, &w->p, w->r.budget);
    if (!settled) {
        w->r.steps += w->s.steps;
        return false;
    }
    answer_whole(w, m, ans);
    ans->exact = true;
    return true;
}

// The reductions look at each incidence this many times or more before
// they end (their steps count fewer looks than they take); a matrix of
// more incidences than the budget allows them, a dense set's of up to
// 300 000, would spend the budget on them and leave the search only its
// greedy answer, which they hardly better there.
constexpr uint64_t REDUCE_LOOKS = 32;

// Such a matrix is searched whole, as one part: the greedy answer of
// independent parts taken together is the one of each part alone. The
// search has the whole budget: building the matrix's two views cost
// steps in proportion to its size, which the space bounds, and on a dense
// set they would otherwise take half of it from the local changes.
void search_whole(workspace *w, const cover_matrix *m, uint64_t budget, cover_answer *ans) {
    whole_part(w, m);
    ans->exact = cover_search_part(&w->s, &w->p, budget);
    answer_whole(w, m, ans);
}

int give_up(workspace *w) {
    free_workspace(w);
    return -1;
}

}  // namespace

int l3mac_cover_solve(const cover_matrix *m, uint64_t budget, cover_answer *ans) {
    workspace w;
    if (alloc_workspace(&w, m) != 0) {
        free_workspace(&w);
        return -1;
    }
    cover_reducer *r = &w.r;
    cover_open_reducer(r, m, budget);
    for (uint32_t c = 0; c < m->ncols; ++c) w.col_local[c] = COVER_NONE;
    if (settle_by_essentials(&w, m, ans) ||
        (m->ncols <= COVER_BITS_COLS && settle_whole(&w, m, ans))) {
        free_workspace(&w);
        return 0;
    }
    if (w.s.no_memory) return give_up(&w);
    if (static_cast<uint64_t>(m->col_start[m->ncols]) * REDUCE_LOOKS > budget) {
        search_whole(&w, m, budget, ans);
        if (w.s.no_memory) return give_up(&w);
        free_workspace(&w);
        return 0;
    }
    cover_reduce(r);
    const uint32_t nparts = cover_split_parts(r, w.up, w.part_start, w.part_rows);
    // Parts by ascending size, so that the small ones are surely whole and
    // the steps they leave go to the large ones.
    for (uint32_t k = 0; k < nparts; ++k) w.part_order[k] = k;
    const uint32_t *start = w.part_start;
    std::stable_sort(w.part_order, w.part_order + nparts, [start](uint32_t a, uint32_t b) {
        return start[a + 1] - start[a] < start[b + 1] - start[b];
    });
    bool exact = true;
    uint64_t steps = r->steps;
    for (uint32_t k = 0; k < nparts; ++k) {
        const uint32_t pk = w.part_order[k];
        cover_cut_part(r, w.part_rows + start[pk], start[pk + 1] - start[pk], w.row_local,
                       w.col_local, &w.p);
        const uint64_t left = budget > steps ? budget - steps : 0;
        exact &= cover_search_part(&w.s, &w.p, left / (nparts - k));
        if (w.s.no_memory) return give_up(&w);
        for (uint32_t j = 0; j < w.s.nbest; ++j) r->taken[w.p.gcol[w.s.best[j]]] = 1;
        steps += w.s.steps;
    }
    ans->count = 0;
    for (uint32_t c = 0; c < m->ncols; ++c)
        if (r->taken[c]) ans->cols[ans->count++] = c;
    steps += drop_needless_columns(m, w.s.cov, ans);
    ans->exact = exact;
    ans->steps = steps;
    free_workspace(&w);
    return 0;
}
