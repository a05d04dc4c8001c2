// The --plan view of l3mac-cover: see cover_plan.h.
#include "cover_plan.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <utility>
#include <vector>

#include "cover_set.h"
#include "cover_show.h"

namespace {

constexpr int kBadInput = 2;
constexpr int kNoMemory = 1;

// {MAC, is VFI} to the numbers that the plan gives it, lines added up.
using plan_t = std::map<std::pair<std::string, bool>, std::set<uint32_t>>;

bool normal_mac(const std::string &text, std::string *out) {
    unsigned b[6];
    char tail;
    if (std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x%c", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5], &tail) != 6)
        return false;
    char buf[18];
    for (unsigned x : b)
        if (x > 255) return false;
    std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4],
                  b[5]);
    *out = buf;
    return true;
}

// One line into the plan; "" or what is wrong with it.
std::string read_line(const std::string &line, plan_t *plan) {
    std::istringstream in(line.substr(0, line.find('#')));
    std::string mac, word, set, extra;
    if (!(in >> mac)) return "";
    in >> word >> set >> extra;
    if (set.empty() && word != "vlan" && word != "vfi") std::swap(word, set);
    if (word.empty()) word = "vlan";
    if (set.empty() || !extra.empty() || (word != "vlan" && word != "vfi"))
        return "expected 'MAC [vlan|vfi] SET'";
    std::string key;
    if (!normal_mac(mac, &key)) return "bad MAC '" + mac + "' (want aa:bb:cc:dd:ee:ff)";
    std::vector<uint32_t> numbers;
    std::string error;
    if (!cover_parse_set(set, &numbers, &error)) return "bad set '" + set + "': " + error;
    (*plan)[{key, word == "vfi"}].insert(numbers.begin(), numbers.end());
    return "";
}

}  // namespace

int cover_plan_run(const std::string &path, bool compact) {
    std::ifstream file(path);
    if (!file) {
        std::fprintf(stderr, "l3mac-cover: cannot read plan %s\n", path.c_str());
        return kBadInput;
    }
    plan_t plan;
    std::string line;
    for (long number = 1; std::getline(file, line); ++number) {
        const std::string error = read_line(line, &plan);
        if (error.empty()) continue;
        std::fprintf(stderr, "l3mac-cover: %s:%ld: %s\n", path.c_str(), number, error.c_str());
        return kBadInput;
    }
    if (compact)
        std::printf("%-19s %-5s %8s %8s %8s  %s\n", "MAC", "space", "numbers", "entries",
                    "compact", "set");
    else
        std::printf("%-19s %-5s %8s %8s  %s\n", "MAC", "space", "numbers", "entries", "set");
    size_t total = 0, total_compact = 0, numbers = 0;
    std::set<std::string> macs;
    for (const auto &[key, set] : plan) {
        const std::vector<uint32_t> sorted(set.begin(), set.end());
        cover_result c, k;
        if (cover_compute(sorted, key.second, false, &c) != 0 ||
            (compact && cover_compute(sorted, key.second, true, &k) != 0)) {
            std::fputs("l3mac-cover: no memory for the cover\n", stderr);
            return kNoMemory;
        }
        const size_t entries = cover_entries(c), fewer = compact ? cover_entries(k) : 0;
        if (compact)
            std::printf("%-19s %-5s %8zu %8zu %8zu  %s\n", key.first.c_str(),
                        key.second ? "vfi" : "vlan", sorted.size(), entries, fewer,
                        cover_ranges(sorted).c_str());
        else
            std::printf("%-19s %-5s %8zu %8zu  %s\n", key.first.c_str(),
                        key.second ? "vfi" : "vlan", sorted.size(), entries,
                        cover_ranges(sorted).c_str());
        total += entries;
        total_compact += fewer;
        macs.insert(key.first);
        numbers += sorted.size();
    }
    if (compact)
        std::printf("total: %zu MACs, %zu TCAM entries, compact %zu (one entry per {MAC, number}: "
                    "%zu)\n",
                    macs.size(), total, total_compact, numbers);
    else
        std::printf("total: %zu MACs, %zu TCAM entries (one entry per {MAC, number}: %zu)\n",
                    macs.size(), total, numbers);
    return 0;
}
