// The checks of a parsed request and the one rule that maps a mac_type to
// its TCAM, which every module uses.
#include "diag/l3mac_log.h"
#include "frame/l3mac_ctx.h"
#include "request/l3mac_msg.h"

namespace {

constexpr uint8_t L3MAC_USER_MIN = S_ROUTE__L3TABLE_USER_E__L3TABLE_UC;
constexpr uint8_t L3MAC_USER_MAX = S_ROUTE__L3TABLE_USER_E__L3TABLE_OVERLAY_COUNTER;

inline bool SS_RT_VALID_VLAN(uint32_t v) { return v < 4096; }
inline bool SS_RT_VALID_VFI(uint32_t v) { return v < 8192; }

}  // namespace

#define L3MAC_CAP_TCAM2_EN (l3mac_ctx.tcam2_en)
#define L3MAC_CAP_IS_MNG (l3mac_ctx.is_mng)
#define L3MAC_CAP_IS_MNG2 (l3mac_ctx.is_mng2)

int l3mac_get_tcam_id(uint8_t mac_type) {
    // Once the second pool exists, a board that copies to it keeps every
    // kind of MAC there.
    if (l3mac_ctx.copy_to_tcam2 && l3mac_ctx.tcam_rm[MY_STATION_TCAM_2])
        return MY_STATION_TCAM_2;
    switch (mac_type) {
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_NORMAL:
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_VRRP:
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_SUBIF:
        return MY_STATION_TCAM_1;
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_OL:
    case S_ROUTE__L3MAC_TYPE_E__L3MAC_TNL:
        return MY_STATION_TCAM_2;
    default:
        L3MAC_ERR_LINE("invalid mac_type %d\n", mac_type);
        return MY_STATION_TCAM_1;
    }
}

// The failure texts name the conditions as the checks state them.
int sw_l3mac_user_param_check(const l3mac_msg *msg, int is_add) {
    const uint8_t user = msg->mng_info.user;
    if (user < L3MAC_USER_MIN || user > L3MAC_USER_MAX) {
        L3MAC_INFO("user %d invalid.\n\n", user);
        L3MAC_COUNT(L3MAC_ERR_USER_REFUSED, user, 0);
        return L3MAC_E_PARAM;
    }
    if (!is_add) return SS_E_NONE;  // a delete brings no attributes

    if (!(msg->attr.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX)) {
        L3MAC_FAIL(L3MAC_ERR_ATTR_REFUSED, "msg->attr.mac_type < S_ROUTE__L3MAC_TYPE_E__L3MAC_MAX",
                   msg->attr.mac_type, 0);
        return L3MAC_E_PARAM;
    }
    if ((l3mac_get_tcam_id(msg->attr.mac_type) == MY_STATION_TCAM_2) && !L3MAC_CAP_TCAM2_EN) {
        L3MAC_FAIL(L3MAC_ERR_ATTR_REFUSED,
                   "!((l3mac_get_tcam_id(msg->attr.mac_type) == MY_STATION_TCAM_2) && !L3MAC_CAP_TCAM2_EN)",
                   msg->attr.mac_type, 0);
        return L3MAC_E_PARAM;
    }
    if (L3MAC_CAP_IS_MNG && !SS_RT_VALID_VLAN(msg->attr.evlan) &&
        msg->attr.mac_type != S_ROUTE__L3MAC_TYPE_E__L3MAC_OL) {
        L3MAC_FAIL(L3MAC_ERR_ATTR_REFUSED,
                   "!(L3MAC_CAP_IS_MNG && !SS_RT_VALID_VLAN(msg->attr.evlan) && msg->attr.mac_type != S_ROUTE__L3MAC_TYPE_E__L3MAC_OL)",
                   msg->attr.evlan, msg->attr.mac_type);
        return L3MAC_E_PARAM;
    }
    if (L3MAC_CAP_IS_MNG2 && !SS_RT_VALID_VFI(msg->attr.evlan) &&
        msg->attr.mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_OL) {
        L3MAC_FAIL(L3MAC_ERR_ATTR_REFUSED,
                   "!(L3MAC_CAP_IS_MNG2 && !SS_RT_VALID_VFI(msg->attr.evlan) && msg->attr.mac_type == S_ROUTE__L3MAC_TYPE_E__L3MAC_OL)",
                   msg->attr.evlan, msg->attr.mac_type);
        return L3MAC_E_PARAM;
    }
    return SS_E_NONE;
}
