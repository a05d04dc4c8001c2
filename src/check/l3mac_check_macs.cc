// The rule of one managed MAC: its entries are exactly the cover of the
// numbers that its requests need, or the MAC is unserved, which only a
// TCAM without room for the whole cover excuses. An entry that matches a
// number that no standing request wants is named on its own line, with
// the input rows that may explain it; an entry beyond the board's space
// always is.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <vector>

#include "decision/l3mac_bmp.h"
#include "decision/l3mac_mask.h"
#include "check/l3mac_check_model.h"
#include "frame/l3mac_mem.h"

namespace {

constexpr uint32_t kOl = 1;
constexpr size_t kNumbersShown = 4;  // numbers named in one line at most

bool l3mac_check_covers(const l3mac_pairs &entries, uint32_t v) {
    for (const auto &[evlan, mask] : entries)
        if (((v ^ evlan) & mask) == 0) return true;
    return false;
}

bool l3mac_check_matches(uint32_t evlan, uint32_t mask, uint32_t v) {
    return ((v ^ evlan) & mask) == 0;
}

std::string l3mac_check_uncovered(const l3mac_pairs &entries, const l3mac_check_wanted &w,
                                  uint32_t top) {
    std::string out;
    for (uint32_t n : w.need)
        if (n >= 1 && n < top && !l3mac_check_covers(entries, n))
            out.append(" ").append(std::to_string(n));
    return out.empty() ? " none" : out;
}

std::string l3mac_check_pairs_text(const l3mac_pairs &p) {
    std::string out;
    char buf[48];
    for (const auto &[evlan, mask] : p) {
        std::snprintf(buf, sizeof buf, " %u/%#x", evlan, mask);
        out += buf;
    }
    return out.empty() ? " none" : out;
}

l3mac_pairs l3mac_check_minus(const l3mac_pairs &a, const l3mac_pairs &b) {
    l3mac_pairs out;
    for (const auto &p : a)
        if (!b.count(p)) out.insert(p);
    return out;
}

// "10", "8, 9, 10, 11 and 12 more": the first numbers and how many follow.
std::string l3mac_check_list_text(const std::vector<uint32_t> &shown, uint64_t total) {
    std::string out;
    for (size_t i = 0; i < shown.size(); i++)
        out += (i ? ", " : "") + std::to_string(shown[i]);
    if (total > shown.size()) out += " and " + std::to_string(total - shown.size()) + " more";
    return out;
}

std::string l3mac_check_entry_head(const l3mac_mac_key &k, uint32_t evlan, uint32_t mask,
                                   const l3mac_check_model &m, int tcam) {
    char buf[96];
    std::snprintf(buf, sizeof buf, " evlan %u mask %#x", evlan, mask);
    std::string out = "output entry " + l3mac_check_mac_text(k) + buf;
    auto at = m.output.find({k, evlan, mask});
    if (at != m.output.end())
        out += " at index " + std::to_string(at->second) + " of TCAM " + std::to_string(tcam);
    return out;
}

// An entry whose value lies at or above the top of its space: the restore
// takes no such entry back, and the cut mask compares only the bits of the
// board's space, so that the entry matches every number that agrees with
// its value in those bits, not that value alone. With the default
// evlan_num the VFI mask is 1: an entry for VFI 5000 matches every even VFI.
// Intake takes any managed VFI up to 8191, whatever the board's VFI space,
// so such an entry for a VFI that its MAC wants is the service's own: the
// profile's evlan_num is what is wrong, and it is a note. Any other is a
// violation.
void l3mac_check_beyond(const l3mac_check_board &b, const l3mac_mac_key &k, uint32_t evlan,
                        uint32_t mask, const l3mac_check_model &m, bool own,
                        l3mac_check_report *rep) {
    const bool is_vfi = k.mac_type == kOl;
    const uint32_t numbers = is_vfi ? 16384 : 4096;  // the space of the cover search
    std::vector<uint32_t> shown;
    uint64_t total = 0;
    for (uint32_t v = 0; v < numbers; v++)
        if (l3mac_check_matches(evlan, mask, v) && total++ < kNumbersShown) shown.push_back(v);
    const char *kind = is_vfi ? "VFI" : "VLAN";
    char space[160];
    if (is_vfi)
        std::snprintf(space, sizeof space, "an overlay VFI must be below %u, the VFI mask that "
                      "evlan_num of the profile gives", b.vfi_mask);
    else
        std::snprintf(space, sizeof space, "a VLAN entry must be below 4095");
    const std::string head = l3mac_check_entry_head(k, evlan, mask, m,
                                                    l3mac_check_tcam_of(b, k.mac_type));
    const std::string from = l3mac_check_untaken_text(m, k.mac, [&](const l3mac_check_res &r) {
        return (r.mac_type & 0xFF) == k.mac_type && r.mac == k.mac && r.phyid == k.phyid &&
               l3mac_check_matches(evlan, mask, r.evlan);
    });
    char text[1024];
    std::snprintf(text, sizeof text,
                  "%s is for %s %u, beyond the board's %s space (%s; the restore refuses such "
                  "an entry, so it moves at every restart): cut to that space it compares only "
                  "the bits %#x and matches %llu of the %ss 0-%u (%s), not %s %u alone",
                  head.c_str(), kind, evlan, kind, space, mask,
                  static_cast<unsigned long long>(total), kind, numbers - 1,
                  l3mac_check_list_text(shown, total).c_str(), kind, evlan);
    if (own)
        rep->note("beyond: %s; raise evlan_num in the profile to give the board the VFIs its "
                  "requests use", text);
    else
        rep->violation("%s%s", text, from.c_str());
}

// The numbers of the space that an entry matches and no standing request
// of its MAC wants, value 0 aside as the cover allows it. Reported per
// entry, with the input rows that may explain it; false when there are none.
bool l3mac_check_foreign(const l3mac_check_board &b, const l3mac_mac_key &k, uint32_t evlan,
                         uint32_t mask, const l3mac_check_wanted &w, const l3mac_check_model &m,
                         l3mac_check_report *rep) {
    const bool is_vfi = k.mac_type == kOl;
    const uint32_t top = l3mac_check_top(b, is_vfi);
    std::vector<uint32_t> shown;
    uint64_t total = 0;
    for (uint32_t v = 1; v <= top; v++)
        if (l3mac_check_matches(evlan, mask, v) && !w.need.count(v) && !w.may.count(v) &&
            total++ < kNumbersShown)
            shown.push_back(v);
    if (!total) return false;
    const std::string head = l3mac_check_entry_head(k, evlan, mask, m,
                                                    l3mac_check_tcam_of(b, k.mac_type));
    const std::string from = l3mac_check_untaken_text(m, k.mac, [&](const l3mac_check_res &r) {
        return (r.mac_type & 0xFF) == k.mac_type && r.mac == k.mac && r.phyid == k.phyid &&
               r.evlan >= 1 &&
               r.evlan <= top && l3mac_check_matches(evlan, mask, r.evlan) &&
               !w.need.count(r.evlan);
    });
    const char *kind = is_vfi ? "VFI" : "VLAN";
    rep->violation("%s matches %s%s %s, which no standing request of its MAC asks for%s",
                   head.c_str(), kind, total > 1 ? "s" : "",
                   l3mac_check_list_text(shown, total).c_str(), from.c_str());
    return true;
}

void l3mac_check_one_mac(const l3mac_check_board &b, const l3mac_mac_key &k,
                         const l3mac_check_wanted &w, const l3mac_pairs &placed,
                         const l3mac_check_model &m, l3mac_check_report *rep) {
    const bool is_vfi = k.mac_type == kOl;
    const int tcam = l3mac_check_tcam_of(b, k.mac_type);
    const uint32_t top = l3mac_check_top(b, is_vfi);
    // The restore's own test of an entry's value (evlan below the mask of
    // its space).
    const uint32_t end = is_vfi ? b.vfi_mask : 4095;
    const l3mac_pairs cover = l3mac_check_cover(w.need, is_vfi, b.vfi_mask);
    size_t told = 0;
    for (const auto &[evlan, mask] : placed) {
        if (evlan < end) continue;
        // An entry's value is the lowest number of its template, one that
        // the MAC wants when the service made it.
        const bool own = is_vfi && (w.need.count(evlan) || w.may.count(evlan));
        l3mac_check_beyond(b, k, evlan, mask, m, own, rep);
        told += !own;
    }
    if (placed == cover) return;
    if (l3mac_check_compact_fits(b, placed, cover, w, top)) return;
    if (!w.may.empty() && l3mac_check_serves(placed, w, top)) return;
    const std::string mac = l3mac_check_mac_text(k);
    // What such a MAC wants lies between its requests and all its rows,
    // and so does whether it fits: it is reported, not judged.
    const bool unsure = !w.may.empty();
    if (!b.pool[tcam]) {
        rep->note("unserved: %s: TCAM %d has no index pool", mac.c_str(), tcam);
        return;
    }
    const int64_t need = int64_t(cover.size()) + rep->fill[tcam] - int64_t(placed.size());
    const l3mac_pairs missing = l3mac_check_minus(cover, placed);
    const std::string uncovered = l3mac_check_uncovered(placed, w, top);
    const std::string detail = "; uncovered:" + uncovered + "; surplus:" +
                               l3mac_check_pairs_text(l3mac_check_minus(placed, cover)) +
                               "; missing:" + l3mac_check_pairs_text(missing);
    if (need <= int64_t(b.limit[tcam]) && !unsure) {
        for (const auto &[evlan, mask] : placed)
            if (evlan < end && l3mac_check_foreign(b, k, evlan, mask, w, m, rep)) told++;
        // Entries that only match too much are told each on its own line.
        if (told && missing.empty() && uncovered == " none") return;
        rep->violation("%s holds %zu entries where its cover has %zu, and TCAM %d has room "
                       "for it (%u of %u in use)%s", mac.c_str(), placed.size(), cover.size(),
                       tcam, rep->fill[tcam], b.limit[tcam], detail.c_str());
        return;
    }
    rep->unserved_macs++;
    rep->note("unserved: %s wants %zu entries, TCAM %d holds %u of %u%s", mac.c_str(),
              cover.size(), tcam, rep->fill[tcam], b.limit[tcam], detail.c_str());
}

}  // namespace

bool l3mac_check_cut(uint32_t key, uint32_t mask, bool is_vfi, uint32_t vfi_mask,
                     uint32_t *evlan, uint32_t *evlan_mask) {
    const uint32_t space = is_vfi ? (vfi_mask & 0xFFFF) : 0xFFF;
    const uint32_t cut = mask & 0xFFFF & space;
    if (key == 0 && cut == (is_vfi ? vfi_mask : 0xFFFu)) return false;
    *evlan = key;
    *evlan_mask = cut;
    return true;
}

namespace {

// The search's own result; a check must not fail for an allocation failure
// that a test plans for the service.
l3mac_pairs l3mac_check_cover_search(const std::set<uint32_t> &numbers, bool is_vfi,
                                     uint32_t vfi_mask) {
    static evlan_bmp_t bmp;
    bmp = evlan_bmp_t{};
    for (uint32_t n : numbers) l3mac_bmp_set(&bmp, n);
    bmp.is_vfi = is_vfi;
    list_head head;
    list_init(&head);
    const long planned = l3mac_mem_fail_after;
    l3mac_mem_fail_after = -1;
    l3mac_masklist_calc(&bmp, &head);
    l3mac_mem_fail_after = planned;
    l3mac_pairs out;
    for (list_head *p = head.next; p != &head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        uint32_t evlan, mask;
        if (l3mac_check_cut(t->key, t->mask, is_vfi, vfi_mask, &evlan, &mask))
            out.emplace(evlan, mask);
    }
    l3mac_masklist_free(&head);
    return out;
}

// A set's default cover depends on the set and its space alone, and a
// check after every step of a long sequence asks again for the covers of
// the same few sets: each is searched once. The memo is dropped whole once
// it holds a million numbers, so a tool that checks a large board stays
// within a few megabytes.
struct cover_memo_key {
    bool is_vfi;
    uint32_t vfi_mask;
    std::vector<uint32_t> numbers;
    auto operator<=>(const cover_memo_key &) const = default;
};

std::map<cover_memo_key, l3mac_pairs> g_cover_memo;
size_t g_cover_memo_numbers = 0;
constexpr size_t kCoverMemoNumbers = size_t{1} << 20;

}  // namespace

l3mac_pairs l3mac_check_cover(const std::set<uint32_t> &numbers, bool is_vfi,
                              uint32_t vfi_mask) {
    cover_memo_key key{is_vfi, vfi_mask, {numbers.begin(), numbers.end()}};
    if (auto it = g_cover_memo.find(key); it != g_cover_memo.end()) return it->second;
    l3mac_pairs cover = l3mac_check_cover_search(numbers, is_vfi, vfi_mask);
    if (g_cover_memo_numbers + numbers.size() > kCoverMemoNumbers)
        g_cover_memo.clear(), g_cover_memo_numbers = 0;
    g_cover_memo_numbers += numbers.size();
    g_cover_memo.emplace(std::move(key), cover);
    return cover;
}

uint32_t l3mac_check_top(const l3mac_check_board &b, bool is_vfi) {
    // A VFI mask above the 14 bits of the cover search widens no cover.
    return is_vfi ? std::min(b.vfi_mask, 16383u) : 4095;
}

bool l3mac_check_compact_fits(const l3mac_check_board &b, const l3mac_pairs &placed,
                              const l3mac_pairs &cover, const l3mac_check_wanted &w,
                              uint32_t top) {
    return b.compact_cover && placed.size() <= cover.size() &&
           l3mac_check_serves(placed, w, top);
}

bool l3mac_check_serves(const l3mac_pairs &entries, const l3mac_check_wanted &w, uint32_t top) {
    for (uint32_t n : w.need)
        if (n >= 1 && n < top && !l3mac_check_covers(entries, n)) return false;
    for (uint32_t v = 1; v <= top; v++)
        if (l3mac_check_covers(entries, v) && !w.need.count(v) && !w.may.count(v))
            return false;
    return true;
}

void l3mac_check_macs(const l3mac_check_board &b, const l3mac_check_model &m,
                      l3mac_check_report *rep) {
    std::set<l3mac_mac_key> keys;
    for (const auto &[k, w] : m.macs) keys.insert(k);
    for (const auto &[k, p] : m.placed) keys.insert(k);
    static const l3mac_check_wanted none;
    static const l3mac_pairs empty;
    for (const l3mac_mac_key &k : keys) {
        // Entries of a TCAM that is not managed are reported with their rows.
        if (!l3mac_check_managed(b, k.mac_type)) continue;
        rep->macs++;
        auto w = m.macs.find(k);
        auto p = m.placed.find(k);
        l3mac_check_wanted want = w == m.macs.end() ? none : w->second;
        auto f = m.failed.find({k.mac_type, k.mac});
        if (f != m.failed.end()) want.may.insert(f->second.begin(), f->second.end());
        l3mac_check_one_mac(b, k, want, p == m.placed.end() ? empty : p->second, m, rep);
    }
}

std::string l3mac_check_mac_text(const l3mac_mac_key &k) {
    char buf[80];
    std::snprintf(buf, sizeof buf, "MAC %02x:%02x:%02x:%02x:%02x:%02x type %u phyid %u",
                  k.mac[0], k.mac[1], k.mac[2], k.mac[3], k.mac[4], k.mac[5], k.mac_type,
                  k.phyid);
    return buf;
}

std::string l3mac_check_direct_text(const l3mac_direct_key &k) {
    char buf[80];
    std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x type %u evlan %u", k.mac[0],
                  k.mac[1], k.mac[2], k.mac[3], k.mac[4], k.mac[5], k.mac_type, k.evlan);
    return buf;
}
