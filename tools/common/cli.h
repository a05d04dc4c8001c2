// The command-line conventions that every tool of the project shares:
// --help on standard output with exit 0, --version, and a usage error as
// one line that says what is wrong, then the usage, on standard error with
// exit 2. Each tool's usage text ends with its exit statuses.
#pragma once

#include <string>

// The exit status of a command line that the tool cannot take.
constexpr int kCliExitUsage = 2;

struct cli_tool {
    const char *name;   // the program's name, which heads every error line
    const char *usage;  // the whole usage text, exit statuses included
};

// Looks for --help (or -h) and --version among argv[1..argc), up to a "--".
// When one is there it prints its answer on standard output and returns
// true with *status 0; the caller exits with it.
bool cli_help_or_version(const cli_tool &tool, int argc, char **argv, int *status);

// "NAME: WHAT", then the usage, on standard error; returns kCliExitUsage.
int cli_usage_error(const cli_tool &tool, const std::string &what);

// The whole of `text` as a base-10 integer within [lo, hi]. On failure
// *why says what is wrong with it ("not a number", "out of range 1-10").
bool cli_number(const std::string &text, long lo, long hi, long *out, std::string *why);

// The version line of --version: "NAME (hnx-l3table-l3mac) VERSION".
std::string cli_version_line(const char *name);

// The daemon for a tool in folder `dir` to start: beside it, as in the
// build tree, else in ../sbin, as installed (tools in /usr/bin, the daemon
// in /usr/sbin). The first when neither exists, for the error to name.
std::string cli_daemon_near(const std::string &dir);
