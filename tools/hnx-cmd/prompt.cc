// The interactive prompt of hnx-cmd, with libedit's line editing and an
// in-memory history.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <editline/readline.h>

#include "hnx_cmd.h"
#include "platform/host/ssat_args.h"

namespace {

bool is_quit(std::string_view word) { return word == "quit" || word == "exit"; }

}  // namespace

int hnx_cmd_prompt(const std::string &module) {
    // The module must be there before the operator types anything.
    hnx_cmd_status first = hnx_cmd_run(module, "help", true);
    if (first != HNX_CMD_OK) return first;
    std::printf("type a command, \"help\" for the list, \"quit\" to leave\n");
    const std::string prompt = module + "> ";
    for (;;) {
        char *raw = readline(prompt.c_str());
        if (raw == nullptr) break;
        std::string line(raw);
        std::free(raw);
        auto words = ssat_split_words(line);
        if (words.empty()) continue;
        add_history(line.c_str());
        if (is_quit(words[0])) break;
        hnx_cmd_run(module, line, true);
    }
    std::printf("\n");
    return HNX_CMD_OK;
}
