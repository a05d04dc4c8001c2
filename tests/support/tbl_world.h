// A fresh table service for one test: a temporary file root with empty
// stores, the four tables of store 16 created as the daemon creates them,
// and helpers to write from another process.
#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

#include <gtest/gtest.h>

#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"

class TblWorld : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Runs `fn` in a forked child, which then exits; returns the child.
    static pid_t in_child(const std::function<void()> &fn);
    // Waits for the child, bounded; true when it exited with status 0.
    static bool child_ok(pid_t pid);

    std::string root_;
    ss_rt_tbl *res_ = nullptr;
    ss_rt_tbl *hw_res_ = nullptr;
    ss_rt_tbl *bak_ = nullptr;
    ss_rt_tbl *vrrp_ = nullptr;
};

// A row of s_route.l3mac_hw_res on the stack; without attr it is a delete.
struct hw_row {
    SRoute__L3macHwKey key = S_ROUTE__L3MAC_HW_KEY__INIT;
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    SRoute__L3macHwRes res = S_ROUTE__L3MAC_HW_RES__INIT;
    uint8_t mac_bytes[6] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};

    hw_row(uint32_t hw_id, uint32_t evlan, bool with_attr = true);
    hw_row(const hw_row &) = delete;
    const ProtobufCMessage *get() const { return &res.base; }
};
