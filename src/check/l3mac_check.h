// Consistency check of the service: the rules that its tables must obey
// towards each other and towards the requests (applied by hnx-l3mac-check
// to a store on disk), and the in-process form that also walks the live
// stores, lists, pools and counts. A diagnostic: the daemon never runs it.
// This is all that the tools, tests and fuzz targets see of the check; the
// model of what the requests want and the per-file helpers stay inside
// src/check.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include <protobuf-c/protobuf-c.h>

// What a check found. Violations make it fail; notes tell what is as the
// service intends but worth knowing (requests that a full TCAM cannot
// serve, rows that the service does not act on).
struct l3mac_check_report {
    std::vector<std::string> violations;
    std::vector<std::string> notes;
    // Input rows that give the service no request, each with its key and
    // the reason: the requester's mistake, not damage to the tables.
    std::vector<std::string> refused;
    uint32_t managed_requests = 0;
    uint32_t direct_requests = 0;
    uint32_t macs = 0;             // managed MACs wanted or holding entries
    uint32_t unserved_macs = 0;    // of them, not placed for lack of room
    uint32_t direct_rows = 0;
    std::array<uint32_t, 2> fill{};   // output entries per TCAM
    std::array<uint32_t, 2> limit{};  // what each pool may hold

    bool ok() const { return violations.empty(); }
    void violation(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
    void note(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
};

// The board as the rules need it: which TCAMs exist and are managed, their
// sizes, and the VFI space.
struct l3mac_check_board {
    std::array<bool, 2> is_mng{};
    std::array<bool, 2> pool{};        // the TCAM has an index pool
    std::array<int32_t, 2> cap{};      // indexes 0 .. cap-1
    std::array<uint32_t, 2> limit{};   // entries the pool holds at most
    bool tcam2_en = false;
    bool copy_to_tcam2 = false;
    uint32_t vfi_mask = 1;
    // Compact covers: a MAC's entries are any exact cover of its set with
    // no more entries than the default search's, and depend on the entries
    // it held before, so they are judged by what they match, not compared.
    bool compact_cover = false;
    bool operator==(const l3mac_check_board &) const = default;
};

// The TCAM of a mac_type on this board: every type goes to the second TCAM
// once its pool exists on a board that copies to it.
inline int l3mac_check_tcam_of(const l3mac_check_board &b, uint32_t mac_type) {
    if (b.copy_to_tcam2 && b.pool[1]) return 1;
    return (mac_type & 0xFF) == 1 || (mac_type & 0xFF) == 3 ? 1 : 0;
}

// The TCAM index of an output row's hw_id: an entry of the second TCAM with
// phase 0 stands at tcam_cap + idx on a board that uses both TCAMs at once.
inline uint32_t l3mac_check_idx_of(const l3mac_check_board &b, int tcam, uint32_t hw_id,
                                   uint32_t phase) {
    const bool both = b.pool[0] && b.pool[1] && !b.copy_to_tcam2;
    if (both && tcam == 1 && phase == 0 && b.cap[0] > 0)
        return hw_id - static_cast<uint32_t>(b.cap[0]);
    return hw_id;
}

inline uint32_t l3mac_check_hw_id_of(const l3mac_check_board &b, int tcam, uint32_t idx,
                                     uint32_t phase) {
    const bool both = b.pool[0] && b.pool[1] && !b.copy_to_tcam2;
    if (both && tcam == 1 && phase == 0 && b.cap[0] > 0)
        return idx + static_cast<uint32_t>(b.cap[0]);
    return idx;
}

// The board of the service as it stands: the profile that bring-up read,
// and the pools as it made them.
l3mac_check_board l3mac_check_board_live();
// The board that the service would bring up from the profile under the
// current file root, read through the capability service; with `defaults`,
// of the built-in values that a missing profile gives, without looking for
// the file. A profile that cannot be read gives the built-in values too (the
// capability service says why on standard error). For the tools: the
// service's own state is left alone.
l3mac_check_board l3mac_check_board_of_profile(bool defaults = false);

// One row of s_route.l3mac_hw_res, s_route.l3mac_bak or
// s_route.l3mac_vrrp_hw_res as plain values. `has_attr` is false for a row
// without its entry; `mac_ok` is false for an address that is not 6 bytes.
struct l3mac_check_hw {
    uint32_t hw_id = 0;
    uint32_t phase = 0;
    bool has_attr = false;
    uint32_t evlan = 0;
    uint32_t evlan_mask = 0;
    uint32_t mac_type = 0;
    uint32_t phyid = 0;
    std::array<uint8_t, 6> mac{};
    bool mac_ok = false;
};

// One row of s_route.l3mac_res as plain values.
struct l3mac_check_res {
    bool has_index = false;
    uint32_t t_user = 0;
    std::string uuid;
    uint32_t status = 0;
    bool has_attr = false;
    uint32_t evlan = 0;
    uint32_t mac_type = 0;
    uint32_t phyid = 0;
    std::array<uint8_t, 6> mac{};  // as the service reads it: zero unless 6 bytes
    int mac_len = -1;              // bytes of attr.mac as written; -1 without one
};

struct l3mac_check_rows {
    std::vector<l3mac_check_res> res;
    std::vector<l3mac_check_hw> hw_res;
    std::vector<l3mac_check_hw> bak;
    std::vector<l3mac_check_hw> vrrp;
};

// Adds a row of one of the four tables, told by its descriptor. False for
// a message of another kind.
bool l3mac_check_add_row(l3mac_check_rows *rows, const ProtobufCMessage *row);

// Reads the four tables of store 16 through the table service.
void l3mac_check_read_tables(l3mac_check_rows *rows);

struct l3mac_check_opts {
    // The service has just started and run its first round, and no request
    // came since. The rules stay the same: it only tells how an entry that
    // a row the service does not take asks for came to be (left over from
    // before the start, rather than the key's earlier request still served).
    bool restarted = false;
};

// The rules between the tables and the requests of the input table as it
// stands: a row that the service refuses, or whose status is not
// STATUS_REQUEST (its own STATUS_FAILED mark aside), asks for nothing,
// although a running service keeps serving what that row's key asked
// before; an entry that only such a row explains is a violation.
void l3mac_check_tables(const l3mac_check_rows &rows, const l3mac_check_board &board,
                        const l3mac_check_opts &opts, l3mac_check_report *rep);

// The rules of what the users wrote, beside those of the tables: every
// input row that gives the service no request is listed in `refused` with
// the reason; a request, an output entry or a direct row of the all-zero
// MAC is a violation that names the input rows behind it. The in-process
// check leaves these out: the service reads any MAC that is not 6 bytes as
// zero by design, and its tests feed such rows on purpose.
void l3mac_check_input(const l3mac_check_rows &rows, const l3mac_check_board &board,
                       l3mac_check_report *rep);

struct l3mac_check_live_opts {
    // A decision round has finished and nothing came since: only a MAC
    // whose TCAM has no pool may still be pending.
    bool round_done = true;
    // That round treated every MAC (the first round after smoothing).
    bool restarted = false;
    // Allocation failures were injected: records may hold attributes that
    // their failed bind could not act on, and changes may be half done.
    bool faults = false;
    // Also compare the live state with the rows of the four tables.
    bool tables = true;
    // The backup table held rows that this service did not write: those it
    // skipped stay, and a MAC that failed keeps what they gave it.
    bool foreign_backup = false;
};

// The in-process check: stores, lists, pools and counts, the MACs' entries
// against the covers of their users, and (opts.tables) the rows. Violations
// and notes go to `rep`. Reads only.
void l3mac_check_live(const l3mac_check_live_opts &opts, l3mac_check_report *rep);

// The four stores as hash tables (buckets, counts, every record reached by
// its own key) and malloc_db against their live records.
void l3mac_check_stores(l3mac_check_report *rep);

// An entry as the checks name it: its MAC record's key and its value/mask.
struct l3mac_mac_key {
    uint8_t mac_type;
    std::array<uint8_t, 6> mac;
    uint32_t phyid;
    auto operator<=>(const l3mac_mac_key &) const = default;
};

struct l3mac_entry_key {
    l3mac_mac_key mac;
    uint32_t evlan;
    uint32_t evlan_mask;
    auto operator<=>(const l3mac_entry_key &) const = default;
};

// "MAC 00:0a:00:00:00:01 type 1 phyid 0", as the report's lines name a MAC.
std::string l3mac_check_mac_text(const l3mac_mac_key &k);

// Why the service takes no request from a row of s_route.l3mac_res on this
// board, in the words that hnx-l3mac-check lists refused rows with and
// hnx-tbl warns with: the first of its checks that refuses the row, or the
// status that leaves it alone. "" when the row is a request that the
// service takes in, or its own failure mark.
std::string l3mac_check_refusal(const l3mac_check_res &r, const l3mac_check_board &b);
