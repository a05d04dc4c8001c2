// Helpers shared by the debug command handlers: keys built in zero-filled
// memory, the MAC lookup of the read-only commands, the uuid copy.
#pragma once

#include <cstdint>

#include "decision/l3mac_mac.h"
#include "frame/l3mac_codes.h"

// The MAC of {type, mac, phyid}, found without creating it (with its INFO
// trace), or null; a null `mac` finds nothing.
mac_entry *l3mac_at_find_mac(int32_t type, const uint8_t *mac, uint32_t phyid);

// Prints "not found\n"; -7.
int l3mac_at_not_found();

// Copies at most 127 characters of `uuid` (null reads as empty) into a
// zero-filled array of 128.
void l3mac_at_copy_uuid(char (&dst)[128], const char *uuid);

// base + i as the decimal text of a uuid, with 32-bit wrap-around.
int32_t l3mac_at_uuid_num(int32_t base, int32_t i);
