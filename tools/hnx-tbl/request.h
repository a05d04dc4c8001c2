// What the service will make of a row of s_route.l3mac_res that the tool is
// about to write, judged on the board's profile under the root.
#pragma once

#include <protobuf-c/protobuf-c.h>

// 0 when the row may be written: a row of another table, or one that the
// service takes in. A row that the service will refuse or not act on is
// written too, after a warning on stderr that names the check in the
// words of hnx-l3mac-check. A request without attr.mac gives the exit
// status of bad input after its error line: the service would program the
// all-zero MAC for it.
int request_review(const ProtobufCMessage *row);
