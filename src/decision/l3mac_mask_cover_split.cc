// Independent parts of the weighted covering: the rows that no live column
// joins are searched apart, each renumbered from 0.
#include <algorithm>

#include "decision/l3mac_mask_cover_run.h"

namespace {

uint32_t find_root(uint32_t *up, uint32_t x) {
    while (up[x] != x) x = up[x] = up[up[x]];
    return x;
}

}  // namespace

uint32_t cover_split_parts(const cover_reducer *r, uint32_t *up, uint32_t *part_start,
                           uint32_t *part_rows) {
    const cover_matrix *m = r->m;
    for (uint32_t w = 0; w < m->nrows; ++w) up[w] = w;
    for (uint32_t c = 0; c < m->ncols; ++c) {
        if (!r->col_live[c]) continue;
        // a: the root of the column's rows joined so far.
        uint32_t a = COVER_NONE;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) {
            const uint32_t w = m->col_rows[i];
            if (!r->row_live[w]) continue;
            const uint32_t b = find_root(up, w);
            if (a == COVER_NONE || a == b) {
                a = b;
                continue;
            }
            up[std::max(a, b)] = std::min(a, b);
            a = std::min(a, b);
        }
    }
    // up[] becomes the root of each row, and then the part number of each
    // live row: a root comes before the other rows of its part.
    for (uint32_t w = 0; w < m->nrows; ++w) up[w] = find_root(up, w);
    uint32_t nparts = 0;
    for (uint32_t w = 0; w < m->nrows; ++w)
        if (r->row_live[w]) up[w] = up[w] == w ? nparts++ : up[up[w]];
    for (uint32_t k = 0; k <= nparts; ++k) part_start[k] = 0;
    for (uint32_t w = 0; w < m->nrows; ++w)
        if (r->row_live[w]) ++part_start[up[w] + 1];
    for (uint32_t k = 0; k < nparts; ++k) part_start[k + 1] += part_start[k];
    for (uint32_t w = 0; w < m->nrows; ++w)
        if (r->row_live[w]) part_rows[part_start[up[w]]++] = w;
    for (uint32_t k = nparts; k > 0; --k) part_start[k] = part_start[k - 1];
    part_start[0] = 0;
    return nparts;
}

void cover_cut_part(const cover_reducer *r, const uint32_t *rows, uint32_t nrows,
                    uint32_t *row_local, uint32_t *col_local, cover_part *p) {
    const cover_matrix *m = r->m;
    p->nr = nrows;
    p->nc = 0;
    for (uint32_t k = 0; k < nrows; ++k) {
        const uint32_t w = rows[k];
        row_local[w] = k;
        for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1]; ++i) {
            const uint32_t c = r->row_cols[i];
            if (r->col_live[c] && col_local[c] == COVER_NONE) {
                col_local[c] = p->nc;
                p->gcol[p->nc++] = c;
            }
        }
    }
    uint32_t at = 0;
    for (uint32_t j = 0; j < p->nc; ++j) {
        const uint32_t c = p->gcol[j];
        p->cs[j] = at;
        p->cost[j] = m->cost[c];
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i)
            if (r->row_live[m->col_rows[i]]) p->cr[at++] = row_local[m->col_rows[i]];
    }
    p->cs[p->nc] = at;
    // Rows to columns, by counting.
    for (uint32_t w = 0; w <= p->nr; ++w) p->rs[w] = 0;
    for (uint32_t i = 0; i < at; ++i) ++p->rs[p->cr[i] + 1];
    for (uint32_t w = 0; w < p->nr; ++w) p->rs[w + 1] += p->rs[w];
    for (uint32_t j = 0; j < p->nc; ++j)
        for (uint32_t i = p->cs[j]; i < p->cs[j + 1]; ++i) p->rc[p->rs[p->cr[i]]++] = j;
    for (uint32_t w = p->nr; w > 0; --w) p->rs[w] = p->rs[w - 1];
    p->rs[0] = 0;
    for (uint32_t j = 0; j < p->nc; ++j) col_local[p->gcol[j]] = COVER_NONE;
}
