// The real daemon under a test's root, on each store backend that processes
// share: started by the test, killed at its end; users' rows written with
// hnx-tbl. For test programs only (they know HNX_BIN_DIR).
#pragma once

#include <cstdio>

#include "support/managed_proc.h"
#include "support/managed_world.h"
#include "support/redis_server.h"

class DaemonWorld : public OverStores<L3macWorld> {
protected:
    void TearDown() override {
        managed_daemon_kill(pid_);
        OverStores::TearDown();
    }
    void start() { pid_ = managed_daemon_start(HNX_BIN_DIR, root_); }

    // A user's request for one VLAN of a NORMAL MAC (uuid from
    // managed_uuid), or its delete.
    void set(const mac6 &mac, uint32_t vlan, uint32_t user = 1, bool del = false) {
        std::vector<std::string> args{del ? "del" : "set", "s_route.l3mac_res",
                                      "index.t_user=" + std::to_string(user),
                                      "index.uuid=" + managed_uuid(mac, NORMAL, vlan)};
        char m[18];
        std::snprintf(m, sizeof m, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                      mac[4], mac[5]);
        if (!del)
            args.insert(args.end(), {"status=STATUS_REQUEST", "attr.evlan=" + std::to_string(vlan),
                                     "attr.mac_type=L3MAC_NORMAL", std::string("attr.mac=") + m});
        ASSERT_EQ(managed_tbl(HNX_BIN_DIR, root_, args), 0);
    }

    pid_t pid_ = 0;
};
