// Fixture and helpers of the managed-path tests: board profiles, users'
// requests, a process restart over the same table store, and the rows of
// the output, backup and input tables as plain values.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <vector>

#include "decision/l3mac_mac.h"
#include "decision/l3mac_mask.h"
#include "support/l3mac_world.h"
#include "tcam/l3mac_tcam.h"

using mac6 = std::array<uint8_t, 6>;

// An entry as a row of s_route.l3mac_hw_res, s_route.l3mac_bak or
// s_route.l3mac_vrrp_hw_res shows it.
struct hw_entry {
    uint32_t hw_id = 0, phase = 0, evlan = 0, evlan_mask = 0, mac_type = 0, phyid = 0;
    mac6 mac{};
    bool has_attr = true;  // false: a delete of the output table
    auto operator<=>(const hw_entry &) const = default;
};

// One write of this process to the output, backup or VRRP output table.
struct tbl_op {
    std::string table;  // "hw_res", "bak" or "vrrp"
    bool is_add = false;
    hw_entry entry;
    bool operator==(const tbl_op &) const = default;
};

std::ostream &operator<<(std::ostream &os, const hw_entry &e);
std::ostream &operator<<(std::ostream &os, const tbl_op &op);

// Standing rows of the output and backup tables, sorted.
std::vector<hw_entry> managed_hw_rows();
std::vector<hw_entry> managed_bak_rows();
// The journal's writes to the three tables in call order, or to one of
// them ("hw_res", "bak" or "vrrp").
std::vector<tbl_op> managed_journal(const std::string &table = "");

// The uuid of one user's request for one VLAN of a MAC.
std::string managed_uuid(const mac6 &mac, uint32_t mac_type, uint32_t vlan);
// Lines of <root>/var/log/hnx.log that hold `text`.
int managed_log_count(const std::string &root, const std::string &text);
// Replaces the platform's monotonic clock by one at `now_us` (the fixture
// gives the real one back at the end of a test).
void managed_clock_set(int64_t now_us);

// A template as the cover search makes it, owned by the holder.
struct managed_tpl {
    mask_template *tpl;
    managed_tpl(uint32_t key, uint32_t mask);
    ~managed_tpl();
    managed_tpl(const managed_tpl &) = delete;
};

class ManagedWorld : public L3macWorld {
protected:
    void TearDown() override;
    // Brings the service up on the board and runs data smoothing over an
    // empty store. Rounds run only when a test calls them.
    void start(const l3mac_caps &b = {});
    // A new process over the same table store, smoothing not yet run.
    void restart();

    // A user's request as the table service hands it to the set handler;
    // the user's delete of its row.
    int request(uint32_t user, const std::string &uuid, uint32_t evlan, uint32_t mac_type,
                const mac6 &mac, uint32_t phyid = 0);
    int withdraw(uint32_t user, const std::string &uuid);
    // The same rows written or deleted while the service is not there.
    static void write_request(uint32_t user, const std::string &uuid, uint32_t evlan,
                              uint32_t mac_type, const mac6 &mac);
    static void erase_request(uint32_t user, const std::string &uuid);
    // One request of `user` per VLAN of the MAC, uuids from managed_uuid.
    void want(const mac6 &mac, std::initializer_list<uint32_t> vlans, uint32_t mac_type = NORMAL,
              uint32_t user = 1, bool keep = true);
    void unwant(const mac6 &mac, std::initializer_list<uint32_t> vlans, uint32_t mac_type = NORMAL) {
        want(mac, vlans, mac_type, 1, false);
    }

    static mac_entry *mac_of(uint32_t mac_type, const mac6 &mac, uint32_t phyid = 0) {
        return L3macWorld::mac_of(mac_type, mac.data(), phyid);
    }
    static std::vector<tcam_entry *> entries_of(const mac_entry *mac);
    // {evlan, evlan_mask, idx} of the MAC's entries, sorted by evlan.
    static std::vector<std::array<uint32_t, 3>> placed(const mac_entry *mac);
    static uint32_t in_use(int tcam_id = 0);
    static bool pending(const mac_entry *mac) { return !list_empty(&mac->pending_lst); }
};
