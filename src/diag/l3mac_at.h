// Debug commands of the module "hnx-l3table-l3mac".
#pragma once

// Registers the timing commands, then the 28 commands. 0 or the framework's
// error.
int sw_l3mac_at_init();
