// The --ranges view of dump: see ranges.h.
#include "ranges.h"

#include "s_route.pb-c.h"

namespace {

constexpr uint32_t kVlanMax = 4094;  // 0 and 4095 are never a VLAN
constexpr uint32_t kVfiMax = 16382;  // 0 and 16383 are never a VFI
constexpr uint32_t kVlanBits = 0xFFF;
constexpr uint32_t kVfiBits = 0x3FFF;

void add_run(std::string &out, uint32_t first, uint32_t last) {
    if (!out.empty()) out += ',';
    out += std::to_string(first);
    if (last != first) out += '-' + std::to_string(last);
}

// The entry's attributes: the row's attr (output table) or its index
// (backup table).
const SRoute__L3macHwAttr *attr_of(const ProtobufCMessage *row) {
    if (row->descriptor == &s_route__l3mac_hw_res__descriptor)
        return reinterpret_cast<const SRoute__L3macHwRes *>(row)->attr;
    if (row->descriptor == &s_route__l3mac_bak__descriptor)
        return reinterpret_cast<const SRoute__L3macBak *>(row)->index;
    return nullptr;
}

}  // namespace

std::string ranges_text(uint32_t evlan, uint32_t evlan_mask, bool is_vfi) {
    const uint32_t space = is_vfi ? kVfiBits : kVlanBits;
    const uint32_t max = is_vfi ? kVfiMax : kVlanMax;
    const uint32_t value = evlan & space, mask = evlan_mask & space;
    std::string out;
    uint32_t first = 0;
    bool open = false;
    for (uint32_t v = 1; v <= max + 1; v++) {
        const bool match = v <= max && ((v ^ value) & mask) == 0;
        if (match && !open) first = v;
        if (!match && open) add_run(out, first, v - 1);
        open = match;
    }
    return out.empty() ? "none" : out;
}

std::string ranges_word(const ProtobufCMessage *row) {
    const SRoute__L3macHwAttr *a = attr_of(row);
    if (!a) return "";
    const bool is_vfi = a->mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_OL;
    return (is_vfi ? " vfis=" : " vlans=") + ranges_text(a->evlan, a->evlan_mask, is_vfi);
}

bool ranges_apply(const ProtobufCMessageDescriptor *row) {
    return row == &s_route__l3mac_hw_res__descriptor || row == &s_route__l3mac_bak__descriptor;
}
