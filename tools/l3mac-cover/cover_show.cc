// The cover of one set through the service's own search, and its printed
// forms.
#include "cover_show.h"

#include <cstdio>

#include "cover_set.h"
#include "decision/l3mac_mask.h"
#include "decision/l3mac_mask_compact.h"

namespace {

uint32_t width_mask(bool vfi) { return vfi ? 0x3FFF : 0xFFF; }

// Owns the template list for the length of one computation.
struct template_list {
    list_head head;
    template_list() { list_init(&head); }
    ~template_list() { l3mac_masklist_free(&head); }
};

std::string hex_mask(const cover_result &c, uint32_t mask) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%0*X", c.vfi ? 4 : 3, mask);
    return buf;
}

// The numbers a template matches, ascending.
std::vector<uint32_t> matched(const cover_result &c, const cover_template &t) {
    const uint32_t ignored = ~t.mask & width_mask(c.vfi);
    std::vector<uint32_t> out;
    uint32_t s = 0;
    do {
        out.push_back(t.key | s);
        s = (s - ignored) & ignored;
    } while (s != 0);
    return out;
}

// The level-0 template of value 0: it takes no TCAM entry.
bool is_filler(const cover_result &c, const cover_template &t) {
    return t.level == 0 && t.key == 0 && t.mask == width_mask(c.vfi);
}

std::string count_of(size_t n, const char *what, const char *plural) {
    return std::to_string(n) + ' ' + (n == 1 ? what : plural);
}

bool matches_zero(const cover_result &c) {
    for (const cover_template &t : c.templates)
        if (t.key == 0) return true;
    return false;
}

std::string summary(const cover_result &c) {
    size_t fillers = 0;
    for (const cover_template &t : c.templates) fillers += is_filler(c, t);
    const size_t entries = c.templates.size() - fillers;
    std::string s = count_of(c.read.size(), "member", "members") +
                    (!c.compact               ? " + value 0; "
                     : matches_zero(c)        ? " (value 0 matched too); "
                                              : " (value 0 not matched); ") +
                    count_of(c.templates.size(), "template", "templates") + ", " +
                    count_of(entries, "TCAM entry", "TCAM entries");
    if (fillers) s += "; filler template 0 " + hex_mask(c, width_mask(c.vfi)) +
                      " 0 takes no TCAM entry";
    std::vector<uint32_t> uncovered = c.unread;
    if (!uncovered.empty() && uncovered.front() == 0) {
        s += c.compact ? "; 0 is not read (value 0 is no VLAN)"
                       : "; 0 is not read (value 0 is in every cover)";
        uncovered.erase(uncovered.begin());
    }
    if (!uncovered.empty()) s += "; not read, so not covered: " + cover_ranges(uncovered);
    return s + "\n";
}

}  // namespace

int cover_compute(const std::vector<uint32_t> &numbers, bool vfi, bool compact,
                  cover_result *out) {
    const uint32_t top = width_mask(vfi);
    evlan_bmp_t bmp{};
    bmp.is_vfi = vfi;
    out->vfi = vfi;
    out->compact = compact;
    for (uint32_t v : numbers) {
        l3mac_bmp_set(&bmp, v);
        (v == 0 || v >= top ? out->unread : out->read).push_back(v);
    }
    template_list list;
    const int rv = compact ? l3mac_masklist_calc_compact(&bmp, nullptr, 0, &list.head)
                           : l3mac_masklist_calc(&bmp, &list.head);
    if (rv != 0) return -1;
    for (list_head *p = list.head.next; p != &list.head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        out->templates.push_back({t->key, t->mask & top, t->level});
    }
    return 0;
}

size_t cover_entries(const cover_result &c) {
    size_t n = 0;
    for (const cover_template &t : c.templates) n += !is_filler(c, t);
    return n;
}

std::string cover_batch_line(const cover_result &c) {
    if (c.templates.empty()) return "-";
    std::string line;
    for (const cover_template &t : c.templates) {
        if (!line.empty()) line += ' ';
        line += std::to_string(t.key) + '/' + hex_mask(c, t.mask) + '/' +
                std::to_string(t.level);
    }
    return line;
}

std::string cover_report(const cover_result &c) {
    std::string out;
    for (const cover_template &t : c.templates) {
        char head[48];
        std::snprintf(head, sizeof head, "%5u  %s %2d  ", t.key,
                      hex_mask(c, t.mask).c_str(), t.level);
        out += head + cover_ranges(matched(c, t)) + "\n";
    }
    return out + summary(c);
}
