// Release of the whole service state, for harnesses that run one service
// after another in one process: tests that restart it, fuzz targets.
#pragma once

// Frees every record of the four stores, the stores themselves and the
// timing probe's samples, zeroes their handles and malloc_db, and empties
// the pending list. Pools and tables belong to the platform and stay.
void l3mac_release_all();
