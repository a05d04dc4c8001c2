// Bring-up of the service and its capacity profile.
#pragma once

// Bring-up, once, from the first connect callback. The result of the
// service creation; failures are counted and bring-up goes on.
int l3mac_init();

// Stores and pools by the capacity flags; sets ser_ready on success.
// 0, a store's or pool's code, or -11 for the mac_hw store.
int l3mac_service_create();

// Reads the profile (l3mac_cap.cc). 0 or the capability service's code;
// values that cannot be read take their defaults.
int l3mac_cap_init();
void l3mac_get_cap();

// The twelve lines of the profile dump.
void l3mac_cap_dump();
