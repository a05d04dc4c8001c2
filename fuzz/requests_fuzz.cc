// The set and delete handlers fed with rows of s_route.l3mac_res, packed
// bytes as the table service would unpack them or rows drawn field by
// field, in any order, with timer ticks, decision limits, allocation
// failures and restarts in between. Every row also goes into the input
// table, as a user writes it, so that a restart reads it back. The service
// must stay consistent after every step, and after the last one a restart
// must leave tables that satisfy the checker's rules.
#include <vector>

#include "decision/l3mac_decision.h"
#include "platform/ss_rt_tbl.h"
#include "request/l3mac_msg.h"
#include "support/fuzz_world.h"

namespace {

bool g_faults;

// A row written to the input table, as a user writes it, then handed over.
void fuzz_handle(const SRoute__L3macRes *row, bool is_set) {
    if (is_set) ss_rt_tbl_add_str(l3mac_ctx.tbl_res, &row->base, 0, 0), l3mac_set_msg_proc(row);
    else ss_rt_tbl_del_str(l3mac_ctx.tbl_res, &row->base, 0, 0), l3mac_del_msg_proc(row);
}

// A row as bytes that the table service unpacks; bytes that are no row
// never reach a handler.
void fuzz_packed(FuzzedDataProvider &in, bool is_set) {
    const std::vector<uint8_t> bytes =
        in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<size_t>(0, 64));
    SRoute__L3macRes *row = s_route__l3mac_res__unpack(nullptr, bytes.size(), bytes.data());
    if (!row) return;
    fuzz_handle(row, is_set);
    s_route__l3mac_res__free_unpacked(row, nullptr);
}

void fuzz_step(FuzzedDataProvider &in) {
    switch (in.ConsumeIntegralInRange<int>(0, 11)) {
    case 0: fuzz_packed(in, true); break;
    case 1: fuzz_packed(in, false); break;
    case 2: case 3: case 4: case 5: fuzz_handle(fuzz_row(in).get(), true); break;
    case 6: fuzz_handle(fuzz_row(in).get(), false); break;
    case 7: l3mac_decision_timer(nullptr); break;
    case 8: sw_l3mac_mac_decision(); break;
    case 9:
        l3mac_commom_decision_counter = in.ConsumeIntegralInRange<uint32_t>(0, 3);
        l3mac_ctx.drv_decision_max_counter = in.ConsumeIntegralInRange<uint32_t>(0, 3);
        break;
    case 10:
        l3mac_mem_fail_after = in.ConsumeIntegralInRange<long>(0, 40);
        g_faults = true;
        break;
    case 11:
        l3mac_mem_fail_after = -1;
        fuzz_world_restart();
        break;
    }
}

// Steps of one input. Each costs a consistency check; the small TCAMs of
// the fuzz boards fill, and restarts and limits come, well within 32, and
// 32 steps covered the same edges in a minute as 64 with a third more
// inputs.
constexpr int kMaxSteps = 32;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    fuzz_world_start(fuzz_board_json(in.ConsumeIntegral<uint8_t>()));
    g_faults = false;
    for (int steps = 0; in.remaining_bytes() > 0 && steps < kMaxSteps; steps++) {
        fuzz_step(in);
        fuzz_world_check({.round_done = false, .faults = g_faults, .tables = false},
                         "after a step");
    }
    l3mac_mem_fail_after = -1;
    // What a crash leaves behind must come right with the next start.
    fuzz_world_restart();
    fuzz_world_check({.round_done = true, .restarted = true, .faults = g_faults},
                     "after the restart");
    fuzz_world_check_tables("after the restart");
    return 0;
}
