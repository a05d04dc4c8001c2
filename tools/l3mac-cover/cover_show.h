// The cover that the service would program for one set, and its two
// printed forms: the operator's report and the one-line batch answer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct cover_template {
    uint32_t key;
    uint32_t mask;  // cut to the width of the space
    int32_t level;
};

struct cover_result {
    bool vfi = false;
    bool compact = false;                   // the compact search's cover
    std::vector<cover_template> templates;  // in the service's list order
    std::vector<uint32_t> read;    // numbers of the set that the search reads
    std::vector<uint32_t> unread;  // numbers of the set that it never reads
};

// Runs the service's cover search on the ascending `numbers`: the greedy
// one, or with `compact` the compact one for a MAC that holds no entry yet.
// 0, or -1 when memory ran out.
int cover_compute(const std::vector<uint32_t> &numbers, bool vfi, bool compact,
                  cover_result *out);

// TCAM entries of a cover: the templates but the filler of value 0.
size_t cover_entries(const cover_result &c);

// "KEY/0xMASK/LEVEL" for each template, in list order, space separated;
// "-" for a cover without templates.
std::string cover_batch_line(const cover_result &c);

// One line per template, "  KEY  MASK  LEVEL  NUMBERS", then the summary.
std::string cover_report(const cover_result &c);

// One JSON object on one line: {"line": N (from --batch, when N > 0),
// "space": "vlan"|"vfi", "mode": "greedy"|"compact", "templates": [{"key",
// "mask", "level"} in list order], "entries": TCAM entries}.
std::string cover_json(const cover_result &c, long line);
