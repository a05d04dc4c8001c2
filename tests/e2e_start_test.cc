// The real daemon's starts: a refused one leaves exactly one line on
// standard error that names the cause and the path, at every debug level,
// with the exit status and the log lines as before; a broken capability
// profile stops the start (a typo that is only warned of: host_cap_test);
// the level file sets the log; the command socket serves its owner only;
// and the guide's stop recipe still finds a daemon whose pid file a
// refused start has emptied.
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>

#include "support/l3mac_world.h"
#include "support/managed_proc.h"

namespace fs = std::filesystem;

namespace {

const std::string kBin = HNX_BIN_DIR;
const std::string kDaemon = "hnx-l3table-l3mac";

class StartTest : public L3macWorld {
protected:
    void SetUp() override {
        L3macWorld::SetUp();
        fs::create_directories(root_ + "/etc/route/debug");
        fs::create_directories(root_ + "/var/run");
        write_caps({});
    }
    void TearDown() override {
        managed_daemon_kill(first_);
        L3macWorld::TearDown();
    }
    void level(const std::string &l) { std::ofstream(root_ + "/etc/route/debug/l3mac.dbg") << l; }
    // A daemon run to its end: its status, standard output and error.
    managed_result run() { return managed_run(kBin, root_, kDaemon, {}); }
    // A daemon in the background that holds its lock and serves its socket.
    void start_first() {
        first_ = managed_daemon_start(kBin, root_);
        ASSERT_TRUE(managed_wait([&] {
            return fs::exists(root_ + "/var/run/hnx/hnx-l3table-l3mac.sock") &&
                   managed_slurp(pid_file()) == std::to_string(first_) + std::string(1, '\0');
        }));
    }
    int first_exit() { return child_wait(std::exchange(first_, 0)); }
    std::string pid_file() const { return root_ + "/var/run/de.res_l3mac.route.ss.pid"; }
    std::string profile() const { return root_ + "/etc/hnx/capability.json"; }

    pid_t first_ = 0;
};

int lines(const std::string &s) { return l3mac_count_of(s, "\n"); }

// One daemon turns every other start away. A FIFO in place of its level
// file once held the start for good: only a regular file is read, anything
// else is level 0 with a line that says so. The refused start's open
// empties the pid file (it truncates before it tries the lock); the
// guide's stop recipe stops the daemon all the same, and the unit leaves
// the main pid to systemd.
TEST_F(StartTest, ARefusedLockSaysWhyAtEveryLevelAndTheStopRecipeNeedsNoPidFile) {
    const std::string dbg = root_ + "/etc/route/debug/l3mac.dbg";
    ASSERT_EQ(mkfifo(dbg.c_str(), 0600), 0);
    start_first();
    const std::string err = managed_slurp(root_ + "/daemon.out.err");
    EXPECT_NE(err.find(kDaemon + ": debug level file " + dbg +
                       " is not a regular file; level 0 (write the level into a plain file)\n"),
              std::string::npos) << err;
    EXPECT_EQ(managed_slurp(root_ + "/daemon.out"), "");  // level 0 prints nothing
    fs::remove(dbg);

    for (const char *lv : {"0", "5"}) {
        SCOPED_TRACE(lv);
        level(lv);
        const managed_result r = run();
        EXPECT_EQ(r.status, 250);
        EXPECT_EQ(r.err, kDaemon + ": another instance (pid " + std::to_string(first_) +
                             ") holds the lock on " + pid_file() + "; exit -6\n");
        // The log line stays on standard output, gated as before.
        const bool logged =
            r.out.find("check running, rv:-6, another process is already running") !=
            std::string::npos;
        EXPECT_EQ(logged, std::string(lv) != "0") << r.out;
        EXPECT_TRUE(logged || r.out.empty()) << r.out;
    }
    EXPECT_EQ(managed_slurp(pid_file()), "");

    const std::string guide = managed_slurp(HNX_SOURCE_DIR "/docs/operations.md");
    const std::string recipe = "fuser -k -TERM $HNX_ROOT/var/run/de.res_l3mac.route.ss.pid";
    ASSERT_NE(guide.find(recipe), std::string::npos);
    EXPECT_EQ(guide.find("tr -d '\\0' <"), std::string::npos);
    const std::string unit = managed_slurp(HNX_SOURCE_DIR "/packaging/hnx-l3table-l3mac.service");
    EXPECT_EQ(unit.find("\nPIDFile="), std::string::npos);  // systemd tracks what it started
    const std::string cmd = "HNX_ROOT=" + root_ + "; export HNX_ROOT; " + recipe + " >/dev/null 2>&1";
    EXPECT_EQ(std::system(cmd.c_str()), 0);
    EXPECT_EQ(first_exit(), 0);

    fs::remove_all(root_ + "/var/run");
    level("0");
    const managed_result gone = run();
    EXPECT_EQ(gone.status, 245);
    EXPECT_EQ(gone.err, kDaemon + ": cannot open the lock file " + pid_file() +
                            ": No such file or directory; exit -11\n");
    EXPECT_EQ(gone.out, "");
    // The store's own line says what failed at which file, once; the
    // daemon's line says that it ends.
    fs::create_directories(root_ + "/var/run");
    std::ofstream(root_ + "/var/run/hnx") << "not a folder";
    const managed_result r = run();
    EXPECT_EQ(r.status, 239);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(lines(r.err), 2) << r.err;
    EXPECT_EQ(l3mac_count_of(r.err, "ss_rt_tbl: store 16 (" + root_ + "/var/run/hnx/store-16.db): "
                                    "open: "), 1) << r.err;
    EXPECT_NE(r.err.find("\n" + kDaemon + ": cannot connect to table store 16, rv -11; exit -17\n"),
              std::string::npos) << r.err;
}

// Each case: the profile's text and what its one line must hold (every
// fault's words: host_cap_test). An empty file is a syntax error too, and
// the line tells how many faults it leaves unsaid.
TEST_F(StartTest, ABrokenProfileStopsTheStartWithOneLineAsTheCheckSays) {
    const struct { const char *text, *said; } cases[] = {
        {"{\"s_route\": {\"l3mac\": {\"capacity\": {\"tcam-cap\": 2048,\n}}}}",
         " is not valid JSON at line 2, column 1: syntax error"},
        {"", " is not valid JSON at line 1, column 1: syntax error"},
        {R"({"s_route": {"l3mac": {"ability": {"tcam2-en": 1, "is-mng": "yes"}}}})",
         ": s_route/l3mac/ability/tcam2-en is a number (1), not true or false (and 1 more)"},
    };
    for (const char *lv : {"0", "5"}) {
        level(lv);
        for (const auto &c : cases) {
            SCOPED_TRACE(std::string(lv) + ": " + c.text);
            write_profile(c.text);
            if (!*c.text) std::ofstream(profile(), std::ios::trunc).flush();
            const managed_result r = run();
            EXPECT_EQ(r.status, 239);
            EXPECT_EQ(r.err.rfind(kDaemon + ": capability profile " + profile() + c.said, 0), 0u)
                << r.err;
            EXPECT_EQ(lines(r.err), 1) << r.err;
            EXPECT_NE(r.err.find("; not started"), std::string::npos);
            EXPECT_FALSE(fs::exists(root_ + "/var/run/hnx/store-16.db"));  // nothing touched
        }
    }

    // The checker says before a restart what the daemon would say at it.
    auto check = [&](const std::string &file) {
        return managed_run(kBin, root_, "hnx-l3mac-check", {"--profile", file});
    };
    write_profile(R"({"s_route": {"l3mac": {"capacity": {"tcam-cap": 2048, "tcam2-cap": "1024",
                                                        "rsvd_size": 0}}}})");
    managed_result r = check(profile());
    EXPECT_EQ(r.status, 1);
    const std::string head = "capability profile " + profile() + ": ";
    for (const std::string &line : std::vector<std::string>{
             "  s_route/l3mac/capacity/tcam-cap = 2048\n",
             "  s_route/l3mac/capacity/algo: not given, the built-in default\n",
             "error: " + head + "s_route/l3mac/capacity/tcam2-cap is a string (\"1024\"), not "
             "an integer\n",
             "warning: " + head + "unknown key s_route/l3mac/capacity/rsvd_size, ignored (did "
             "you mean s_route/l3mac/capacity/rsvd-size?)\n",
             "1 error, 1 warning: the daemon refuses to start with it\n"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "in:\n" << r.out;

    EXPECT_EQ(check(HNX_SOURCE_DIR "/examples/capability-two-tcam.json").status, 0);
    r = check(root_ + "/none.json");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("no profile at " + root_ + "/none.json"), std::string::npos) << r.err;
    EXPECT_EQ(check("").status, 1);
    EXPECT_EQ(managed_run(kBin, root_, "hnx-l3mac-check", {"--profile"}).status, 2);

    fs::permissions(profile(), fs::perms::none);
    if (getuid() != 0) {  // root reads it all the same
        r = run();
        EXPECT_EQ(r.status, 239);
        EXPECT_NE(r.err.find(profile() + " cannot be read: Permission denied"), std::string::npos);
    }
}

// The command socket is its owner's alone; hnx-cmd says 2 for a line that
// the format refuses, and 3 when the daemon is gone. A level file that does
// not read as a number is level 7: the level table, then the status, lead
// the output (level 0 prints nothing: the refused lock above). With the pid
// file gone, a second daemon passes the instance lock on a new file; the
// store's owner lock still turns it away before it writes, so that two
// daemons never place entries in one table.
TEST_F(StartTest, TheSocketServesItsOwnerOnlyABadLevelIsEveryLevelAndTheStoreHasOneWriter) {
    level("x");
    start_first();
    EXPECT_EQ(fs::status(root_ + "/var/run/hnx/hnx-l3table-l3mac.sock").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(managed_run(kBin, root_, "hnx-cmd", {kDaemon, "dump-evlan-mbr", "1"}).status, 2);
    fs::remove(pid_file());
    const managed_result second = run();
    EXPECT_EQ(second.status, 239);
    EXPECT_NE(second.err.find("ss_rt_tbl: s_route.l3mac_hw_res of store 16 is written by process " +
                              std::to_string(first_) + "; two writers would put two entries at "
                              "one index. Stop that process first"),
              std::string::npos) << second.err;
    EXPECT_EQ(kill(first_, 0), 0);  // the first serves on
    kill(first_, SIGTERM);
    EXPECT_EQ(first_exit(), 0);
    const managed_result gone = managed_run(kBin, root_, "hnx-cmd", {kDaemon, "show-cap"});
    EXPECT_EQ(gone.status, 3);
    EXPECT_NE((gone.out + gone.err).find("hnx-l3table-l3mac is not running"), std::string::npos);
    const std::string out = managed_slurp(root_ + "/daemon.out");
    EXPECT_EQ(out.rfind("\n dbg level                 name\n         0                CLOSE\n", 0), 0u) << out;
    EXPECT_NE(out.find("\nlevel:7 log_cnt:-1 dbg_info:0\nlevel:ALL log_cnt:-1\n"), std::string::npos);
}

}  // namespace
