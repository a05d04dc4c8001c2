// The command line of hnx-tbl.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct tbl_args {
    bool has_root = false;
    std::string root;
    bool help = false;
    bool json = false;
    bool ranges = false;              // dump: the numbers each entry matches
    std::string verb;                 // set, del, get, dump, watch
    std::vector<std::string> tables;  // one, or several for watch
    std::vector<std::pair<std::string, std::string>> fields;  // FIELD=VALUE words
};

extern const char *const kTblUsage;

// Returns "" or what is wrong with the command line.
std::string args_parse(int argc, char **argv, tbl_args *out);
