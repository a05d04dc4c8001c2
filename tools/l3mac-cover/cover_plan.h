// A VLAN plan read from a file: the TCAM entries that each MAC of the plan
// costs and their total, for sizing a board before any request is written.
#pragma once

#include <string>

// Reads the plan at `path` (lines "MAC [vlan|vfi] SET", # comments; lines
// of one MAC and space add up) and prints one line per MAC, then the total.
// With `compact` each line and the total give the entries of both cover
// searches side by side. 0, 2 on a bad line or file (nothing printed then),
// 1 without memory.
int cover_plan_run(const std::string &path, bool compact);
