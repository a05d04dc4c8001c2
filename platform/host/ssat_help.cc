// The "help" list of a module's commands and the operator's view of one.
#include "platform/host/ssat_help.h"

#include <cctype>

#include "platform/host/ssat_args.h"

namespace {

std::string upper(std::string s) {
    for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

}  // namespace

std::string ssat_help_list(std::span<const ssat_cmd_info> cmds) {
    std::string text;
    for (const ssat_cmd_info &c : cmds) text += c.name + "\t" + c.fmt + "\n";
    return text;
}

bool ssat_help_parse(std::string_view text, std::vector<ssat_cmd_info> *cmds) {
    cmds->clear();
    while (!text.empty()) {
        const size_t nl = text.find('\n');
        const std::string_view line = text.substr(0, nl);
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
        const size_t tab = line.find('\t');
        if (tab == std::string_view::npos || tab == 0) return false;
        cmds->push_back({std::string(line.substr(0, tab)), std::string(line.substr(tab + 1))});
    }
    return true;
}

std::string ssat_help_entry(const ssat_cmd_info &cmd, const char *description) {
    std::string text = cmd.name;
    std::vector<std::string> names;
    // A format the framework cannot read was never registered; its names
    // are then simply not shown.
    if (ssat_fmt_names(cmd.fmt, &names))
        for (const std::string &n : names) text.append(" ").append(upper(n));
    text += "\n";
    if (description != nullptr && *description != '\0')
        text.append("    ").append(description).append("\n");
    return text.append("    format: \"").append(cmd.fmt).append("\"\n");
}
