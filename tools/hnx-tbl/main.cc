// hnx-tbl: the tables of store 16 as users and the hardware side see them.
// Sets, deletes, reads, dumps and watches rows of any of the tables, with
// fields named by their dotted paths in the schema.
#include <cstdio>
#include <string>

#include "args.h"
#include "cli.h"
#include "commands.h"
#include "platform/host/hnx_host.h"

int main(int argc, char **argv) {
    hnx_host_store_arg(&argc, argv);  // --store URL, for every tool alike
    if (int status; cli_help_or_version({"hnx-tbl", kTblUsage}, argc, argv, &status))
        return status;
    tbl_args a;
    std::string err = args_parse(argc, argv, &a);
    if (!err.empty()) {
        std::fprintf(stderr, "hnx-tbl: %s\n%s", err.c_str(), kTblUsage);
        return kExitBadInput;
    }
    if (a.help) {
        std::printf("%s", kTblUsage);
        return kExitOk;
    }
    if (a.has_root) hnx_host_set_root(a.root);
    if (a.verb == "set") return cmd_set(a);
    if (a.verb == "del") return cmd_del(a);
    if (a.verb == "get") return cmd_get(a);
    if (a.verb == "dump") return cmd_dump(a);
    if (a.verb == "tables") return cmd_tables(a);
    if (a.verb == "fields") return cmd_fields(a);
    return cmd_watch(a);
}
