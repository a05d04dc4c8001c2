// Capability profiles of any text, read through libkw_cap_init from the
// file under the root, as bring-up reads them (l3mac_cap_init, then the VFI
// mask from evlan_num). Against an oracle that reads the same text with
// the JSON library: each of the ten values is the file's where it stands
// there as a value of its kind, the default otherwise, and all defaults
// when the file is no JSON object.
#include <climits>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "frame/l3mac_init.h"
#include "support/fuzz_world.h"
#include "tcam/l3mac_tcam.h"

using nlohmann::json;

namespace {

[[noreturn]] void fuzz_fail(const char *what, const char *path) {
    std::fprintf(stderr, "fuzz: profile: %s %s\n", what, path);
    std::abort();
}

const json *fuzz_at(const json &doc, std::string path) {
    const json *at = &doc;
    for (size_t cut; at; path.erase(0, cut + 1)) {
        cut = path.find('/');
        if (!at->is_object()) return nullptr;
        auto it = at->find(path.substr(0, cut));
        at = it == at->end() ? nullptr : &*it;
        if (cut == std::string::npos) return at;
    }
    return nullptr;
}

// The file's value at `path` where it stands there as a value of its kind
// (a flag, or an integer of 32 bits), `dflt` otherwise.
int64_t fuzz_value(const json *doc, const char *path, bool flag, int64_t dflt) {
    const json *v = doc ? fuzz_at(*doc, path) : nullptr;
    if (!v || (flag ? !v->is_boolean() : !v->is_number_integer())) return dflt;
    if (flag) return v->get<bool>();
    if (v->is_number_unsigned()) return v->get<uint64_t>() > INT32_MAX ? dflt : v->get<int64_t>();
    const int64_t s = v->get<int64_t>();
    return s < INT32_MIN || s > INT32_MAX ? dflt : s;
}

// The VFI mask: the smallest power of two from 2 up to 2^31 that holds the
// numbers beyond the 4096 VLANs, less one.
uint32_t fuzz_vfi_mask(int32_t evlan_num) {
    const int64_t n = int64_t(evlan_num) - 4096;
    uint64_t v = 2;
    while (v < uint64_t(n < 0 ? 0 : n) && v < (uint64_t(1) << 31)) v <<= 1;
    return static_cast<uint32_t>(v - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string path = fuzz_root() + "/etc/hnx/capability.json";
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    std::memset(&l3mac_ctx, 0, sizeof l3mac_ctx);
    const int rv = l3mac_cap_init();
    // As bring-up takes the profile on (l3mac_init).
    const int32_t evlan_num = l3mac_ctx.evlan_num;
    l3mac_set_vfi_mask(evlan_num > 4096 ? evlan_num - 4096 : 0);

    const json parsed = json::parse(data, data + size, nullptr, false);
    const json *doc = parsed.is_object() ? &parsed : nullptr;
    if ((rv == 0) != (doc != nullptr)) fuzz_fail("init disagrees on the file", path.c_str());
    const l3mac_ctx_t &c = l3mac_ctx;
    const struct { const char *path; bool flag; int64_t dflt, got; } values[] = {
        {"s_route/l3mac/capacity/algo", false, 2, c.algo},
        {"s_route/l3mac/capacity/tcam-cap", false, 256, c.tcam_cap},
        {"s_route/l3mac/capacity/tcam2-cap", false, 256, c.tcam2_cap},
        {"s_route/l3mac/capacity/rsvd-size", false, 0, c.rsvd_size},
        {"s_route/l3intf/capacity/l3mac-dec-cnt", false, 5, c.dec_cnt},
        {"s_bridge/ebridge/capacity/evlan_num", false, 4096, c.evlan_num},
        {"s_route/l3mac/ability/tcam2-en", true, 0, c.tcam2_en},
        {"s_route/l3mac/ability/is-mng", true, 1, c.is_mng},
        {"s_route/l3mac/ability/is-mng2", true, 1, c.is_mng2},
        {"s_route/l3mac/ability/copy-to-tcam2", true, 1, c.copy_to_tcam2},
    };
    for (const auto &v : values)
        if (fuzz_value(doc, v.path, v.flag, v.dflt) != v.got) fuzz_fail("wrong value at", v.path);
    if (c.drv_decision_max_counter != static_cast<uint32_t>(c.dec_cnt))
        fuzz_fail("the VRRP budget is not dec_cnt", "");
    if (c.vfi_mask != fuzz_vfi_mask(c.evlan_num)) fuzz_fail("wrong VFI mask for", "evlan_num");
    return 0;
}
