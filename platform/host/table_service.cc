// Placeholder bodies until this part of the host platform is written.
#include "platform/ss_rt_tbl.h"
int ss_rt_tbl_init(kw_global *, const char *, int) { return 0; }
int ss_rt_tbl_ut_init(const char *) { return 0; }
ss_rt_tbl *ss_rt_tbl_create_detail(int, int, const ProtobufCMessage *, uint32_t, int, const ProtobufCMessage *, uint32_t, int) { return nullptr; }
int ss_rt_tbl_connect_db(ss_rt_tbl_void_fn) { return 0; }
int ss_rt_tbl_reg_ds_func(ss_rt_tbl_void_fn) { return 0; }
int ss_rt_tbl_subscribe_detail(ss_rt_tbl *, ss_rt_tbl_row_fn, ss_rt_tbl_row_fn, int, int) { return 0; }
int ss_rt_tbl_scan_detail(ss_rt_tbl *, int, int) { return 0; }
int ss_rt_tbl_ds_begin_detail(ss_rt_tbl *, int, int) { return 0; }
int ss_rt_tbl_ds_end_detail(ss_rt_tbl *, int) { return 0; }
int ss_rt_tbl_add_str(ss_rt_tbl *, const ProtobufCMessage *, int, int) { return 0; }
int ss_rt_tbl_del_str(ss_rt_tbl *, const ProtobufCMessage *, int, int) { return 0; }
int kw_mom_scan_sync(kw_global *, int, const ProtobufCMessage *, int, kw_mom_scan_fn, int) { return 0; }
#include "platform/host/hnx_host.h"
static std::vector<hnx_tbl_write> g_journal;
void hnx_host_tbl_reset() {}
const std::vector<hnx_tbl_write> &hnx_host_tbl_journal() { return g_journal; }
void hnx_host_tbl_journal_clear() { g_journal.clear(); }
std::vector<std::vector<uint8_t>> hnx_host_tbl_rows(std::string_view) { return {}; }
int hnx_host_tbl_poll() { return 0; }
