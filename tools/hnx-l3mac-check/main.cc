// hnx-l3mac-check [--root DIR] [--restarted] [--quiet]: checks the input,
// output and backup tables of a store against each other and against the
// board's profile, with the service running or not. Exit status 0 when
// they are consistent, 1 on any violation, 2 when they cannot be read.
#include <cstdio>
#include <cstring>
#include <string>

#include <nlohmann/json.hpp>

#include "check/l3mac_check.h"
#include "platform/host/hnx_host.h"
#include "profile.h"
#include "store.h"

namespace {

struct hnx_check_args {
    bool quiet = false;
    bool json = false;
    l3mac_check_opts opts;
};

constexpr const char *kUsage =
    "Usage: hnx-l3mac-check [--root DIR] [--store URL] [--restarted] [--quiet] [--json]\n"
    "  --root DIR    file root of the store and the board's profile (default: HNX_ROOT)\n"
    "  --store URL   table store, as HNX_STORE: sqlite, redis://HOST:PORT[/DB], unix:///PATH\n"
    "  --restarted   the service has just started and served no request since;\n"
    "                the rules are the same, an entry that only a row the service\n"
    "                does not take asks for is told as left over from the start\n"
    "  --quiet       print violations and the summary, not the refused rows and notes\n"
    "  --json        one JSON object a line: {\"kind\": \"violation\"|\"refused\"|\"note\",\n"
    "                \"text\"} for each finding, then {\"kind\": \"summary\", ...}\n"
    "  or:  hnx-l3mac-check --profile FILE\n"
    "                checks a capability profile as the daemon will at its start\n"
    "\nExit status: 0 consistent (a sound profile), 1 a violation (a profile the\n"
    "daemon refuses, or none), 2 a usage error or a store or profile that cannot\n"
    "be read.\n";

const cli_tool kTool = {"hnx-l3mac-check", kUsage};

// 0 to go on, otherwise the exit status.
int hnx_check_parse(int argc, char **argv, hnx_check_args *a) {
    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        if (arg == "--root" && i + 1 < argc) hnx_host_set_root(argv[++i]);
        else if (arg == "--root") return cli_usage_error(kTool, "--root needs a DIR");
        else if (arg == "--restarted") a->opts.restarted = true;
        else if (arg == "--quiet") a->quiet = true;
        else if (arg == "--json") a->json = true;
        else return cli_usage_error(kTool, "unknown argument " + arg);
    }
    return 0;
}

// Input rows that the service refused: the requesters' mistakes, told
// beside the notes; they do not fail the check.
void hnx_check_print_refused(const l3mac_check_report &rep, bool quiet) {
    if (quiet) return;
    for (const std::string &r : rep.refused) std::printf("refused: %s\n", r.c_str());
}

void hnx_check_print(const l3mac_check_report &rep, bool quiet) {
    for (const std::string &v : rep.violations) std::printf("violation: %s\n", v.c_str());
    hnx_check_print_refused(rep, quiet);
    if (!quiet)
        for (const std::string &n : rep.notes) std::printf("note: %s\n", n.c_str());
    std::printf("hnx-l3mac-check: %u managed and %u direct requests, %u MACs (%u unserved), "
                "TCAM 0 holds %u of %u, TCAM 1 holds %u of %u, %u direct rows, "
                "%zu refused rows: %zu violations\n",
                rep.managed_requests, rep.direct_requests, rep.macs, rep.unserved_macs,
                rep.fill[0], rep.limit[0], rep.fill[1], rep.limit[1], rep.direct_rows,
                rep.refused.size(), rep.violations.size());
}

void hnx_check_print_json(const l3mac_check_report &rep, bool quiet) {
    auto line = [](const char *kind, const std::string &text) {
        std::printf("%s\n", nlohmann::ordered_json{{"kind", kind}, {"text", text}}.dump().c_str());
    };
    for (const std::string &v : rep.violations) line("violation", v);
    if (!quiet) {
        for (const std::string &r : rep.refused) line("refused", r);
        for (const std::string &n : rep.notes) line("note", n);
    }
    nlohmann::ordered_json sum = {
        {"kind", "summary"},
        {"managed_requests", rep.managed_requests},
        {"direct_requests", rep.direct_requests},
        {"macs", rep.macs},
        {"unserved_macs", rep.unserved_macs},
        {"tcams", {{{"fill", rep.fill[0]}, {"limit", rep.limit[0]}},
                   {{"fill", rep.fill[1]}, {"limit", rep.limit[1]}}}},
        {"direct_rows", rep.direct_rows},
        {"refused_rows", rep.refused.size()},
        {"violations", rep.violations.size()},
    };
    std::printf("%s\n", sum.dump().c_str());
}

}  // namespace

int main(int argc, char **argv) {
    hnx_host_store_arg(&argc, argv);  // --store URL, for every tool alike
    if (int status; cli_help_or_version(kTool, argc, argv, &status)) return status;
    if (int rv = hnx_check_profile_main(kTool, argc, argv); rv >= 0) return rv;
    hnx_check_args args;
    if (int rv = hnx_check_parse(argc, argv, &args)) return rv;
    l3mac_check_rows rows;
    l3mac_check_report rep;
    std::string err;
    const std::string path = hnx_host_path("/var/run/hnx/store-16.db");
    if (!hnx_check_read_store(path, &rows, &rep, &err)) {
        std::fprintf(stderr, "hnx-l3mac-check: %s\n", err.c_str());
        return 2;
    }
    // After the store: a root without one needs no word on its profile.
    if (int rv = hnx_check_root_profile()) return rv;
    const l3mac_check_board board = l3mac_check_board_of_profile(false);
    l3mac_check_tables(rows, board, args.opts, &rep);
    l3mac_check_input(rows, board, &rep);
    if (args.json) hnx_check_print_json(rep, args.quiet);
    else hnx_check_print(rep, args.quiet);
    return rep.ok() ? 0 : 1;
}
