// Sequences of users' adds, updates and deletes, timer ticks, decisions by
// hand, decision-limit changes and restarts, each applied to the service
// and to an independent model of what its tables must hold (see
// support/l3mac_oracle.h), which compares the two after every step. A few
// keys, MACs and VLANs are drawn again and again, so that requests meet on
// one MAC, move between MACs and paths, and fill the small TCAMs.
#include "support/fuzz_world.h"
#include "support/l3mac_oracle.h"

namespace {

// Boards: small TCAMs that fill, one roomy enough that every round is sure
// to place everything, and the paths mixed in every way.
const l3mac_caps kBoards[] = {
    {.tcam_cap = 6},
    {.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = 5, .tcam2_cap = 4,
     .evlan_num = 4096 + 16384},
    {.tcam2_en = true, .tcam_cap = 8, .tcam2_cap = 6, .rsvd_size = 1, .evlan_num = 4096 + 16384},
    {.tcam2_en = true, .is_mng2 = false, .copy_to_tcam2 = false, .tcam_cap = 6, .tcam2_cap = 4,
     .evlan_num = 4096 + 16384},
    {.tcam2_en = true, .is_mng = false, .copy_to_tcam2 = false, .tcam_cap = 4, .tcam2_cap = 5,
     .evlan_num = 4096 + 8192},
    {.tcam2_en = true, .copy_to_tcam2 = false, .tcam_cap = 64, .tcam2_cap = 64, .dec_cnt = 2,
     .evlan_num = 4096 + 16384},
    {.is_mng = false, .is_mng2 = false, .tcam_cap = 4, .tcam2_cap = 4},
    {},
};

// Users: four valid ones, then values that the service refuses, directly
// or by their low byte.
constexpr uint32_t kUsers[] = {1, 2, 3, 41, 0, 42, 255, 298};

uint32_t draw_evlan(FuzzedDataProvider &in) {
    static constexpr uint32_t kEdges[] = {0, 4094, 4095, 4096, 8191, 8192, 16382, 16383, 16384, 100000};
    if (in.ConsumeIntegralInRange<int>(0, 5)) return in.ConsumeIntegralInRange<uint32_t>(0, 31);
    return kEdges[in.ConsumeIntegralInRange<size_t>(0, std::size(kEdges) - 1)];
}

struct oracle_row : l3mac_res_parts {
    char uuid[4] = {};
    explicit oracle_row(FuzzedDataProvider &in) {
        const int u = in.ConsumeIntegralInRange<int>(0, 9);
        key.t_user = kUsers[u < 8 ? u % 4 : u - 4];
        std::snprintf(uuid, sizeof uuid, "u%d", in.ConsumeIntegralInRange<int>(0, 7));
        key.uuid = uuid;
        mac_bytes[0] = 0x02;
        mac_bytes[5] = in.ConsumeIntegralInRange<uint8_t>(0, 1);
        // Mostly two types, so that many requests meet on few MACs.
        static constexpr int kTypes[] = {0, 0, 0, 0, 2, 2, 2, 1, 3, 4, 5};
        attr.mac_type = static_cast<SRoute__L3macTypeE>(
            kTypes[in.ConsumeIntegralInRange<size_t>(0, std::size(kTypes) - 1)]);
        attr.evlan = draw_evlan(in);
        attr.phyid = in.ConsumeIntegralInRange<int>(0, 7) ? 0 : 1;
        attr.is_match_evlan = in.ConsumeBool();
        res.status = static_cast<SRoute__L3tableStatusE>(
            in.ConsumeIntegralInRange<int>(0, 7) ? 1 : in.ConsumeIntegralInRange<int>(0, 4));
        switch (in.ConsumeIntegralInRange<int>(0, 15)) {
        case 0: attr.mac = nullptr; break;
        case 1: mac.data.len = 5; break;
        case 2: res.attr = nullptr; break;
        default: break;
        }
    }
};

void step(FuzzedDataProvider &in) {
    const int op = in.ConsumeIntegralInRange<int>(0, 31);
    if (op < 14) l3mac_oracle_set(oracle_row(in).get());
    else if (op < 19) l3mac_oracle_del(oracle_row(in).get());
    else if (op < 27) l3mac_oracle_tick();
    else if (op < 29) l3mac_oracle_decide();
    else if (op < 31)
        l3mac_oracle_limits(in.ConsumeIntegralInRange<uint32_t>(0, 3),
                            in.ConsumeIntegralInRange<uint32_t>(0, 3));
    else l3mac_oracle_restart();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    l3mac_oracle_start(kBoards[in.ConsumeIntegral<uint8_t>() % std::size(kBoards)]);
    for (int steps = 0; in.remaining_bytes() > 0 && steps < 64; steps++) step(in);
    // Whatever the steps left, a restart must come to the state the
    // requests ask for, and the service must be whole.
    l3mac_oracle_restart();
    fuzz_world_check({.round_done = true, .restarted = true, .faults = false}, "after the restart");
    return 0;
}
