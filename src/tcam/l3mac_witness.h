// The output table's word on where each entry stood, read once at the start
// of data smoothing. When two backup rows claim one index (a row written by
// another process, or one left from an older state), the row that the
// output table agrees with keeps the place: that is where the hardware has
// the entry.
#pragma once

#include "s_route.pb-c.h"
#include "tcam/l3mac_tcam.h"

// Reads every row of the output table. Held until l3mac_witness_clear.
void l3mac_witness_load();
void l3mac_witness_clear();

// Whether the output row at the entry's place {hw_id, phase} holds this
// very entry. `entry` is a scratch entry with key and idx set.
bool l3mac_witness_agrees(const tcam_entry *entry);

// Fills a key from a row's attributes in zero-filled memory: the address
// only when it is 6 bytes long, as every reader of these rows takes it.
void l3mac_key_of_attr(const SRoute__L3macHwAttr *attr, tcam_key *key);
