// Exact reductions of the weighted covering, repeated while they change
// anything: a row with one column left takes it; of rows with the same
// columns one stays; a column whose rows another column of no higher cost
// also holds goes. (A row whose columns all hold another row could go
// too, but finding those costs more on sets of VLAN ranges than it saves.)
// Every incidence looked at is one step.
#include <algorithm>
#include <cstring>

#include "decision/l3mac_mask_cover_run.h"

namespace {

bool spent(const cover_reducer *r) { return r->steps > r->budget; }

void count_degrees(cover_reducer *r) {
    const cover_matrix *m = r->m;
    for (uint32_t c = 0; c < m->ncols; ++c) {
        r->col_deg[c] = 0;
        if (!r->col_live[c]) continue;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i)
            r->col_deg[c] += r->row_live[m->col_rows[i]];
        r->steps += m->col_start[c + 1] - m->col_start[c];
    }
    for (uint32_t w = 0; w < m->nrows; ++w) {
        r->row_deg[w] = 0;
        if (!r->row_live[w]) continue;
        for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1]; ++i) {
            const uint32_t c = r->row_cols[i];
            r->row_deg[w] += r->col_live[c];
        }
        r->steps += r->row_start[w + 1] - r->row_start[w];
    }
}

void take_column(cover_reducer *r, uint32_t c) {
    r->taken[c] = 1;
    r->col_live[c] = 0;
    for (uint32_t i = r->m->col_start[c]; i < r->m->col_start[c + 1]; ++i)
        r->row_live[r->m->col_rows[i]] = 0;
}

void take_essentials(cover_reducer *r) {
    for (uint32_t w = 0; w < r->m->nrows; ++w) {
        if (!r->row_live[w]) continue;
        uint32_t only = COVER_NONE, live = 0;
        for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1] && live < 2; ++i)
            if (r->col_live[r->row_cols[i]]) only = r->row_cols[i], ++live;
        r->steps += r->row_start[w + 1] - r->row_start[w];
        if (live == 1) take_column(r, only);
    }
}

// Whether every live row of c is a row of d: each is looked up in the
// ascending rows of d.
bool holds_rows(cover_reducer *r, uint32_t c, uint32_t d) {
    const cover_matrix *m = r->m;
    const uint32_t *from = m->col_rows + m->col_start[d], *to = m->col_rows + m->col_start[d + 1];
    for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) {
        const uint32_t w = m->col_rows[i];
        if (!r->row_live[w]) continue;
        ++r->steps;
        from = std::lower_bound(from, to, w);
        if (from == to || *from != w) return false;
    }
    return true;
}

void drop_column(cover_reducer *r, uint32_t c) {
    r->col_live[c] = 0;
    for (uint32_t i = r->m->col_start[c]; i < r->m->col_start[c + 1]; ++i)
        if (r->row_live[r->m->col_rows[i]]) --r->row_deg[r->m->col_rows[i]];
}

// d may replace c: no higher cost, every row of c; of two equal columns the
// later one goes.
bool replaces(cover_reducer *r, uint32_t d, uint32_t c) {
    const cover_matrix *m = r->m;
    if (d == c || !r->col_live[d] || m->cost[d] > m->cost[c] || r->col_deg[d] < r->col_deg[c])
        return false;
    if (m->cost[d] == m->cost[c] && r->col_deg[d] == r->col_deg[c] && d > c) return false;
    return holds_rows(r, c, d);
}

bool drop_dominated_columns(cover_reducer *r) {
    const cover_matrix *m = r->m;
    bool changed = false;
    for (uint32_t c = 0; c < m->ncols && !spent(r); ++c) {
        if (!r->col_live[c]) continue;
        if (r->col_deg[c] == 0) {
            r->col_live[c] = 0;
            continue;
        }
        // Any column that holds every row of c holds its rarest row.
        uint32_t rare = COVER_NONE;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) {
            const uint32_t w = m->col_rows[i];
            if (r->row_live[w] && (rare == COVER_NONE || r->row_deg[w] < r->row_deg[rare])) rare = w;
        }
        r->steps += m->col_start[c + 1] - m->col_start[c];
        for (uint32_t i = r->row_start[rare]; i < r->row_start[rare + 1]; ++i)
            if (replaces(r, r->row_cols[i], c)) {
                drop_column(r, c);
                changed = true;
                break;
            }
    }
    return changed;
}

bool same_columns(cover_reducer *r, uint32_t v, uint32_t w) {
    uint32_t i = r->row_start[v], j = r->row_start[w];
    const uint32_t ie = r->row_start[v + 1], je = r->row_start[w + 1];
    for (;;) {
        while (i < ie && !r->col_live[r->row_cols[i]]) ++i;
        while (j < je && !r->col_live[r->row_cols[j]]) ++j;
        ++r->steps;
        if (i == ie || j == je) return i == ie && j == je;
        if (r->row_cols[i++] != r->row_cols[j++]) return false;
    }
}

void drop_row(cover_reducer *r, uint32_t w) {
    r->row_live[w] = 0;
    for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1]; ++i)
        if (r->col_live[r->row_cols[i]]) --r->col_deg[r->row_cols[i]];
}

// Rows with the same live columns are one row: all but the first go.
// Rows are grouped by a hash of their columns and compared within a group.
void drop_twin_rows(cover_reducer *r) {
    uint32_t n = 0;
    for (uint32_t w = 0; w < r->m->nrows; ++w) {
        if (!r->row_live[w]) continue;
        uint64_t h = 1469598103934665603ull;
        for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1]; ++i)
            if (r->col_live[r->row_cols[i]]) h = (h ^ r->row_cols[i]) * 1099511628211ull;
        r->steps += r->row_start[w + 1] - r->row_start[w];
        r->row_hash[w] = h;
        r->row_order[n++] = w;
    }
    const uint64_t *hash = r->row_hash;
    std::sort(r->row_order, r->row_order + n, [hash](uint32_t a, uint32_t b) {
        return hash[a] != hash[b] ? hash[a] < hash[b] : a < b;
    });
    for (uint32_t k = 0, first = 0; k < n; ++k) {
        const uint32_t w = r->row_order[k];
        if (hash[w] != hash[r->row_order[first]]) {
            first = k;
            continue;
        }
        for (uint32_t j = first; j < k && r->row_live[w]; ++j) {
            const uint32_t v = r->row_order[j];
            if (r->row_live[v] && same_columns(r, v, w)) drop_row(r, w);
        }
    }
}

}  // namespace

void cover_open_reducer(cover_reducer *r, const cover_matrix *m, uint64_t budget) {
    r->m = m;
    const uint32_t nr = m->nrows, nc = m->ncols;
    for (uint32_t w = 0; w <= nr; ++w) r->row_start[w] = 0;
    for (uint32_t i = 0; i < m->col_start[nc]; ++i) ++r->row_start[m->col_rows[i] + 1];
    for (uint32_t w = 0; w < nr; ++w) r->row_start[w + 1] += r->row_start[w];
    for (uint32_t c = 0; c < nc; ++c)
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i)
            r->row_cols[r->row_start[m->col_rows[i]]++] = c;
    for (uint32_t w = nr; w > 0; --w) r->row_start[w] = r->row_start[w - 1];
    r->row_start[0] = 0;
    std::memset(r->row_live, 1, nr);
    std::memset(r->col_live, 1, nc);
    std::memset(r->taken, 0, nc);
    r->steps = m->col_start[nc];
    r->budget = budget;
}

// Only a dropped column can leave a row with one column or make two rows
// twins, and the columns are judged after the essentials and the twins of
// the same round: a round that drops no column is the last.
void cover_reduce(cover_reducer *r) {
    bool dropped = true;
    while (dropped && !spent(r)) {
        take_essentials(r);
        count_degrees(r);
        drop_twin_rows(r);
        dropped = !spent(r) && drop_dominated_columns(r);
    }
}
