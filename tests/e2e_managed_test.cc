// The managed path end to end: the daemon under a temporary root, users'
// rows written with hnx-tbl, and the output and backup tables read from
// the store, across a kill and a restart.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "decision/l3mac_mask.h"
#include "platform/host/hnx_host.h"
#include "support/managed_proc.h"
#include "support/managed_world.h"

namespace {

const mac6 kA{2, 0, 0, 0, 0, 0x0A}, kB{2, 0, 0, 0, 0, 0x0B}, kC{2, 0, 0, 0, 0, 0x0C},
    kD{2, 0, 0, 0, 0, 0x0D};

std::string mac_text(const mac6 &m) {
    char buf[18];
    std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2],
                  m[3], m[4], m[5]);
    return buf;
}

// The entries that the cover search gives for a VLAN set, without the
// filler template.
std::vector<hw_entry> cover(const mac6 &mac, uint32_t mac_type,
                            std::initializer_list<uint32_t> vlans) {
    evlan_bmp_t bmp{};
    for (uint32_t v : vlans) l3mac_bmp_set(&bmp, v);
    list_head head;
    list_init(&head);
    EXPECT_EQ(l3mac_masklist_calc(&bmp, &head), 0);
    std::vector<hw_entry> out;
    for (list_head *p = head.next; p != &head; p = p->next) {
        const mask_template *t = l3mac_mask_of(p);
        const uint32_t cut = t->mask & 0xFFF;
        if (t->key == 0 && cut == 0xFFF) continue;
        out.push_back({.evlan = t->key, .evlan_mask = cut, .mac_type = mac_type, .mac = mac});
    }
    l3mac_masklist_free(&head);
    return out;
}

std::vector<hw_entry> join(std::initializer_list<std::vector<hw_entry>> parts) {
    std::vector<hw_entry> out;
    for (const auto &p : parts) out.insert(out.end(), p.begin(), p.end());
    std::sort(out.begin(), out.end());
    return out;
}

// Both tables hold exactly `want`, each entry at the same hw_id in both.
bool tables_hold(const std::vector<hw_entry> &want) {
    auto hw = managed_hw_rows(), bak = managed_bak_rows();
    if (hw.size() != bak.size()) return false;
    for (size_t i = 0; i < hw.size(); i++)
        if (hw[i].hw_id != bak[i].hw_id || hw[i].evlan != bak[i].evlan) return false;
    for (hw_entry &e : hw) e.hw_id = e.phase = 0;
    std::sort(hw.begin(), hw.end());
    return hw == want;
}

class ManagedE2e : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/l3mac-e2e-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        std::filesystem::create_directories(root_ + "/var/run");  // as the system has it
        hnx_host_tbl_reset();
        hnx_host_set_root(root_);
    }
    void TearDown() override {
        managed_daemon_kill(pid_);
        hnx_host_tbl_reset();
        std::filesystem::remove_all(root_);
    }

    void profile(const l3mac_caps &b) {
        std::filesystem::create_directories(root_ + "/etc/hnx");
        std::ofstream(root_ + "/etc/hnx/capability.json") << l3mac_caps_json(b);
    }
    void start() { pid_ = managed_daemon_start(HNX_BIN_DIR, root_); }

    void tbl(const char *op, const mac6 &mac, uint32_t mac_type, uint32_t vlan, uint32_t user = 1) {
        std::vector<std::string> args{op, "s_route.l3mac_res", "index.t_user=" + std::to_string(user),
                                      "index.uuid=" + managed_uuid(mac, mac_type, vlan)};
        if (std::string(op) == "set")
            args.insert(args.end(), {"status=STATUS_REQUEST", "attr.evlan=" + std::to_string(vlan),
                                     std::string("attr.mac_type=") + (mac_type == VRRP ? "L3MAC_VRRP" : "L3MAC_NORMAL"),
                                     "attr.mac=" + mac_text(mac)});
        ASSERT_EQ(managed_tbl(HNX_BIN_DIR, root_, args), 0);
    }
    void set(const mac6 &mac, uint32_t mac_type, uint32_t vlan, uint32_t user = 1) {
        tbl("set", mac, mac_type, vlan, user);
    }

    std::string root_;
    pid_t pid_ = 0;
};

TEST_F(ManagedE2e, EntriesFollowTheRequestsAndStayInPlaceAcrossAKill) {
    profile({});
    start();
    for (uint32_t v : {1, 2, 3, 10}) set(kA, NORMAL, v);
    for (uint32_t v : {5, 7}) set(kB, NORMAL, v);
    set(kB, NORMAL, 7, 2);  // a second user on the same VLAN
    for (uint32_t v : {100, 101, 102, 103}) set(kC, VRRP, v);
    const auto c = cover(kC, VRRP, {100, 101, 102, 103});
    const auto want = join({cover(kA, NORMAL, {1, 2, 3, 10}), cover(kB, NORMAL, {5, 7}), c});
    ASSERT_TRUE(managed_wait([&] { return tables_hold(want); }));
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();

    managed_daemon_kill(pid_);
    start();
    // Two requests one after the other: the second is handled after the
    // round that served the first, so after the end of smoothing.
    set(kD, NORMAL, 300);
    ASSERT_TRUE(managed_wait([&] { return managed_hw_rows().size() == hw.size() + 1; }));
    set(kD, NORMAL, 700);
    const auto want_d = join({want, cover(kD, NORMAL, {300, 700})});
    ASSERT_TRUE(managed_wait([&] { return tables_hold(want_d); }));
    for (auto [now, before] : {std::pair{managed_hw_rows(), hw}, {managed_bak_rows(), bak}}) {
        std::erase_if(now, [](const hw_entry &e) { return e.mac == kD; });
        EXPECT_EQ(now, before);  // every hw_id kept across the kill
    }

    tbl("del", kB, NORMAL, 7, 2);  // VLAN 7 stays: user 1 still wants it
    tbl("del", kA, NORMAL, 10);
    const auto want_del = join({cover(kA, NORMAL, {1, 2, 3}), cover(kB, NORMAL, {5, 7}), c,
                                cover(kD, NORMAL, {300, 700})});
    EXPECT_TRUE(managed_wait([&] { return tables_hold(want_del); }));
}

// M's users ask, while the service is down, for more than the full TCAM
// holds. After the restart and the end of smoothing the output table still
// holds M's old entries, where they were.
TEST_F(ManagedE2e, AMacThatNoLongerFitsKeepsItsEntriesThroughARestart) {
    profile({.tcam_cap = 4});
    start();
    for (uint32_t v : {3, 5, 6}) set(kA, VRRP, v);
    set(kB, NORMAL, 9);
    const auto want = join({cover(kA, VRRP, {3, 5, 6}), cover(kB, NORMAL, {9})});
    ASSERT_EQ(want.size(), 4u);
    ASSERT_TRUE(managed_wait([&] { return tables_hold(want); }));
    const auto hw = managed_hw_rows(), bak = managed_bak_rows();

    managed_daemon_kill(pid_);
    set(kA, VRRP, 10);
    start();
    ASSERT_TRUE(managed_wait(
        [&] { return managed_log_count(root_, "L3MAC table is full.") >= 1; }));
    EXPECT_EQ(managed_hw_rows(), hw);
    EXPECT_EQ(managed_bak_rows(), bak);
}

}  // namespace
