// A fresh service for one test: a temporary file root, an empty table
// store, a runtime whose loop never runs (ticks and smoothing are called by
// the test), zeroed state and counters.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/sw_rt_res.h"
#include "s_route.pb-c.h"

struct list_head;
struct mac_entry;
struct user_entry;

// Values of a test profile; the defaults are the board's built-in ones.
struct l3mac_caps {
    bool tcam2_en = false;
    bool is_mng = true;
    bool is_mng2 = true;
    bool copy_to_tcam2 = true;
    int32_t algo = 2;
    int32_t tcam_cap = 256;
    int32_t tcam2_cap = 256;
    int32_t rsvd_size = 0;
    int32_t dec_cnt = 5;
    int32_t evlan_num = 4096;
};

// The capability file's text for these values.
std::string l3mac_caps_json(const l3mac_caps &caps);

class L3macWorld : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Writes <root>/etc/hnx/capability.json.
    void write_profile(const std::string &json);
    void write_caps(const l3mac_caps &caps) { write_profile(l3mac_caps_json(caps)); }

    // Creates the four tables as main does and runs the connect callback:
    // the profile is read, the stores, pools and timer made, handlers
    // subscribed. Smoothing is not run.
    void bring_up();

    // A row through the set handler, or its key through the delete handler.
    static int set_row(uint32_t user, const std::string &uuid, uint32_t evlan,
                       uint32_t mac_type, const uint8_t (&mac)[6], uint32_t phyid = 0);
    static int del_row(uint32_t user, const std::string &uuid);

    // Sets the log level and budget as the `debug` command would, silently.
    static void set_log(uint32_t level, int32_t budget = -1);

    // Count of a failure table slot.
    static uint32_t err_count(int code) { return g_sw_rt_res_ss_err_cnt[code].count; }
    static const sw_rt_res_err_slot &err_slot(int code) { return g_sw_rt_res_ss_err_cnt[code]; }

    // Standard output between capture_stdout() and captured_stdout().
    static void capture_stdout() { testing::internal::CaptureStdout(); }
    static std::string captured_stdout();

    std::string root_;
};

// A set row of s_route.l3mac_res, built on the stack for handler calls.
struct l3mac_row {
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    SRoute__L3macAttr attr = S_ROUTE__L3MAC_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    SRoute__L3macRes res = S_ROUTE__L3MAC_RES__INIT;
    uint8_t mac_bytes[6] = {};
    std::string uuid;

    l3mac_row(uint32_t user, std::string uuid, uint32_t evlan,
              uint32_t mac_type, const uint8_t (&m)[6], uint32_t phyid = 0,
              uint32_t status = S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST);
    l3mac_row(const l3mac_row &) = delete;
    const SRoute__L3macRes *get() const { return &res; }
};

// A row that the service wrote to s_route.l3mac_vrrp_hw_res, unpacked.
struct l3mac_hw_write {
    bool is_add;
    uint32_t evlan;
    uint32_t evlan_mask;
    uint32_t mac_type;
    std::array<uint8_t, 6> mac;
    uint32_t phyid;
    bool operator==(const l3mac_hw_write &) const = default;
};

std::ostream &operator<<(std::ostream &os, const l3mac_hw_write &w);

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
};

// The writes of the journal to one of these tables, in call order.
std::vector<l3mac_hw_write> l3mac_vrrp_writes();
std::vector<l3mac_res_write> l3mac_res_writes();

// The user entries on a user_head list, and the pending MACs, from the front.
std::vector<user_entry *> l3mac_users_on(list_head *head);
std::vector<mac_entry *> l3mac_pending();

// Occurrences of `needle` in `text`.
int l3mac_count_of(const std::string &text, const std::string &needle);

// Log lines "[word]func:%4d|text" in `out`, whatever their source line.
int l3mac_count_lines(const std::string &out, const std::string &word,
                      const std::string &func, const std::string &text);

// The exact log line of a site whose source line is known (a failure
// slot's `line`).
std::string l3mac_line(const std::string &word, const std::string &func, int line,
                       const std::string &text);
