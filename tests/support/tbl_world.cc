// The per-test table service world: see tbl_world.h.
#include "support/tbl_world.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "platform/host/hnx_host.h"

namespace fs = std::filesystem;

void TblWorld::SetUp() {
    char tmpl[] = "/tmp/hnx-tbl-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    hnx_host_set_root(root_);
    hnx_host_tbl_reset();
    // Templates as the daemon gives them: a blank row and a blank key of each table.
    SRoute__L3macRes res = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey res_key = S_ROUTE__RES_SUB_KEY__INIT;
    SRoute__L3macHwRes hw = S_ROUTE__L3MAC_HW_RES__INIT;
    SRoute__L3macHwKey hw_key = S_ROUTE__L3MAC_HW_KEY__INIT;
    SRoute__L3macBak bak = S_ROUTE__L3MAC_BAK__INIT;
    SRoute__L3macHwAttr attr = S_ROUTE__L3MAC_HW_ATTR__INIT;
    SRoute__L3macVrrpHwRes vrrp = S_ROUTE__L3MAC_VRRP_HW_RES__INIT;
    res_ = ss_rt_tbl_create_detail(16, 1, &res.base, 24, 12, &res_key.base, 20, 0);
    hw_res_ = ss_rt_tbl_create_detail(16, 1, &hw.base, 20, 12, &hw_key.base, 20, 1);
    bak_ = ss_rt_tbl_create_detail(16, 1, &bak.base, 24, 12, &attr.base, 32, 1);
    vrrp_ = ss_rt_tbl_create_detail(16, 1, &vrrp.base, 16, 12, &attr.base, 32, 1);
    ASSERT_TRUE(res_ && hw_res_ && bak_ && vrrp_);
}

void TblWorld::TearDown() {
    hnx_host_tbl_reset();
    std::error_code ec;
    fs::remove_all(root_, ec);
}

pid_t TblWorld::in_child(const std::function<void()> &fn) {
    pid_t pid = fork();
    if (pid == 0) {
        fn();
        _exit(0);
    }
    return pid;
}

bool TblWorld::child_ok(pid_t pid) {
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > until) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

hw_row::hw_row(uint32_t hw_id, uint32_t evlan, bool with_attr) {
    key.hw_id = hw_id;
    mac.data = {6, mac_bytes};
    attr.evlan = evlan, attr.evlan_mask = 0xfff, attr.mac = &mac;
    res.index = &key;
    res.attr = with_attr ? &attr : nullptr;
}
