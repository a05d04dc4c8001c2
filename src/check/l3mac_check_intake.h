// The service's intake of one row of s_route.l3mac_res, told in words
// (private to src/check; l3mac_check_refusal in check/l3mac_check.h is the
// words' public face): the check of the set handler that refuses it on a
// board, or the status that leaves it alone.
#pragma once

#include <string>

#include "check/l3mac_check.h"

// The first check that refuses the row on this board, in the order in
// which the service applies them: the row's parse (index, attr), the user,
// the mac_type, the TCAM of the mac_type, the VLAN or VFI range, and the
// numbers that a managed TCAM can serve. "" when the row passes them all.
// The status is not looked at.
std::string l3mac_check_refused(const l3mac_check_res &r, const l3mac_check_board &b);

// Why the service does not act on a row that passes its checks: a status
// other than STATUS_REQUEST. "" for a request, and for the STATUS_FAILED
// mark that the service writes itself.
std::string l3mac_check_unacted(const l3mac_check_res &r);

// l3mac_check_refusal is either of the two, the first that the service
// meets: it looks at the status before the managed path's own test.

// True when the row's key could ever have been a request: it has an index
// and its user passes the check (users 1-41, read from the low byte).
bool l3mac_check_user_ok(const l3mac_check_res &r);

// The row's key as the lines name it: user 19 uuid "vlan100".
std::string l3mac_check_key_text(const l3mac_check_res &r);
