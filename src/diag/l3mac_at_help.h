// What the module's debug commands and their results mean to an operator,
// in words: read by the command client (hnx-cmd) beside the names and
// formats that the module registers. The service itself never calls these.
#pragma once

// One line on what the command does, or null for a name that the module
// does not register.
const char *l3mac_at_cmd_text(const char *cmd);

// The meaning of a command's result, one of the service's codes (0 and the
// negative codes), or null for any other number.
const char *l3mac_at_result_text(int rv);
