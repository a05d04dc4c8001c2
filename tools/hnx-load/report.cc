// The figures as lines ("name: value") or as one JSON object.
#include <cstdio>

#include "load.h"

void load_print(const load_figures &fig, const std::string &workload, bool json) {
    if (!json) {
        std::printf("workload: %s\n", workload.c_str());
        for (auto &[name, v] : fig.items) std::printf("%s: %.6g\n", name.c_str(), v);
        return;
    }
    std::printf("{\"workload\": \"%s\"", workload.c_str());
    for (auto &[name, v] : fig.items) std::printf(", \"%s\": %.6g", name.c_str(), v);
    std::printf("}\n");
}
