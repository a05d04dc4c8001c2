// The pieces of a service world that the tests and the fuzz targets share,
// free of any test framework: board profiles, a zeroed service brought up
// as main brings it up, and request rows built on the stack.
#pragma once

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "decision/l3mac_mac.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_main.h"
#include "frame/l3mac_mem.h"
#include "platform/sw_rt_res.h"
#include "s_route.pb-c.h"

// Values of a board profile; the defaults are the board's built-in ones.
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
    bool compact_cover = false;  // written only when set, as most boards leave it out
};

// The capability file's text for these values.
inline std::string l3mac_caps_json(const l3mac_caps &c) {
    auto b = [](bool v) { return v ? "true" : "false"; };
    char j[512];
    std::snprintf(j, sizeof j,
                  "{\"s_route\": {\"l3mac\": {\"capacity\": {\"algo\": %d, \"tcam-cap\": %d, "
                  "\"tcam2-cap\": %d, \"rsvd-size\": %d}, \"ability\": {\"tcam2-en\": %s, "
                  "\"is-mng\": %s, \"is-mng2\": %s, \"copy-to-tcam2\": %s}}, \"l3intf\": "
                  "{\"capacity\": {\"l3mac-dec-cnt\": %d}}}, \"s_bridge\": {\"ebridge\": "
                  "{\"capacity\": {\"evlan_num\": %d}}}}",
                  c.algo, c.tcam_cap, c.tcam2_cap, c.rsvd_size, b(c.tcam2_en), b(c.is_mng),
                  b(c.is_mng2), b(c.copy_to_tcam2), c.dec_cnt, c.evlan_num);
    std::string out = j;
    if (c.compact_cover) out.insert(out.find("\"ability\": {") + 12, "\"compact-cover\": true, ");
    return out;
}

// Writes <root>/etc/hnx/capability.json; no file when `json` is empty.
inline void l3mac_profile_write(const std::string &root, const std::string &json) {
    const std::string dir = root + "/etc/hnx";
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (json.empty()) std::filesystem::remove(dir + "/capability.json", ec);
    else std::ofstream(dir + "/capability.json") << json;
}
inline void l3mac_caps_write(const std::string &root, const l3mac_caps &caps) {
    l3mac_profile_write(root, l3mac_caps_json(caps));
}

// The service's state as a fresh process has it: all zero, the pending
// list empty, the statics at their load values, the log closed.
inline void l3mac_service_reset() {
    std::memset(&l3mac_ctx, 0, sizeof l3mac_ctx);
    list_init(&l3mac_pending_head);
    l3mac_commom_decision_counter = 5;
    l3mac_mem_fail_after = -1;
    g_rt_l3tb_log_level = 0;
    g_rt_l3tb_log_cnt = -1;
}

// The four tables made as main makes them, and the connect callback: the
// profile read, the stores, pools and timer made, the handlers subscribed.
// Smoothing is not run. False when the runtime cannot start.
inline bool l3mac_service_up() {
    l3mac_ctx.global = kw_global_init("hnx-l3table-l3mac", 0);
    if (!l3mac_ctx.global) return false;
    l3mac_tbl_init();
    l3mac_connect_cb();
    return true;
}

// A row of s_route.l3mac_res on the stack, its parts linked; a six-byte MAC.
struct l3mac_res_parts {
    SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
    SRoute__L3macAttr attr = S_ROUTE__L3MAC_ATTR__INIT;
    PLibpub__Mac mac = P_LIBPUB__MAC__INIT;
    SRoute__L3macRes res = S_ROUTE__L3MAC_RES__INIT;
    uint8_t mac_bytes[6] = {};

    l3mac_res_parts() {
        mac.data = {6, mac_bytes};
        attr.mac = &mac;
        res.index = &key;
        res.attr = &attr;
    }
    l3mac_res_parts(const l3mac_res_parts &) = delete;
    const SRoute__L3macRes *get() const { return &res; }
};
