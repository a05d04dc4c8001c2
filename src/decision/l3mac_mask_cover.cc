// Weighted covering for the compact cover search: columns (sub-cubes) of
// least total cost that hold every row (number of the set). The exact
// reductions come first; what is left falls into independent parts,
// searched one by one, smallest first, each with its share of the steps
// that are left.
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

}  // namespace

int l3mac_cover_solve(const cover_matrix *m, uint64_t budget, cover_answer *ans) {
    workspace w;
    if (alloc_workspace(&w, m) != 0) {
        free_workspace(&w);
        return -1;
    }
    cover_reducer *r = &w.r;
    cover_open_reducer(r, m, budget);
    cover_reduce(r);
    const uint32_t nparts = cover_split_parts(r, w.up, w.part_start, w.part_rows);
    for (uint32_t c = 0; c < m->ncols; ++c) w.col_local[c] = COVER_NONE;
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
