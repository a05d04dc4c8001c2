// Results of the service's functions and the codes of its failure table.
#pragma once

// Results: 0 or a negative code.
inline constexpr int SS_E_NONE = 0;
inline constexpr int L3MAC_E_NOMEM_CALC = -1;  // no memory in a cover search; lock error
inline constexpr int L3MAC_E_NOMEM = -2;       // no memory for an entry
inline constexpr int L3MAC_E_PARAM = -4;       // invalid input, null record or handle
inline constexpr int L3MAC_E_FULL = -6;        // no room in a pool; lock held; dump stop
inline constexpr int L3MAC_E_NOTFOUND = -7;    // entry not found
inline constexpr int L3MAC_E_FAIL = -11;       // a step failed
inline constexpr int L3MAC_E_FATAL = -17;      // no memory for a store; fatal start-up

// Slots of the failure table: a code is a kind of failure, not a place.
enum l3mac_err_code : int {
    L3MAC_ERR_STORE_CREATE = 52,
    L3MAC_ERR_ATTR_REFUSED = 53,
    L3MAC_ERR_CAP_READ = 57,
    L3MAC_ERR_SERVICE_CREATE = 58,
    L3MAC_ERR_TIMER_TICK = 59,
    L3MAC_ERR_ROW_PARSE = 122,
    L3MAC_ERR_USER_REFUSED = 126,
    L3MAC_ERR_TBL_WRITE = 133,
    L3MAC_ERR_NO_ENTRY_ADD = 134,
    L3MAC_ERR_NO_ENTRY_DEL = 135,
    L3MAC_ERR_USER_LINKED = 143,
    L3MAC_ERR_BACKUP_REFUSED = 147,
    L3MAC_ERR_POOL_CREATE = 148,
    L3MAC_ERR_AT_INIT = 150,
    L3MAC_ERR_TBL_INIT = 152,
};

// TCAM ids.
inline constexpr int MY_STATION_TCAM_1 = 0;
inline constexpr int MY_STATION_TCAM_2 = 1;

inline constexpr const char *L3MAC_PROC_NAME = "hnx-l3table-l3mac";
