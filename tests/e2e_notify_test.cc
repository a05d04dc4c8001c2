// The real daemon under a service manager's notify socket: READY=1 comes
// once data smoothing has ended, with a status line of the output tables'
// rows and the store's last error; the line follows the tables; STOPPING=1
// on SIGTERM.
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "support/l3mac_world.h"
#include "support/managed_proc.h"

namespace fs = std::filesystem;

namespace {

const std::string kBin = HNX_BIN_DIR;

// The manager's end: an AF_UNIX datagram socket bound under the root.
class NotifyTest : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        fs::create_directories(root_ + "/var/run");
        write_caps({});
        path_ = root_ + "/notify.sock";
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(fd_, 0);
        sockaddr_un sa = {};
        sa.sun_family = AF_UNIX;
        ASSERT_LT(path_.size(), sizeof sa.sun_path);
        path_.copy(sa.sun_path, path_.size());
        ASSERT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&sa), sizeof sa), 0);
    }
    void TearDown() override {
        managed_daemon_kill(pid_);
        if (fd_ >= 0) close(fd_);
        L3macWorld::TearDown();
    }
    void start() {
        setenv("NOTIFY_SOCKET", path_.c_str(), 1);
        pid_ = managed_daemon_start(kBin, root_);
        unsetenv("NOTIFY_SOCKET");
    }
    // The next message that holds `what`, every message read on the way
    // kept in seen_; "" when none came in 20 s.
    std::string until(const std::string &what) {
        for (int waited = 0; waited < 200; waited++) {
            pollfd p = {fd_, POLLIN, 0};
            if (poll(&p, 1, 100) != 1) continue;
            char buf[4096];
            const ssize_t n = recv(fd_, buf, sizeof buf, 0);
            if (n <= 0) continue;
            const std::string msg(buf, size_t(n));
            seen_.push_back(msg);
            if (msg.find(what) != std::string::npos) return msg;
        }
        return "";
    }
    std::string daemon_err() { return managed_slurp(root_ + "/daemon.out.err"); }

    std::string path_;
    int fd_ = -1;
    pid_t pid_ = 0;
    std::vector<std::string> seen_;
};

TEST_F(NotifyTest, ReadyAfterSmoothingThenStatusFollowsTheTables) {
    start();
    const std::string ready = until("READY=1");
    ASSERT_NE(ready, "") << daemon_err();
    // Every output table's window had ended when the manager heard of it.
    const std::string err = daemon_err();
    for (const char *t : {"s_route.l3mac_hw_res", "s_route.l3mac_vrrp_hw_res", "s_route.l3mac_bak"})
        EXPECT_NE(err.find(std::string("ss_rt_tbl: ") + t + ": data smoothing ended"),
                  std::string::npos) << err;
    EXPECT_EQ(ready, "READY=1\nSTATUS=0 rows in s_route.l3mac_bak, 0 rows in "
                     "s_route.l3mac_hw_res, 0 rows in s_route.l3mac_vrrp_hw_res; store: no error");
    EXPECT_EQ(seen_.size(), 1u) << seen_[0];

    ASSERT_EQ(managed_tbl(kBin, root_, {"set", "s_route.l3mac_res", "index.t_user=19",
                                        "index.uuid=v100", "status=STATUS_REQUEST",
                                        "attr.evlan=100", "attr.mac_type=L3MAC_NORMAL",
                                        "attr.mac=00:11:22:33:44:55"}), 0);
    EXPECT_NE(until("1 row in s_route.l3mac_hw_res"), "");

    kill(pid_, SIGTERM);
    EXPECT_EQ(until("STOPPING=1"), "STOPPING=1\nSTATUS=stopping");
}

}  // namespace
