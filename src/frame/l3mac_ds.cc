// Placeholder bodies until this module is written.
#include "frame/l3mac_ds.h"
int l3mac_data_check() { return 0; }
uint8_t l3mac_is_ds_end() { return 0; }
