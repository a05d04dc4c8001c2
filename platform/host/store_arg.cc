// The tools' `--store URL`: see hnx_host_store_arg in hnx_host.h.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/host/hnx_host.h"
#include "platform/host/tbl_where.h"

namespace {

[[noreturn]] void refuse(const char *tool, const std::string &why) {
    std::fprintf(stderr, "%s: %s\n", tool, why.c_str());
    std::exit(2);
}

}  // namespace

void hnx_host_store_arg(int *argc, char **argv) {
    const char *tool = *argc > 0 ? argv[0] : "hnx";
    int out = 1;
    for (int i = 1; i < *argc; i++) {
        const char *a = argv[i];
        if (std::strcmp(a, "--") == 0) {  // what follows is not the tool's options
            while (i < *argc) argv[out++] = argv[i++];
            break;
        }
        if (std::strcmp(a, "--store") == 0) {
            if (i + 1 >= *argc)
                refuse(tool, "--store needs a URL: sqlite, redis://HOST:PORT[/DB] or "
                             "unix:///PATH[?db=N]");
            setenv("HNX_STORE", argv[++i], 1);
            continue;
        }
        if (std::strncmp(a, "--store=", 8) == 0) {
            setenv("HNX_STORE", a + 8, 1);
            continue;
        }
        argv[out++] = argv[i];
    }
    *argc = out;
    argv[out] = nullptr;
    tbl_where where;
    const std::string err = tbl_where_now(&where);
    if (!err.empty()) refuse(tool, err);
    // A tool reads or writes the store of the daemon and its users: one in
    // the tool's own memory would read as "no rows" and keep nothing.
    if (where.memory)
        refuse(tool, "store \"memory\" is private to one process and no tool can share it; "
                     "give sqlite, redis://HOST:PORT[/DB] or unix:///PATH[?db=N]");
}
