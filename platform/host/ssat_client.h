// The client side of a module's command socket, for hnx-cmd and tests.
#pragma once

#include <string>
#include <string_view>

#include "platform/host/ssat_host.h"

enum ssat_call_result : int {
    SSAT_CALL_OK = 0,    // *reply holds the module's answer
    SSAT_CALL_DOWN = 1,  // no socket, or nobody listens: the module is not running
    SSAT_CALL_IO = 2,    // the exchange broke off, or the answer was malformed
};

// Sends one command line to the socket at `path` and reads the answer.
// Blocks until the module has answered (at most `timeout_s` seconds of
// silence). On failure `*err` says why.
ssat_call_result ssat_client_call(const std::string &path, std::string_view line,
                                  ssat_reply *reply, std::string *err,
                                  int timeout_s = 60);
