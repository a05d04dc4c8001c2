// "help": the module's commands as the operator needs them, built from the
// names and formats that the module registered and the module's words for
// what each command does.
#include <cstdio>

#include "diag/l3mac_at_help.h"
#include "frame/l3mac_codes.h"
#include "hnx_cmd.h"

namespace {

// Only the L3 MAC table manager's commands have words here; another
// module's commands show their names and formats alone.
const char *description(const std::string &module, const std::string &cmd) {
    return module == L3MAC_PROC_NAME ? l3mac_at_cmd_text(cmd.c_str()) : nullptr;
}

}  // namespace

hnx_cmd_status hnx_cmd_help(const std::string &module, std::string_view name) {
    std::vector<ssat_cmd_info> cmds;
    if (hnx_cmd_status s = hnx_cmd_list(module, &cmds); s != HNX_CMD_OK) return s;
    std::string text;
    for (const ssat_cmd_info &c : cmds)
        if (name.empty() || c.name == name) text += ssat_help_entry(c, description(module, c.name));
    if (text.empty() && !name.empty()) {
        std::fprintf(stderr, "unknown command \"%.*s\"; \"help\" lists the commands\n",
                     static_cast<int>(name.size()), name.data());
        return HNX_CMD_REFUSED;
    }
    if (name.empty())
        text = "commands of " + module + " (words separated by blanks; a MAC as "
               "00:11:22:33:44:55; \"help COMMAND\" shows one):\n" + text;
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    return HNX_CMD_OK;
}
