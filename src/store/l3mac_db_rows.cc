// Column headers and rows of the four stores, as the dumps and the debug
// commands print them.
#include <cstdio>
#include <cstring>

#include "platform/ssat.h"
#include "store/l3mac_store_traits.h"

namespace {

constexpr size_t ROW_BUF = 1000;

// Formats into a cleared buffer and prints it: a line longer than the
// buffer is cut, never overrun.
template <class... A> void print_line(const char *fmt, A... args) {
    char buf[ROW_BUF];
    std::memset(buf, 0, sizeof buf);
    at_snprintf(buf, sizeof buf, fmt, args...);
    std::printf("%s", buf);
}

}  // namespace

void l3mac_store_traits<mac_entry>::header() {
    print_line("\n%-10s%-20s%-10s\n", "mac_type", "mac", "phyid");
}

void l3mac_store_traits<mac_entry>::row(const mac_entry *r) {
    print_line("%-10d%-20m%-#10x\n", int{r->mac_type}, r->mac, r->phyid);
}

void l3mac_store_traits<tcam_entry>::header() {
    print_line("\n%-10s%-20s%-10s%-20s%-10s%-10s%-10s%-10s\n", "evlan",
               "evlan_mask", "mac_type", "mac", "phyid", "idx", "ref_cnt",
               "valid");
}

void l3mac_store_traits<tcam_entry>::row(const tcam_entry *r) {
    const tcam_key &k = r->key;
    print_line("%-10d%-20d%-10d%-20m%-#10x%-10d%-10d%-10d\n", k.evlan,
               k.evlan_mask, int{k.mac_type}, k.mac, k.phyid, r->idx,
               r->ref_cnt, int{r->valid});
}

void l3mac_store_traits<user_entry>::header() {
    print_line("\n%-10s%-30s%-16s%-10s%-10s%-15s%-20s%-10s\n", "user", "uuid",
               "is_match_evlan", "mac_type", "evlan", "mac_entry", "mac",
               "phyid");
}

// uuid is printed from a terminated copy: the key bytes need not hold a 0.
void l3mac_store_traits<user_entry>::row(const user_entry *r) {
    char uuid[sizeof r->uuid + 1];
    std::memcpy(uuid, r->uuid, sizeof r->uuid);
    uuid[sizeof r->uuid] = '\0';
    print_line("%-10d%-30s%-16d%-10d%-10d%-15p%-20m%-#10x\n", r->user, uuid,
               int{r->is_match_evlan}, int{r->mac_type}, r->evlan,
               r->mac_entry, r->mac, r->phyid);
}

void l3mac_store_traits<mac_hw>::header() {
    print_line("\n%-10s%-12s%-10s%-15s%-10s\n", "evlan", "evlan_mask",
               "mac_type", "mac", "is_hw");
}

void l3mac_store_traits<mac_hw>::row(const mac_hw *r) {
    print_line("%-10d%-12d%-10d%-15m%-10d\n", r->evlan, r->evlan_mask,
               int{r->mac_type}, r->mac, int{r->is_hw});
}
