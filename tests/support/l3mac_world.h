// A fresh service for one test: a temporary file root, an empty table
// store, a runtime whose loop never runs (ticks and smoothing are called by
// the test), zeroed state and counters.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "s_route.pb-c.h"

class L3macWorld : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Writes <root>/etc/hnx/capability.json.
    void write_profile(const std::string &json);

    // Creates the four tables as main does and runs the connect callback:
    // the profile is read, the stores, pools and timer made, handlers
    // subscribed. Smoothing is not run.
    void bring_up();

    // Sets the log level and budget as the `debug` command would, silently.
    static void set_log(uint32_t level, int32_t budget = -1);

    // Count of a failure table slot.
    static uint32_t err_count(int code);

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
