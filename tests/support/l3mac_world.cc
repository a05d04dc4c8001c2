// The per-test service world: see l3mac_world.h.
#include "support/l3mac_world.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "decision/l3mac_mac.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_main.h"
#include "frame/l3mac_mem.h"
#include "platform/host/hnx_host.h"
#include "platform/sw_rt_res.h"

namespace fs = std::filesystem;

void L3macWorld::SetUp() {
    char tmpl[] = "/tmp/l3mac-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    hnx_host_set_root(root_);
    hnx_host_tbl_reset();
    std::memset(&l3mac_ctx, 0, sizeof l3mac_ctx);
    list_init(&l3mac_pending_head);
    l3mac_commom_decision_counter = 5;
    l3mac_mem_fail_after = -1;
    std::memset(g_sw_rt_res_ss_err_cnt, 0, sizeof g_sw_rt_res_ss_err_cnt);
    set_log(0, -1);
}

void L3macWorld::TearDown() {
    hnx_host_tbl_reset();
    std::error_code ec;
    fs::remove_all(root_, ec);
}

void L3macWorld::write_profile(const std::string &json) {
    fs::create_directories(root_ + "/etc/hnx");
    std::ofstream(root_ + "/etc/hnx/capability.json") << json;
}

void L3macWorld::bring_up() {
    l3mac_ctx.global = kw_global_init("hnx-l3table-l3mac", 0);
    ASSERT_NE(l3mac_ctx.global, nullptr);
    l3mac_tbl_init();
    l3mac_connect_cb();
}

void L3macWorld::set_log(uint32_t level, int32_t budget) {
    g_rt_l3tb_log_level = level;
    g_rt_l3tb_log_cnt = budget;
}

uint32_t L3macWorld::err_count(int code) {
    return g_sw_rt_res_ss_err_cnt[code].count;
}

l3mac_row::l3mac_row(uint32_t user, std::string u, uint32_t evlan,
                     uint32_t mac_type, const uint8_t (&m)[6], uint32_t phyid,
                     uint32_t status)
    : uuid(std::move(u)) {
    std::memcpy(mac_bytes, m, 6);
    key.t_user = user;
    key.uuid = uuid.data();
    mac.data.len = 6;
    mac.data.data = mac_bytes;
    attr.evlan = evlan;
    attr.mac_type = static_cast<SRoute__L3macTypeE>(mac_type);
    attr.mac = &mac;
    attr.phyid = phyid;
    res.index = &key;
    res.status = static_cast<SRoute__L3tableStatusE>(status);
    res.attr = &attr;
}
