// The words of the debug commands: one line per command, in the order of
// registration, and the meaning of each result code. The arguments are
// named by the registered formats; these lines say what the command does
// and what its arguments mean where the names do not tell.
#include "diag/l3mac_at_help.h"

#include <cstring>

#include "frame/l3mac_codes.h"

namespace {

struct l3mac_at_text {
    const char *cmd;
    const char *text;
};

const l3mac_at_text kCmdTexts[] = {
    {"time-init-l3mac",
     "make a ring of SIZE timing samples and dump it (0 frees it; a new ring samples nothing "
     "until time-set-l3mac)"},
    {"time-set-l3mac",
     "dump the ring, then time one decision in SIZE (a period, not a size; 0 stops)"},
    {"time-dump-l3mac", "dump the timing ring: entry and exit time of each sampled decision"},
    {"debug",
     "set the log level (0 off, 1 errors, 4 warnings, 5 info) and the line budget (-1 no limit)"},
    {"show-cap", "show the capacity profile that the service read at start"},
    {"dump-evlan-mbr", "list the VLANs (IS_VFI 1: the VFI numbers) that a value/mask pair matches"},
    {"dump-mac-vlanbmp", "list the VLANs that a MAC served at its last decision"},
    {"wk-user-head", "list the user entries bound to a MAC"},
    {"wk-tcam-head", "list the TCAM entries of a MAC"},
    {"get-user-db", "look a user entry up (shown at log level 5 only)"},
    {"get-tcam-db", "show the TCAM entry of this key (phyid 0)"},
    {"get-mac-db", "look a MAC entry of phyid 0 up (shown at log level 5 only)"},
    {"show-user-db",
     "dump the user entries: COUNT rows at most (-1 all), IS_FORM 1 adds the header"},
    {"show-mac-db", "dump the MAC entries: COUNT rows at most (-1 all), IS_FORM 1 adds the header"},
    {"dump-tcam-db",
     "dump the TCAM entries: COUNT rows at most (-1 all), IS_FORM 1 adds the header"},
    {"show-vrrp-db",
     "dump the direct-path hardware records: COUNT rows at most (-1 all), IS_FORM 1 adds "
     "the header"},
    {"check-memory", "count the records that the service holds"},
    {"find-evlan-by-mac", "tell whether a MAC's VLAN set holds EVLAN"},
    {"find-mask-by-user", "show a user entry and the TCAM entries that serve it"},
    {"find-mask-by-evlan", "show every TCAM entry that matches EVLAN"},
    {"add-mac-user", "inject a request past the input table (managed path, phyid 0; for a bench)"},
    {"del-mac-user", "withdraw a request injected by add-mac-user"},
    {"get-vrrp-db", "show the direct-path hardware record of this key"},
    {"add-mul-user-entry",
     "inject COUNT requests: uuid UUID_BASE+i on EVLAN_BASE+i, stopping at the first failure"},
    {"del-mul-user-entry",
     "withdraw COUNT injected requests from UUID_BASE on, stopping at the first failure"},
    {"set-drv-decision-max-counter",
     "set how many L3MAC_VRRP adds decide on their own between two ticks (later ones wait)"},
    {"get-drv-decision-max-counter",
     "show how many L3MAC_VRRP adds decide on their own between two ticks"},
    {"set-commom-decision-max-counter",
     "set how many adds of the other types decide on their own between two ticks "
     "(later ones wait)"},
    {"get-commom-decision-max-counter",
     "show how many adds of the other types decide on their own between two ticks"},
    {"trigger-decision", "run a decision round now, without budget or timing sample"},
    {"dump-info", "show the failure counters (IS_DETAIL 1 adds the totals; CLEAN 1 clears them)"},
};

struct l3mac_at_code {
    int rv;
    const char *text;
};

const l3mac_at_code kResultTexts[] = {
    {SS_E_NONE, "done"},
    {L3MAC_E_NOMEM_CALC, "no memory in a mask cover search, or a lock failure"},
    {L3MAC_E_NOMEM, "no memory for an entry"},
    {L3MAC_E_PARAM, "invalid input, or a missing store"},
    {L3MAC_E_FULL, "no room in a TCAM pool"},
    {L3MAC_E_NOTFOUND, "not found"},
    {L3MAC_E_FAIL, "a step failed"},
    {L3MAC_E_FATAL, "no memory for a store"},
};

}  // namespace

const char *l3mac_at_cmd_text(const char *cmd) {
    if (cmd == nullptr) return nullptr;
    for (const l3mac_at_text &t : kCmdTexts)
        if (std::strcmp(t.cmd, cmd) == 0) return t.text;
    return nullptr;
}

const char *l3mac_at_result_text(int rv) {
    for (const l3mac_at_code &c : kResultTexts)
        if (c.rv == rv) return c.text;
    return nullptr;
}
