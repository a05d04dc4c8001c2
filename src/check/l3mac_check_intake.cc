// The service's intake of an input row in words: see l3mac_check_intake.h.
// The rules follow sw_l3mac_user_param_check and the handlers around it;
// the service's own functions count and log what they refuse, so a check
// that must only read states them once more here, and a test holds the two
// to the same verdict on every kind of row and board.
#include "check/l3mac_check_intake.h"

#include <cstdio>

#include "decision/l3mac_bmp.h"
#include "check/l3mac_check_model.h"
#include "s_route.pb-c.h"

namespace {

constexpr uint32_t kUserMin = S_ROUTE__L3TABLE_USER_E__L3TABLE_UC;
constexpr uint32_t kUserMax = S_ROUTE__L3TABLE_USER_E__L3TABLE_OVERLAY_COUNTER;
constexpr uint32_t kTypeEnd = S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX;
constexpr uint32_t kOl = S_ROUTE__L3MAC_TYPE_E__L3MAC_OL;
constexpr uint32_t kVlanEnd = 4096;  // VLANs 0-4095 pass the range check
constexpr uint32_t kVfiEnd = 8192;   // VFIs 0-8191
constexpr uint32_t kRequest = S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST;
constexpr uint32_t kFailed = S_ROUTE__L3TABLE_STATUS_E__STATUS_FAILED;

// "user 42 (L3TABLE_MAX)"; the service keeps the low byte of the field, so
// a larger value shows what it reads as: "user 298 (low byte 42, L3TABLE_MAX)".
std::string l3mac_intake_value(const char *field, uint32_t raw, const ProtobufCEnumDescriptor *e) {
    const uint32_t low = raw & 0xFF;
    const ProtobufCEnumValue *v = protobuf_c_enum_descriptor_get_value(e, static_cast<int>(low));
    std::string out = std::string(field) + " " + std::to_string(raw);
    if (raw != low) out += " (low byte " + std::to_string(low) + (v ? ", " : "");
    else if (v) out += " (";
    if (v) out += v->name;
    if (raw != low || v) out += ")";
    return out;
}

std::string l3mac_intake_type(uint32_t type) {
    return l3mac_intake_value("mac_type", type, &s_route__l3mac_type_e__descriptor);
}

std::string l3mac_intake_quoted(const std::string &s) {
    std::string out = "\"";
    char esc[8];
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < ' ' || c >= 0x7f) {
            std::snprintf(esc, sizeof esc, "\\x%02x", c);
            out += esc;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

// The range checks of sw_l3mac_user_param_check.
std::string l3mac_intake_range(const l3mac_check_res &r, const l3mac_check_board &b) {
    const uint32_t type = r.mac_type & 0xFF;
    const std::string ev = "evlan " + std::to_string(r.evlan);
    if (b.is_mng[0] && r.evlan >= kVlanEnd && type != kOl)
        return ev + " is outside the VLAN range 0-4095 of " + l3mac_intake_type(r.mac_type);
    if (b.is_mng[1] && r.evlan >= kVfiEnd && type == kOl)
        return ev + " is outside the VFI range 0-8191 of " + l3mac_intake_type(r.mac_type);
    return "";
}

// The parse and the checks, which the set handler runs before it looks at
// the status.
std::string l3mac_intake_checks(const l3mac_check_res &r, const l3mac_check_board &b) {
    if (!r.has_index) return "the row has no index (user and uuid)";
    if (!r.has_attr) return "the row has no attr (the mac_type, evlan and MAC of the request)";
    const uint32_t user = r.t_user & 0xFF, type = r.mac_type & 0xFF;
    if (user < kUserMin || user > kUserMax)
        return l3mac_intake_value("user", r.t_user, &s_route__l3table_user_e__descriptor) +
               " is no user: users are 1-41 (L3TABLE_UC to L3TABLE_OVERLAY_COUNTER)";
    if (type >= kTypeEnd)
        return l3mac_intake_type(r.mac_type) +
               " is no kind of entry: types are 0-4 (L3MAC_NORMAL to L3MAC_SUBIF)";
    if (l3mac_check_tcam_of(b, type) == 1 && !b.tcam2_en)
        return l3mac_intake_type(r.mac_type) +
               " belongs to the second TCAM, which the board's profile does not enable "
               "(tcam2-en)";
    return l3mac_intake_range(r, b);
}

// The managed path's own refusal, after the status: the range checks are
// off for a TCAM whose flag is clear, and a managed TCAM has no bit for a
// number beyond its bitmap.
std::string l3mac_intake_path(const l3mac_check_res &r, const l3mac_check_board &b) {
    if (l3mac_check_managed(b, r.mac_type & 0xFF) && r.evlan >= L3MAC_BMP_BITS)
        return "evlan " + std::to_string(r.evlan) +
               " is beyond 16383, the last number that a managed TCAM serves";
    return "";
}

}  // namespace

std::string l3mac_check_refused(const l3mac_check_res &r, const l3mac_check_board &b) {
    std::string why = l3mac_intake_checks(r, b);
    return why.empty() ? l3mac_intake_path(r, b) : why;
}

std::string l3mac_check_unacted(const l3mac_check_res &r) {
    const uint32_t status = r.status & 0xFF;
    if (status == kRequest || status == kFailed) return "";
    return l3mac_intake_value("status", r.status, &s_route__l3table_status_e__descriptor) +
           ": the service acts only on rows with STATUS_REQUEST";
}

// In the order in which the service meets them.
std::string l3mac_check_refusal(const l3mac_check_res &r, const l3mac_check_board &b) {
    std::string why = l3mac_intake_checks(r, b);
    if (why.empty()) why = l3mac_check_unacted(r);
    return why.empty() ? l3mac_intake_path(r, b) : why;
}

bool l3mac_check_user_ok(const l3mac_check_res &r) {
    const uint32_t user = r.t_user & 0xFF;
    return r.has_index && user >= kUserMin && user <= kUserMax;
}

std::string l3mac_check_key_text(const l3mac_check_res &r) {
    if (!r.has_index) return "a row without index";
    return "user " + std::to_string(r.t_user) + " uuid " + l3mac_intake_quoted(r.uuid);
}
