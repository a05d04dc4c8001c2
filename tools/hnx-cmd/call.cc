// One command line to a module and the printing of its answer.
#include <cstdio>

#include "diag/l3mac_at_help.h"
#include "hnx_cmd.h"
#include "platform/host/ssat_client.h"

namespace {

// Asks the module; on a failed exchange says why on standard error.
hnx_cmd_status call(const std::string &module, std::string_view line, ssat_reply *reply) {
    std::string err;
    switch (ssat_client_call(ssat_sock_path(module), line, reply, &err)) {
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
    return HNX_CMD_OK;
}

// "result -7: not found": the number and what it means in the service's
// table of codes.
std::string result_words(int rv) {
    const char *text = l3mac_at_result_text(rv);
    return "result " + std::to_string(rv) + ": " +
           (text ? text : "not one of the service's codes");
}

// The handler's output as it printed it, and a line break at the end when
// it left its last line open, so that nothing is written after it.
void print_output(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (!text.empty() && text.back() != '\n') std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

hnx_cmd_status hnx_cmd_run(const std::string &module, std::string_view line,
                           bool interactive) {
    ssat_reply reply;
    if (hnx_cmd_status s = call(module, line, &reply); s != HNX_CMD_OK) return s;
    if (!reply.ran) {
        std::fprintf(stderr, "%s", reply.text.c_str());
        return HNX_CMD_REFUSED;
    }
    print_output(reply.text);
    if (reply.result == 0) return HNX_CMD_OK;
    if (interactive) std::printf("(%s)\n", result_words(reply.result).c_str());
    else std::fprintf(stderr, "hnx-cmd: %s\n", result_words(reply.result).c_str());
    return HNX_CMD_RESULT;
}

hnx_cmd_status hnx_cmd_list(const std::string &module, std::vector<ssat_cmd_info> *cmds) {
    ssat_reply reply;
    if (hnx_cmd_status s = call(module, "help", &reply); s != HNX_CMD_OK) return s;
    if (!reply.ran || !ssat_help_parse(reply.text, cmds)) {
        std::fprintf(stderr, "hnx-cmd: module %s: malformed list of commands\n", module.c_str());
        return HNX_CMD_DOWN;
    }
    return HNX_CMD_OK;
}
