// hnx-cmd: the operator's client of the modules' debug commands.
#pragma once

#include <string>
#include <string_view>

// Exit statuses of the tool.
enum hnx_cmd_status : int {
    HNX_CMD_OK = 0,       // the command ran and gave 0
    HNX_CMD_RESULT = 1,   // the command ran and gave another result
    HNX_CMD_REFUSED = 2,  // bad invocation, unknown command or bad words
    HNX_CMD_DOWN = 3,     // the module is not running, or the exchange broke
};

// Sends one command line to the module and prints the answer: the output
// on standard output, a refusal or a failure on standard error. In the
// prompt a non-zero result is shown on standard output too.
hnx_cmd_status hnx_cmd_run(const std::string &module, std::string_view line,
                           bool interactive);

// The interactive prompt: line editing and history, one command a line,
// until end of input, "quit" or "exit".
int hnx_cmd_prompt(const std::string &module);
