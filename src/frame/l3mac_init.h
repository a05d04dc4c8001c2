// Bring-up of the service and its capacity profile.
#pragma once

int l3mac_init();
int l3mac_service_create();
int l3mac_cap_init();
void l3mac_get_cap();

// The twelve lines of the profile dump.
void l3mac_cap_dump();
