// The VLAN or VFI numbers that a TCAM entry's value/mask pair matches, as an
// operator reads them: "100-101,104-105".
#pragma once

#include <cstdint>
#include <string>

#include <protobuf-c/protobuf-c.h>

// The numbers v of the space (1-4094 for VLANs, 1-16382 for VFIs) with
// (v XOR evlan) AND evlan_mask equal to 0, as comma-separated runs.
std::string ranges_text(uint32_t evlan, uint32_t evlan_mask, bool is_vfi);

// The " vlans=..." or " vfis=..." word of a row of s_route.l3mac_hw_res or
// s_route.l3mac_bak (mac_type L3MAC_OL counts VFIs); "" for other rows.
std::string ranges_word(const ProtobufCMessage *row);

// Whether rows of this table hold TCAM entries that --ranges can show.
bool ranges_apply(const ProtobufCMessageDescriptor *row);
