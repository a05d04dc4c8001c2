// Debug commands of the module "hnx-l3table-l3mac": their registration and
// their handlers. Handlers run on the event thread, one at a time, print on
// standard output and return 0 or a negative code. A store that does not
// exist behaves as an empty one.
#pragma once

#include <cstdint>

// Registers the timing commands, then the 28 commands. 0 or the framework's
// error (then no command exists).
int sw_l3mac_at_init();

// --- state and profile (l3mac_at_show.cc) ----------------------------------
int l3mac_at_debug(int32_t level, int32_t log_cnt);
int l3mac_at_show_cap();
int l3mac_at_dump_evlan_mbr(uint32_t evlan, uint32_t evlan_mask, int32_t is_vfi);
int l3mac_at_dump_mac_vlanbmp(int32_t type, const uint8_t *mac, uint32_t phyid);
int l3mac_at_show_user_db(int32_t count, int32_t is_form);
int l3mac_at_show_mac_db(int32_t count, int32_t is_form);
int l3mac_at_dump_tcam_db(int32_t count, int32_t is_form);
int l3mac_at_show_vrrp_db(int32_t count, int32_t is_form);
int l3mac_at_check_memory();
int l3mac_at_set_drv_decision_max_counter(int32_t count);
int l3mac_at_get_drv_decision_max_counter();
int l3mac_at_set_commom_decision_max_counter(int32_t count);
int l3mac_at_get_commom_decision_max_counter();

// --- lookups and walks (l3mac_at_find.cc) ----------------------------------
// "not found\n" and -7 when there is no such MAC.
int l3mac_at_wk_user_head(int32_t type, const uint8_t *mac, uint32_t phyid);
int l3mac_at_wk_tcam_head(int32_t type, const uint8_t *mac, uint32_t phyid);
// Trace only: what they show is the INFO trace of the lookup. 0 or -7.
int l3mac_at_get_user_db(int32_t user, const char *uuid);
int l3mac_at_get_mac_db(int32_t type, const uint8_t *mac, uint32_t phyid);
int l3mac_at_get_tcam_db(int32_t type, const uint8_t *mac, uint32_t evlan,
                         uint32_t evlan_mask);
int l3mac_at_get_vrrp_db(const uint8_t *mac, int32_t mac_type, uint32_t evlan,
                         uint32_t evlan_mask);
int l3mac_at_find_evlan_by_mac(int32_t type, const uint8_t *mac, uint32_t phyid,
                               uint32_t evlan);
int l3mac_at_find_mask_by_user(int32_t user, const char *uuid);
int l3mac_at_find_mask_by_evlan(uint32_t evlan);

// --- requests injected past the table service (l3mac_at_user.cc) -----------
// A request refused by the check gives 0 after a WARN line.
int l3mac_at_add_user_entry(int32_t user, const char *uuid, int32_t status,
                            int32_t is_match_evlan, uint32_t evlan,
                            int32_t mac_type, const uint8_t *mac);
int l3mac_at_del_user_entry(int32_t user, const char *uuid);
int l3mac_at_add_mul_user_entry(int32_t user, int32_t uuid_base, int32_t count,
                                int32_t status, int32_t is_match_evlan,
                                uint32_t evlan_base, int32_t mac_type,
                                const uint8_t *mac);
int l3mac_at_del_mul_user_entry(int32_t user, int32_t uuid_base, int32_t count);
