// hnx-cmd: the operator's client of the modules' debug commands.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/host/ssat_help.h"

// Exit statuses of the tool.
enum hnx_cmd_status : int {
    HNX_CMD_OK = 0,       // the command ran and gave 0
    HNX_CMD_RESULT = 1,   // the command ran and gave another result
    HNX_CMD_REFUSED = 2,  // bad invocation, unknown command or bad words
    HNX_CMD_DOWN = 3,     // the module is not running, or the exchange broke
};

// Sends one command line to the module and prints the answer: the output
// on standard output, ended by a line break when it lacks one, a refusal or
// a failure on standard error. A non-zero result is told with its meaning,
// on standard output too in the prompt.
hnx_cmd_status hnx_cmd_run(const std::string &module, std::string_view line,
                           bool interactive);

// The module's commands in the order of registration; HNX_CMD_DOWN (said
// on standard error) when the module does not answer.
hnx_cmd_status hnx_cmd_list(const std::string &module, std::vector<ssat_cmd_info> *cmds);

// "help [COMMAND]": every command, or the one named, with its arguments
// named, a line on what it does and its format. An unknown name is refused.
hnx_cmd_status hnx_cmd_help(const std::string &module, std::string_view name);

// The interactive prompt: line editing, history and Tab completion of the
// command names, one command a line, until end of input, "quit" or "exit".
int hnx_cmd_prompt(const std::string &module);
