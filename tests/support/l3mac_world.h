// A fresh service for one test: a temporary file root, an empty table
// store, a runtime whose loop never runs (ticks and smoothing are called by
// the test), zeroed state and counters.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "request/l3mac_user.h"
#include "support/service_world.h"

struct user_entry;

inline constexpr uint8_t kMacA[6] = {0x00, 0x0a, 0x00, 0x00, 0x00, 0x01},
                         kMacB[6] = {0x00, 0x0b, 0x00, 0x00, 0x00, 0x02};
inline constexpr uint32_t NORMAL = S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL, OL = S_ROUTE__L3MAC_TYPE_E__L3MAC_OL,
                          VRRP = S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP, TNL = S_ROUTE__L3MAC_TYPE_E__L3MAC_TNL,
                          SUBIF = S_ROUTE__L3MAC_TYPE_E__L3MAC_SUBIF;

class L3macWorld : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Writes <root>/etc/hnx/capability.json.
    void write_profile(const std::string &json) { l3mac_profile_write(root_, json); }
    void write_caps(const l3mac_caps &caps) { l3mac_caps_write(root_, caps); }

    // The service brought up as main brings it up (l3mac_service_up).
    void bring_up() { ASSERT_TRUE(l3mac_service_up()); }

    // A row through the set handler, or its key through the delete handler.
    static int set_row(uint32_t user, const std::string &uuid, uint32_t evlan,
                       uint32_t mac_type, const uint8_t *mac, uint32_t phyid = 0);
    static int del_row(uint32_t user, const std::string &uuid);

    // Sets the log level and budget as the `debug` command would, silently.
    static void set_log(uint32_t level, int32_t budget = -1);

    // Count of a failure table slot.
    static uint32_t err_count(int code) { return g_sw_rt_res_ss_err_cnt[code].count; }
    static const sw_rt_res_err_slot &err_slot(int code) { return g_sw_rt_res_ss_err_cnt[code]; }

    // Standard output between capture_stdout() and captured_stdout().
    static void capture_stdout() { testing::internal::CaptureStdout(); }
    static std::string captured_stdout();

    // The user entry of the key, when there is one.
    static user_entry *user_of(uint32_t user, const std::string &uuid) {
        return l3mac_get_or_add_user_db(user, uuid.c_str(), 0);
    }
    // Takes every MAC off the pending list, as a finished decision does.
    static void settle_all() {
        while (!list_empty(&l3mac_pending_head)) list_del_init(l3mac_pending_head.next);
    }
    // The MAC record of the key, when there is one.
    static mac_entry *mac_of(uint32_t mac_type, const uint8_t *mac, uint32_t phyid = 0) {
        return sw_l3mac_get_or_add_mac_db(static_cast<uint8_t>(mac_type), mac, phyid, 0);
    }

    std::string root_;
};

// A set row of s_route.l3mac_res, built on the stack for handler calls.
struct l3mac_row : l3mac_res_parts {
    std::string uuid;
    l3mac_row(uint32_t user, std::string uuid, uint32_t evlan, uint32_t mac_type, const uint8_t *m,
              uint32_t phyid = 0, uint32_t status = S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST);
};

// A row that the service wrote to s_route.l3mac_res, unpacked.
struct l3mac_res_write {
    bool is_add;
    uint32_t user;
    std::string uuid;
    uint32_t status;
    bool is_match_evlan;
    uint32_t evlan;
    uint32_t mac_type;
    std::vector<uint8_t> mac;
    uint32_t phyid;
    bool operator==(const l3mac_res_write &) const = default;
};

// The journal's writes to this table, in call order.
std::vector<l3mac_res_write> l3mac_res_writes();

// The user entries on a user_head list, and the pending MACs, from the front.
std::vector<user_entry *> l3mac_users_on(list_head *head);
std::vector<mac_entry *> l3mac_pending();

// Standard output of one call of `f`, whose result goes to *rv.
template <class F> std::string out_of(F f, int *rv = nullptr) {
    testing::internal::CaptureStdout();
    const int r = f();
    if (rv) *rv = r;
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// Standard error of one call of `f`.
template <class F> std::string err_of(F f) {
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}

// Occurrences of `needle` in `text`.
int l3mac_count_of(const std::string &text, const std::string &needle);

// Log lines "[word]func:%4d|text" in `out`, whatever their source line.
int l3mac_count_lines(const std::string &out, const std::string &word,
                      const std::string &func, const std::string &text);

// The exact log line of a site whose source line is known (a failure
// slot's `line`).
std::string l3mac_line(const std::string &word, const std::string &func, int line,
                       const std::string &text);
