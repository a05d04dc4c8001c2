// An independent model of what the service's tables must hold, kept from
// the operations that a fuzz target applies through these calls: the
// users' rows, the requests that stand, each MAC's wanted VLAN set and
// whether it waits for a round, the decision budgets, and mirrors of the
// output, backup and VRRP tables fed by the table service's journal.
// After each operation the handler's result and every table write are
// compared with what the model claims; a disagreement prints both, with
// the operations that led there, and aborts (a finding).
#pragma once

#include <cstdint>

#include "s_route.pb-c.h"
#include "tests/support/service_world.h"

// Brings a fresh service up on this board (empty store, smoothing run) and
// starts the model from nothing.
void l3mac_oracle_start(const l3mac_caps &caps);

// A user writes `row` into s_route.l3mac_res and the set handler gets it.
// The row must have an index with a uuid.
void l3mac_oracle_set(const SRoute__L3macRes *row);

// A user deletes the row with `row`'s key and the delete handler gets it.
void l3mac_oracle_del(const SRoute__L3macRes *row);

// One tick of the decision timer.
void l3mac_oracle_tick();

// A decision round started by hand, whatever the budgets say.
void l3mac_oracle_decide();

// New direct-decision limits: for L3MAC_VRRP adds (`drv`) and for the others.
void l3mac_oracle_limits(uint32_t commom, uint32_t drv);

// The process dies and starts again over the same store: smoothing
// rebuilds the requests from the input table and the entries from the
// backup table, and runs the first round.
void l3mac_oracle_restart();
