// hnx-tbl: the tables of store 16 as users and the hardware side see them.
// Sets, deletes, reads, dumps and watches rows of any of the tables, with
// fields named by their dotted paths in the schema.
#include <cstdio>
#include <string>

#include "args.h"
#include "commands.h"
#include "platform/host/hnx_host.h"

int main(int argc, char **argv) {
    hnx_host_store_arg(&argc, argv);  // --store URL, for every tool alike
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
    return cmd_watch(a);
}
