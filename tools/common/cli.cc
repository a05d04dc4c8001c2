// The shared command-line conventions of the tools: see cli.h.
#include "cli.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#ifndef HNX_VERSION
#define HNX_VERSION "0"
#endif

std::string cli_version_line(const char *name) {
    return std::string(name) + " (hnx-l3table-l3mac) " + HNX_VERSION;
}

bool cli_help_or_version(const cli_tool &tool, int argc, char **argv, int *status) {
    for (int i = 1; i < argc; i++) {
        const char *a = argv[i];
        if (!std::strcmp(a, "--")) break;
        if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h")) {
            std::fputs(tool.usage, stdout);
        } else if (!std::strcmp(a, "--version")) {
            std::printf("%s\n", cli_version_line(tool.name).c_str());
        } else {
            continue;
        }
        *status = 0;
        return true;
    }
    return false;
}

int cli_usage_error(const cli_tool &tool, const std::string &what) {
    std::fprintf(stderr, "%s: %s\n%s", tool.name, what.c_str(), tool.usage);
    return kCliExitUsage;
}

bool cli_number(const std::string &text, long lo, long hi, long *out, std::string *why) {
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 10);
    // strtol would pass leading blanks and a '+': the number starts at once.
    if (text.empty() || *end != '\0' || !(std::isdigit(uint8_t(text[0])) || text[0] == '-')) {
        *why = "\"" + text + "\" is not a number";
        return false;
    }
    if (errno == ERANGE || v < lo || v > hi) {
        *why = "\"" + text + "\" is out of range " + std::to_string(lo) + "-" + std::to_string(hi);
        return false;
    }
    *out = v;
    return true;
}

std::string cli_daemon_near(const std::string &dir) {
    const std::string beside = dir + "/hnx-l3table-l3mac";
    const std::string installed = dir + "/../sbin/hnx-l3table-l3mac";
    if (access(beside.c_str(), X_OK) != 0 && access(installed.c_str(), X_OK) == 0) return installed;
    return beside;
}
