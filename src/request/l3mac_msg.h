// Request intake: the parsed request record, the set and delete handlers of
// the input table, the request checks and the mac_type -> TCAM rule.
#pragma once

#include <cstdint>

#include "s_route.pb-c.h"

using l3mac_pmsg_t = SRoute__L3macRes;

// The parsed request, built on the handler's stack and never kept.
struct l3mac_msg {
    struct {
        uint8_t user;    // s_route.l3table_user_e
        uint8_t status;  // s_route.l3table_status_e; set messages only
    } mng_info;
    char uuid[128];      // at most 127 significant, always terminated
    struct {
        uint8_t is_match_evlan;
        uint8_t mac_type;
        uint8_t mac[6];
        uint32_t evlan;
        uint32_t phyid;
    } attr;              // set messages only
};

// Handlers of the input table (set and delete messages).
int l3mac_set_msg_proc(const l3mac_pmsg_t *l3mac_pmsg);
int l3mac_del_msg_proc(const l3mac_pmsg_t *l3mac_pmsg);

// Fills msg from a received row; is_add 1 for a set message. 0, -4 or -11.
int l3mac_input_pmsg_parse(const l3mac_pmsg_t *l3mac_pmsg, l3mac_msg *msg,
                           int is_add);

// Checks a parsed request; a delete is checked for its user alone. 0 or -4.
int sw_l3mac_user_param_check(const l3mac_msg *msg, int is_add);

// TCAM id of a mac_type: MY_STATION_TCAM_1 or MY_STATION_TCAM_2.
int l3mac_get_tcam_id(uint8_t mac_type);
