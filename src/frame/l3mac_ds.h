// Data smoothing: rebuilding the service from the backup and input tables
// after a start, and the first working decision round.
#pragma once

#include <cstdint>

int l3mac_data_check();
uint8_t l3mac_is_ds_end();
