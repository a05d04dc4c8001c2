// One command line to a module and the printing of its answer.
#include <cstdio>

#include "hnx_cmd.h"
#include "platform/host/ssat_client.h"

hnx_cmd_status hnx_cmd_run(const std::string &module, std::string_view line,
                           bool interactive) {
    ssat_reply reply;
    std::string err;
    switch (ssat_client_call(ssat_sock_path(module), line, &reply, &err)) {
    case SSAT_CALL_DOWN:
        std::fprintf(stderr, "hnx-cmd: module %s is not running (%s)\n",
                     module.c_str(), err.c_str());
        return HNX_CMD_DOWN;
    case SSAT_CALL_IO:
        std::fprintf(stderr, "hnx-cmd: module %s: %s\n", module.c_str(), err.c_str());
        return HNX_CMD_DOWN;
    case SSAT_CALL_OK:
        break;
    }
    if (!reply.ran) {
        std::fprintf(stderr, "%s", reply.text.c_str());
        return HNX_CMD_REFUSED;
    }
    std::fwrite(reply.text.data(), 1, reply.text.size(), stdout);
    std::fflush(stdout);
    if (reply.result == 0) return HNX_CMD_OK;
    if (interactive) std::printf("(result %d)\n", reply.result);
    else std::fprintf(stderr, "hnx-cmd: result %d\n", reply.result);
    return HNX_CMD_RESULT;
}
