// The list of a module's commands that "help" answers, and the operator's
// view of a command built from it: pure functions, no state, no output.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

// One command as registered: its name and its argument format.
struct ssat_cmd_info {
    std::string name;
    std::string fmt;
};

// The answer to "help": one line per command in the order of registration,
// the name, a tab and the format exactly as registered (a format holds no
// tab and no line break; the registration refuses one that does).
std::string ssat_help_list(std::span<const ssat_cmd_info> cmds);

// Reads that answer back. False, with `cmds` partly filled, on a line
// without a tab or with an empty name.
bool ssat_help_parse(std::string_view text, std::vector<ssat_cmd_info> *cmds);

// One command for the operator: its name with the arguments that the format
// names, in upper case, then the description (if any) and the format as
// registered, each indented on a line of its own:
//
//   dump-evlan-mbr EVLAN EVLAN_MASK IS_VFI
//     list the VLANs ...
//     format: "evlan=%d, evlan_mask=%d, is_vfi=%d"
std::string ssat_help_entry(const ssat_cmd_info &cmd, const char *description);
