// Weighted covering for the compact cover search: columns (sub-cubes) of
// least total cost that hold every row (number of the set).
//
// First the exact reductions, repeated while they change anything: a row
// with one column left takes it; of rows with the same columns one stays;
// a column whose rows another column of no higher cost also holds goes.
// (A row whose columns all hold another row could go too, but finding
// those costs more on sets of VLAN ranges than it saves.) What is left
// falls into independent parts, searched one by one, smallest first: a
// row-by-row greedy pick gives a first answer, and a depth-first search
// branches on the row with the fewest columns left, bounded below by rows
// that share no column. Every incidence looked at is one step; when the
// budget is spent the best answer so far stands.
#include <algorithm>
#include <cstring>

#include "decision/l3mac_mask_compact_run.h"
#include "frame/l3mac_mem.h"

namespace {

constexpr uint32_t NONE = ~0u;

// Both directions of the matrix, and what the reductions have decided.
struct reducer {
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
struct part {
    uint32_t nr, nc;
    uint32_t *cs, *cr;   // column -> rows
    uint32_t *rs, *rc;   // row -> columns
    int64_t *cost;
    uint32_t *gcol;      // column -> column of the whole matrix
};

struct frame {
    uint32_t begin, end, next, taken;
};

struct searcher {
    part *p;
    uint32_t *cov;       // per row: chosen columns that hold it
    uint32_t *banned;    // per column: branches that exclude it
    uint32_t *mark;      // per column: stamp of the bound's pass
    uint32_t stamp_now;
    uint32_t *order;     // rows by ascending degree, for the bound
    uint32_t *cand;      // candidate arena of the open frames
    frame *frames;
    uint32_t *chosen, nchosen;
    uint32_t *best, nbest;
    int64_t cost_now, best_cost;
    uint32_t uncovered;
    uint64_t steps, budget;
    bool out;
};

template <class T> T *alloc_n(size_t n) {
    return static_cast<T *>(l3mac_malloc(sizeof(T) * (n ? n : 1)));
}

// ---- reductions -----------------------------------------------------------

bool spent(const reducer *r) { return r->steps > r->budget; }

void count_degrees(reducer *r) {
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

void take_column(reducer *r, uint32_t c) {
    r->taken[c] = 1;
    r->col_live[c] = 0;
    for (uint32_t i = r->m->col_start[c]; i < r->m->col_start[c + 1]; ++i)
        r->row_live[r->m->col_rows[i]] = 0;
}

bool take_essentials(reducer *r) {
    bool changed = false;
    for (uint32_t w = 0; w < r->m->nrows; ++w) {
        if (!r->row_live[w]) continue;
        uint32_t only = NONE, live = 0;
        for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1] && live < 2; ++i)
            if (r->col_live[r->row_cols[i]]) only = r->row_cols[i], ++live;
        r->steps += r->row_start[w + 1] - r->row_start[w];
        if (live == 1) {
            take_column(r, only);
            changed = true;
        }
    }
    return changed;
}

// Whether every live row of c is a row of d: each is looked up in the
// ascending rows of d.
bool holds_rows(reducer *r, uint32_t c, uint32_t d) {
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

void drop_column(reducer *r, uint32_t c) {
    r->col_live[c] = 0;
    for (uint32_t i = r->m->col_start[c]; i < r->m->col_start[c + 1]; ++i)
        if (r->row_live[r->m->col_rows[i]]) --r->row_deg[r->m->col_rows[i]];
}

// d may replace c: no higher cost, every row of c; of two equal columns the
// later one goes.
bool replaces(reducer *r, uint32_t d, uint32_t c) {
    const cover_matrix *m = r->m;
    if (d == c || !r->col_live[d] || m->cost[d] > m->cost[c] || r->col_deg[d] < r->col_deg[c])
        return false;
    if (m->cost[d] == m->cost[c] && r->col_deg[d] == r->col_deg[c] && d > c) return false;
    return holds_rows(r, c, d);
}

bool drop_dominated_columns(reducer *r) {
    const cover_matrix *m = r->m;
    bool changed = false;
    for (uint32_t c = 0; c < m->ncols && !spent(r); ++c) {
        if (!r->col_live[c]) continue;
        if (r->col_deg[c] == 0) {
            r->col_live[c] = 0;
            continue;
        }
        // Any column that holds every row of c holds its rarest row.
        uint32_t rare = NONE;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) {
            const uint32_t w = m->col_rows[i];
            if (r->row_live[w] && (rare == NONE || r->row_deg[w] < r->row_deg[rare])) rare = w;
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

bool same_columns(reducer *r, uint32_t v, uint32_t w) {
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

void drop_row(reducer *r, uint32_t w) {
    r->row_live[w] = 0;
    for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1]; ++i)
        if (r->col_live[r->row_cols[i]]) --r->col_deg[r->row_cols[i]];
}

// Rows with the same live columns are one row: all but the first go.
// Rows are grouped by a hash of their columns and compared within a group.
bool drop_twin_rows(reducer *r) {
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
    bool changed = false;
    for (uint32_t k = 0, first = 0; k < n; ++k) {
        const uint32_t w = r->row_order[k];
        if (hash[w] != hash[r->row_order[first]]) {
            first = k;
            continue;
        }
        for (uint32_t j = first; j < k && r->row_live[w]; ++j) {
            const uint32_t v = r->row_order[j];
            if (r->row_live[v] && same_columns(r, v, w)) drop_row(r, w), changed = true;
        }
    }
    return changed;
}

// Exact reductions, repeated while they change anything and steps last.
void reduce(reducer *r) {
    bool changed = true;
    while (changed && !spent(r)) {
        changed = take_essentials(r);
        count_degrees(r);
        changed |= drop_twin_rows(r);
        if (!spent(r)) changed |= drop_dominated_columns(r);
    }
}

// ---- parts ----------------------------------------------------------------

uint32_t find_root(uint32_t *up, uint32_t x) {
    while (up[x] != x) x = up[x] = up[up[x]];
    return x;
}

// The live rows joined by live columns into parts: part_rows holds the
// rows of each part together, ascending, part_start where each begins;
// parts are numbered by their smallest row. up[] is the union-find.
uint32_t split_parts(const reducer *r, uint32_t *up, uint32_t *part_start, uint32_t *part_rows) {
    const cover_matrix *m = r->m;
    for (uint32_t w = 0; w < m->nrows; ++w) up[w] = w;
    for (uint32_t c = 0; c < m->ncols; ++c) {
        if (!r->col_live[c]) continue;
        uint32_t first = NONE;
        for (uint32_t i = m->col_start[c]; i < m->col_start[c + 1]; ++i) {
            const uint32_t w = m->col_rows[i];
            if (!r->row_live[w]) continue;
            if (first == NONE) first = w;
            const uint32_t a = find_root(up, first), b = find_root(up, w);
            if (a != b) up[std::max(a, b)] = std::min(a, b);
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

// Renumbers the rows of one part, and the live columns on them, from 0.
// row_local and col_local map the whole matrix's numbers to the part's;
// col_local is NONE again for every column afterwards.
void cut_part(const reducer *r, const uint32_t *rows, uint32_t nrows, uint32_t *row_local,
              uint32_t *col_local, part *p) {
    const cover_matrix *m = r->m;
    p->nr = nrows;
    p->nc = 0;
    for (uint32_t k = 0; k < nrows; ++k) {
        const uint32_t w = rows[k];
        row_local[w] = k;
        for (uint32_t i = r->row_start[w]; i < r->row_start[w + 1]; ++i) {
            const uint32_t c = r->row_cols[i];
            if (r->col_live[c] && col_local[c] == NONE) {
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
    for (uint32_t j = 0; j < p->nc; ++j) col_local[p->gcol[j]] = NONE;
}

// ---- search ---------------------------------------------------------------

void choose(searcher *s, uint32_t c) {
    const part *p = s->p;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) s->uncovered -= s->cov[p->cr[i]]++ == 0;
    s->steps += p->cs[c + 1] - p->cs[c];
    s->cost_now += p->cost[c];
    s->chosen[s->nchosen++] = c;
}

void unchoose(searcher *s, uint32_t c) {
    const part *p = s->p;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) s->uncovered += --s->cov[p->cr[i]] == 0;
    s->cost_now -= p->cost[c];
    --s->nchosen;
}

uint32_t gain_of(searcher *s, uint32_t c) {
    const part *p = s->p;
    uint32_t g = 0;
    for (uint32_t i = p->cs[c]; i < p->cs[c + 1]; ++i) g += s->cov[p->cr[i]] == 0;
    s->steps += p->cs[c + 1] - p->cs[c];
    return g;
}

// c before d: it covers more new rows, then costs less, then comes first.
bool better_pick(const searcher *s, uint32_t c, uint32_t gc, uint32_t d, uint32_t gd) {
    if (gc != gd) return gc > gd;
    if (s->p->cost[c] != s->p->cost[d]) return s->p->cost[c] < s->p->cost[d];
    return c < d;
}

void save_best(searcher *s) {
    std::memcpy(s->best, s->chosen, s->nchosen * sizeof(uint32_t));
    s->nbest = s->nchosen;
    s->best_cost = s->cost_now;
}

void unchoose_at(searcher *s, uint32_t k) {
    const part *p = s->p;
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
void greedy(searcher *s) {
    const part *p = s->p;
    uint32_t *open = s->mark;  // free until the search
    for (uint32_t c = 0; c < p->nc; ++c) open[c] = p->cs[c + 1] - p->cs[c];
    s->steps += p->nr + p->nc;
    for (uint32_t k = 0; k < p->nr; ++k) {
        const uint32_t w = s->order[k];
        if (s->cov[w]) continue;
        uint32_t pick = NONE;
        for (uint32_t i = p->rs[w]; i < p->rs[w + 1]; ++i) {
            const uint32_t c = p->rc[i];
            if (pick == NONE || better_pick(s, c, open[c], pick, open[pick])) pick = c;
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
node_state look_at_node(searcher *s, int64_t *bound, uint32_t *branch_row) {
    if (s->uncovered == 0) return NODE_DONE;
    const part *p = s->p;
    ++s->stamp_now;
    s->steps += p->nr;  // every row is looked at, covered or not
    int64_t lb = 0;
    uint32_t br = NONE, br_live = NONE;
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
void open_frame(searcher *s, uint32_t depth, uint32_t arena_at, uint32_t w) {
    const part *p = s->p;
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
    s->frames[depth] = {arena_at, arena_at + n, arena_at, NONE};
}

// Depth first from the empty choice; a column that has been tried at a
// node is banned in its later siblings' subtrees, so that no set of
// columns is reached twice.
void branch_and_bound(searcher *s) {
    int64_t lb = 0;
    uint32_t br = NONE;
    if (look_at_node(s, &lb, &br) != NODE_OPEN || lb >= s->best_cost) return;
    open_frame(s, 0, 0, br);
    uint32_t depth = 1;
    while (depth > 0) {
        frame *f = &s->frames[depth - 1];
        if (f->taken != NONE) {
            unchoose(s, f->taken);
            ++s->banned[f->taken];
            f->taken = NONE;
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

// ---- the whole ------------------------------------------------------------

struct workspace {
    reducer r;
    uint32_t *up, *row_local, *col_local;
    uint32_t *part_start, *part_rows, *part_order;
    part p;
    searcher s;
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
    w->s.frames = alloc_n<frame>(nr + 1);
    w->s.chosen = alloc_n<uint32_t>(nr + 1);
    w->s.best = alloc_n<uint32_t>(nr + 1);
    void *all[WORKSPACE_ARRAYS];
    workspace_arrays(w, all);
    for (size_t i = 0; i + 1 < WORKSPACE_ARRAYS; ++i)
        if (!all[i]) return -1;
    return 0;
}

void open_reducer(reducer *r, const cover_matrix *m, uint64_t budget) {
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

// Searches one part with `budget` steps and takes its answer. False when
// the search had to stop before it had proved its answer.
bool search_part(workspace *w, uint64_t budget) {
    searcher *s = &w->s;
    part *p = &w->p;
    s->p = p;
    for (uint32_t k = 0; k < p->nr; ++k) s->cov[k] = 0, s->order[k] = k;
    for (uint32_t j = 0; j < p->nc; ++j) s->banned[j] = 0, s->mark[j] = 0;
    std::stable_sort(s->order, s->order + p->nr, [p](uint32_t a, uint32_t b) {
        return p->rs[a + 1] - p->rs[a] < p->rs[b + 1] - p->rs[b];
    });
    s->stamp_now = 0;
    s->nchosen = s->nbest = 0;
    s->cost_now = 0;
    s->uncovered = p->nr;
    s->steps = 0;
    s->budget = budget;
    s->out = false;
    greedy(s);
    branch_and_bound(s);
    for (uint32_t k = 0; k < s->nbest; ++k) w->r.taken[p->gcol[s->best[k]]] = 1;
    return !s->out;
}

// A search cut short may have reached an answer in which a later column
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
        ans->cols[k] = NONE;
        --kept;
    }
    uint32_t at = 0;
    for (uint32_t k = 0; k < ans->count; ++k)
        if (ans->cols[k] != NONE) ans->cols[at++] = ans->cols[k];
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
    reducer *r = &w.r;
    open_reducer(r, m, budget);
    reduce(r);
    const uint32_t nparts = split_parts(r, w.up, w.part_start, w.part_rows);
    for (uint32_t c = 0; c < m->ncols; ++c) w.col_local[c] = NONE;
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
        cut_part(r, w.part_rows + start[pk], start[pk + 1] - start[pk], w.row_local, w.col_local,
                 &w.p);
        const uint64_t left = budget > steps ? budget - steps : 0;
        exact &= search_part(&w, left / (nparts - k));
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
