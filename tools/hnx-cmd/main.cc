// hnx-cmd [--root DIR] MODULE [COMMAND [ARG...]]: runs one debug command of
// a running module and prints its output, or opens a prompt without one.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"
#include "hnx_cmd.h"
#include "platform/host/hnx_host.h"
#include "platform/host/ssat_args.h"
#include "platform/host/ssat_host.h"

namespace {

const char kUsage[] =
    "Usage: hnx-cmd [--root DIR] MODULE COMMAND [ARG...]   run one command\n"
    "  or:  hnx-cmd [--root DIR] MODULE help [COMMAND]     list the commands, or one\n"
    "  or:  hnx-cmd [--root DIR] MODULE                    interactive prompt\n"
    "--root DIR places the files under DIR (else HNX_ROOT, else the real paths).\n"
    "\nExit status: 0 done, 1 the command gave a non-zero result (told in words),\n"
    "2 refused (a usage error, a command the module does not know), 3 the module\n"
    "is not running.\n";

const cli_tool kTool = {"hnx-cmd", kUsage};

// Options come first; the rest are the module, the command and its words.
// "" or what is wrong with the command line.
std::string read_options(int argc, char **argv, std::vector<std::string> *rest) {
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; i++) {
        std::string a = argv[i];
        if (a == "--root" && i + 1 < argc) hnx_host_set_root(argv[++i]);
        else if (a.rfind("--root=", 0) == 0) hnx_host_set_root(a.substr(7));
        else if (a == "--root") return "--root needs a DIR";
        else if (a == "--") { i++; break; }
        else return "unknown option " + a;
    }
    rest->assign(argv + i, argv + argc);
    return rest->empty() ? "no MODULE" : "";
}

// The words travel as one line separated by blanks, so a word cannot hold
// one, and an empty word would vanish.
bool join_words(const std::vector<std::string> &words, std::string *line) {
    for (const std::string &w : words) {
        if (w.empty() || ssat_split_words(w).size() != 1) {
            std::fprintf(stderr, "hnx-cmd: argument \"%s\" is not one word\n", w.c_str());
            return false;
        }
        *line += (line->empty() ? "" : " ") + w;
    }
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    // Only the options before the module are the tool's own; the words
    // after it belong to the module's command.
    int own = 1;
    while (own < argc && argv[own][0] == '-' && std::strcmp(argv[own], "--"))
        own += std::strcmp(argv[own], "--root") ? 1 : 2;
    own = std::min(own, argc);
    if (int status; cli_help_or_version(kTool, own, argv, &status)) return status;
    std::vector<std::string> rest;
    if (std::string err = read_options(argc, argv, &rest); !err.empty())
        return cli_usage_error(kTool, err);
    const std::string module = rest[0];
    if (!ssat_module_name_ok(module)) {
        std::fprintf(stderr, "hnx-cmd: \"%s\" is not a module name\n", module.c_str());
        return HNX_CMD_REFUSED;
    }
    if (rest.size() == 1) return hnx_cmd_prompt(module);
    if (rest[1] == "help") {
        if (rest.size() > 3) {
            std::fprintf(stderr, "hnx-cmd: help takes one command name at most\n");
            return HNX_CMD_REFUSED;
        }
        return hnx_cmd_help(module, rest.size() == 3 ? rest[2] : "");
    }
    std::string line;
    if (!join_words({rest.begin() + 1, rest.end()}, &line)) return HNX_CMD_REFUSED;
    return hnx_cmd_run(module, line, false);
}
