// The line protocol between hnx-cmd and a module's command socket.
//
// The client connects to <root>/var/run/hnx/<module>.sock and sends one
// line: the command and its words separated by blanks, ended by '\n', at
// most SSAT_LINE_MAX bytes. The server runs it and answers with a head line
// and a body, then closes the connection:
//
//   "ok <result>\n" <what the handler printed>    the handler ran
//   "refused\n"     <why, with the command's format>   nothing was called
//
// "help" is answered "ok 0" with one line per command: the name, a tab and
// the format as registered (ssat_help.h); hnx-cmd shows it to the operator
// with the arguments named and a line on what each command does.
// One connection carries one command; the interactive prompt opens one per
// line, so that a module restarted meanwhile is simply found again.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/host/ssat_host.h"

inline constexpr size_t SSAT_LINE_MAX = 4096;

std::string ssat_encode_reply(const ssat_reply &reply);

// False when the head line is missing or malformed.
bool ssat_decode_reply(std::string_view wire, ssat_reply *reply);
