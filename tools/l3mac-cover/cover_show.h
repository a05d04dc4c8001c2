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
    std::vector<cover_template> templates;  // in the service's list order
    std::vector<uint32_t> read;    // numbers of the set that the search reads
    std::vector<uint32_t> unread;  // numbers of the set that it never reads
};

// Runs the service's cover search on the ascending `numbers`. 0, or -1 when
// memory ran out.
int cover_compute(const std::vector<uint32_t> &numbers, bool vfi, cover_result *out);

// "KEY/0xMASK/LEVEL" for each template, in list order, space separated.
std::string cover_batch_line(const cover_result &c);

// One line per template, "  KEY  MASK  LEVEL  NUMBERS", then the summary.
std::string cover_report(const cover_result &c);
