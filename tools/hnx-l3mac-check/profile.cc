// hnx-l3mac-check --profile FILE: prints what the file gives for each key
// the daemon reads, then every fault that would stop its start and every
// warning it would print, so that a profile is mended before a restart.
#include "profile.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/host/cap.h"
#include "platform/host/cap_check.h"
#include "platform/host/hnx_host.h"

namespace {

constexpr const char *kDaemon = "hnx-l3table-l3mac";

void print_findings(const std::string &file, const hnx_cap_findings &f) {
    if (!f.values.empty()) std::printf("profile %s:\n", file.c_str());
    for (const auto &[key, value] : f.values) {
        if (value.empty()) std::printf("  %s: not given, the built-in default\n", key.c_str());
        else std::printf("  %s = %s\n", key.c_str(), value.c_str());
    }
    for (const std::string &e : f.errors) std::printf("error: %s\n", e.c_str());
    for (const std::string &w : f.warnings) std::printf("warning: %s\n", w.c_str());
    const size_t ne = f.errors.size(), nw = f.warnings.size();
    std::printf("hnx-l3mac-check: profile %s: %zu error%s, %zu warning%s: %s\n", file.c_str(), ne,
                ne == 1 ? "" : "s", nw, nw == 1 ? "" : "s",
                f.ok() ? "the daemon starts with it" : "the daemon refuses to start with it");
}

}  // namespace

int hnx_check_profile_main(const cli_tool &tool, int argc, char **argv) {
    int at = 0;
    for (int i = 1; i < argc; i++)
        if (std::strcmp(argv[i], "--profile") == 0) at = i;
    if (at == 0) return -1;
    if (argc != 3 || at != 1)
        return cli_usage_error(tool, "--profile takes one file and no other argument");
    const std::string file = argv[2];
    const hnx_cap_findings f = hnx_cap_check_file(file, hnx_cap_schema_of(kDaemon));
    if (!f.present) {
        std::fprintf(stderr, "hnx-l3mac-check: no profile at %s (without one the daemon "
                             "starts on the built-in defaults)\n", file.c_str());
        return 1;
    }
    print_findings(file, f);
    return f.ok() ? 0 : 1;
}

int hnx_check_root_profile() {
    const std::string path = hnx_host_path(HNX_CAP_FILE);
    const hnx_cap_findings f = hnx_cap_check_file(path, hnx_cap_schema_of(kDaemon));
    if (f.ok()) return 0;
    for (const std::string &e : f.errors) std::fprintf(stderr, "hnx-l3mac-check: %s\n", e.c_str());
    std::fprintf(stderr, "hnx-l3mac-check: the daemon would not start on this profile; mend it "
                         "(hnx-l3mac-check --profile %s) and check again\n", path.c_str());
    return 2;
}
