// The per-test service world: see l3mac_world.h.
#include "support/l3mac_world.h"

#include <cstdlib>

#include "diag/l3mac_release.h"
#include "platform/host/hnx_host.h"
#include "request/l3mac_msg.h"
#include "request/l3mac_user.h"

namespace fs = std::filesystem;

void L3macWorld::SetUp() {
    char tmpl[] = "/tmp/l3mac-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    root_ = tmpl;
    hnx_host_set_root(root_);
    hnx_host_tbl_reset();
    l3mac_service_reset();
    std::memset(g_sw_rt_res_ss_err_cnt, 0, sizeof g_sw_rt_res_ss_err_cnt);
}

// The service never releases its state; a test world does, so that the
// leak checker sees only what a test itself lost.
void L3macWorld::TearDown() {
    l3mac_release_all();
    hnx_host_tbl_reset();
    std::error_code ec;
    fs::remove_all(root_, ec);
}

void L3macWorld::set_log(uint32_t level, int32_t budget) {
    g_rt_l3tb_log_level = level;
    g_rt_l3tb_log_cnt = budget;
}

l3mac_row::l3mac_row(uint32_t user, std::string u, uint32_t evlan, uint32_t mac_type,
                     const uint8_t *m, uint32_t phyid, uint32_t status)
    : uuid(std::move(u)) {
    std::memcpy(mac_bytes, m, 6);
    key.t_user = user;
    key.uuid = uuid.data();
    attr.evlan = evlan;
    attr.mac_type = static_cast<SRoute__L3macTypeE>(mac_type);
    attr.phyid = phyid;
    res.status = static_cast<SRoute__L3tableStatusE>(status);
}

std::string L3macWorld::captured_stdout() {
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

std::vector<l3mac_res_write> l3mac_res_writes() {
    static const SRoute__ResSubKey no_key = S_ROUTE__RES_SUB_KEY__INIT;
    static const SRoute__L3macAttr no_attr = S_ROUTE__L3MAC_ATTR__INIT;
    std::vector<l3mac_res_write> out;
    for (const hnx_tbl_write &w : hnx_host_tbl_journal()) {
        SRoute__L3macRes *row = w.table == "s_route.l3mac_res"
                                    ? s_route__l3mac_res__unpack(nullptr, w.row.size(), w.row.data())
                                    : nullptr;
        if (!row) continue;
        const SRoute__ResSubKey &k = row->index ? *row->index : no_key;
        const SRoute__L3macAttr &a = row->attr ? *row->attr : no_attr;
        const ProtobufCBinaryData mac = a.mac ? a.mac->data : ProtobufCBinaryData{};
        out.push_back({w.is_add, k.t_user, k.uuid ? k.uuid : "", row->status, a.is_match_evlan != 0,
                       a.evlan, a.mac_type, std::vector<uint8_t>(mac.data, mac.data + mac.len), a.phyid});
        s_route__l3mac_res__free_unpacked(row, nullptr);
    }
    return out;
}

int l3mac_count_of(const std::string &text, const std::string &needle) {
    int n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        n++;
    return n;
}

int l3mac_count_lines(const std::string &out, const std::string &word,
                      const std::string &func, const std::string &text) {
    const std::string head = "[" + word + "]" + func + ":", tail = "|" + text;
    int n = 0;  // the source line, "%4d", stands between the two
    for (size_t at = out.find(head); at != std::string::npos; at = out.find(head, at + 1))
        n += at + head.size() + 4 <= out.size() && out.compare(at + head.size() + 4, tail.size(), tail) == 0;
    return n;
}

std::string l3mac_line(const std::string &word, const std::string &func, int line,
                       const std::string &text) {
    char num[16];
    std::snprintf(num, sizeof num, ":%4d|", line);
    return "[" + word + "]" + func + num + text;
}

int L3macWorld::set_row(uint32_t user, const std::string &uuid, uint32_t evlan,
                        uint32_t mac_type, const uint8_t *mac, uint32_t phyid) {
    l3mac_row r(user, uuid, evlan, mac_type, mac, phyid);
    return l3mac_set_msg_proc(r.get());
}

int L3macWorld::del_row(uint32_t user, const std::string &uuid) {
    l3mac_row r(user, uuid, 0, 0, kMacA);
    r.res.attr = nullptr;  // a delete carries the key alone
    return l3mac_del_msg_proc(r.get());
}

std::vector<user_entry *> l3mac_users_on(list_head *head) {
    std::vector<user_entry *> out;
    for (list_head *l = head->next; l != head; l = l->next) out.push_back(l3mac_user_of(l));
    return out;
}

std::vector<mac_entry *> l3mac_pending() {
    std::vector<mac_entry *> out;
    for (list_head *l = l3mac_pending_head.next; l != &l3mac_pending_head; l = l->next)
        out.push_back(l3mac_mac_of_pending(l));
    return out;
}
