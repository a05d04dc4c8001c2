// The parser of received rows of s_route.l3mac_res into the flat request
// record. Received rows belong to the table service and are only read.
#include <cstring>

#include "diag/l3mac_log.h"
#include "request/l3mac_msg.h"

namespace {

void l3mac_parse_attr(const SRoute__L3macAttr *attr, l3mac_msg *msg) {
    msg->attr.is_match_evlan = attr->is_match_evlan ? 1 : 0;
    msg->attr.mac_type = static_cast<uint8_t>(attr->mac_type);
    msg->attr.evlan = attr->evlan;
    // An address of any other length is not one: the request goes on with
    // the all-zero address, as the users' rows have always been read.
    const PLibpub__Mac *mac = attr->mac;
    if (mac && mac->data.len == sizeof msg->attr.mac && mac->data.data)
        std::memcpy(msg->attr.mac, mac->data.data, sizeof msg->attr.mac);
    msg->attr.phyid = attr->phyid;
}

}  // namespace

int l3mac_input_pmsg_parse(const l3mac_pmsg_t *l3mac_pmsg, l3mac_msg *msg,
                           int is_add) {
    if (!l3mac_pmsg) {
        L3MAC_FAIL(L3MAC_ERR_ROW_PARSE, "l3mac_pmsg != NULL", 0, 0);
        return L3MAC_E_PARAM;
    }
    if (!l3mac_pmsg->index) {
        L3MAC_FAIL(L3MAC_ERR_ROW_PARSE, "l3mac_pmsg->index != NULL", 0, 0);
        return L3MAC_E_PARAM;
    }
    if (!l3mac_pmsg->index->uuid) {
        L3MAC_FAIL(L3MAC_ERR_ROW_PARSE, "l3mac_pmsg->index->uuid != NULL", 0, 0);
        return L3MAC_E_PARAM;
    }
    std::memset(msg, 0, sizeof *msg);
    msg->mng_info.user = static_cast<uint8_t>(l3mac_pmsg->index->t_user);
    const char *uuid = l3mac_pmsg->index->uuid;
    std::memcpy(msg->uuid, uuid, strnlen(uuid, sizeof msg->uuid - 1));
    if (!is_add) return SS_E_NONE;  // a delete is its key alone

    if (!l3mac_pmsg->attr) {
        L3MAC_CHECK_RET(L3MAC_ERR_ROW_PARSE, 0, 0);
        return L3MAC_E_FAIL;
    }
    msg->mng_info.status = static_cast<uint8_t>(l3mac_pmsg->status);
    l3mac_parse_attr(l3mac_pmsg->attr, msg);
    return SS_E_NONE;
}
