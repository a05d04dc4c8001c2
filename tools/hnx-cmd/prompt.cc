// The interactive prompt of hnx-cmd, with libedit's line editing, an
// in-memory history and Tab completion of the module's command names.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <editline/readline.h>

#include "hnx_cmd.h"
#include "platform/host/ssat_args.h"

namespace {

bool is_quit(std::string_view word) { return word == "quit" || word == "exit"; }

// What Tab offers as a first word: the module's commands as they stood when
// the prompt opened, and the prompt's own words. libedit calls back with no
// context argument, hence the one static list.
std::vector<std::string> &completions() {
    static std::vector<std::string> names;
    return names;
}

// Tab completes the command name: the first word, or the word after
// "help". An argument has nothing to complete, and never a file name.
bool at_command_word(const char *text) {
    const size_t len = std::strlen(text);
    const size_t start = static_cast<size_t>(rl_point) >= len ? rl_point - len : 0;
    const auto before = ssat_split_words(std::string_view(rl_line_buffer, start));
    return before.empty() || (before.size() == 1 && before[0] == "help");
}

// libedit's generator: the next name that starts with `text`, in a fresh
// allocation that libedit frees; null when there are no more. As the entry
// function it also stands in for libedit's file name completion.
char *next_name(const char *text, int state) {
    static size_t at = 0;
    if (state == 0) at = at_command_word(text) ? 0 : completions().size();
    const std::string_view prefix(text);
    while (at < completions().size()) {
        const std::string &name = completions()[at++];
        if (name.starts_with(prefix)) return strdup(name.c_str());
    }
    return nullptr;
}

void set_completions(const std::vector<ssat_cmd_info> &cmds) {
    completions().clear();
    for (const ssat_cmd_info &c : cmds) completions().push_back(c.name);
    for (const char *own : {"help", "quit", "exit"}) completions().push_back(own);
    rl_completion_entry_function = next_name;
}

// One line of the operator's: the prompt's own words, or a command.
void run_line(const std::string &module, const std::string &line,
              const std::vector<std::string_view> &words) {
    if (words[0] != "help") {
        hnx_cmd_run(module, line, true);
    } else if (words.size() > 2) {
        std::fprintf(stderr, "help takes one command name at most\n");
    } else {
        hnx_cmd_help(module, words.size() == 2 ? words[1] : std::string_view());
    }
}

}  // namespace

int hnx_cmd_prompt(const std::string &module) {
    // The module must be there before the operator types anything.
    std::vector<ssat_cmd_info> cmds;
    if (hnx_cmd_status first = hnx_cmd_list(module, &cmds); first != HNX_CMD_OK) return first;
    set_completions(cmds);
    std::printf("%s: %zu commands; \"help\" lists them, \"help COMMAND\" shows one, "
                "Tab completes a name, \"quit\" leaves\n",
                module.c_str(), cmds.size());
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
        run_line(module, line, words);
    }
    std::printf("\n");
    return HNX_CMD_OK;
}
