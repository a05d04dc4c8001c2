// The Debian package as a user gets it: built by cpack from this build,
// unpacked into a scratch root with dpkg -x, and its installed daemon and
// tools run from there against a temporary file root. Its dependencies are
// runtime libraries only, its man pages render without warnings, and its
// bash completion offers the tables, their fields and the debug commands.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/l3mac_world.h"
#include "support/managed_proc.h"

namespace fs = std::filesystem;

namespace {

const std::string kBuild = fs::path(HNX_BIN_DIR).parent_path().string();

// One package for the suite: ctest runs each case as its own process, so
// each case makes its own, which takes seconds.
class Package : public L3macWorld {
protected:
    static void SetUpTestSuite() {
        dir_ = new std::string(testing::TempDir() + "hnx-package-" + std::to_string(getpid()));
        fs::create_directories(*dir_);
        const managed_result made = managed_shell("cd '" + *dir_ + "' && cpack -G DEB --config '" +
                                                  kBuild + "/CPackConfig.cmake' -B '" + *dir_ +
                                                  "' 2>&1");
        for (const auto &e : fs::directory_iterator(*dir_))
            if (e.path().extension() == ".deb") *deb_ = e.path().string();
        if (deb_->empty()) *made_ = made.out;
        else managed_shell("dpkg -x '" + *deb_ + "' '" + *dir_ + "/root'");
    }
    static void TearDownTestSuite() {
        std::error_code ec;
        fs::remove_all(*dir_, ec);
    }
    void SetUp() override {
        L3macWorld::SetUp();
        ASSERT_NE(*deb_, "") << *made_;
        fs::create_directories(root_ + "/var/run");
        write_caps({});
    }
    void TearDown() override {
        managed_daemon_kill(daemon_);
        L3macWorld::TearDown();
    }
    static std::string installed(const std::string &path) { return *dir_ + "/root" + path; }
    // A tool of the package, run under the test's file root.
    managed_result tool(const std::string &name, const std::vector<std::string> &args) {
        return managed_run(installed("/usr/bin"), root_, name, args);
    }

    static inline std::string *dir_ = nullptr;
    static inline std::string *deb_ = new std::string;
    static inline std::string *made_ = new std::string;
    pid_t daemon_ = 0;
};

// Its files, runtime libraries only, and man pages that render without
// warnings.
TEST_F(Package, DependsOnRuntimeLibrariesOnlyAndItsManPagesRender) {
    const managed_result dep = managed_shell("dpkg-deb -f '" + *deb_ + "' Depends");
    EXPECT_EQ(dep.status, 0);
    for (const char *lib : {"libuv1", "libsqlite3-0", "libprotobuf-c1", "libsystemd0"})
        EXPECT_NE(dep.out.find(lib), std::string::npos) << dep.out;
    EXPECT_EQ(dep.out.find("-dev"), std::string::npos) << dep.out;
    for (const char *f : {"/usr/sbin/hnx-l3table-l3mac", "/usr/lib/systemd/system/hnx-l3table-l3mac.service",
                          "/usr/lib/tmpfiles.d/hnx-l3table-l3mac.conf",
                          "/usr/lib/sysusers.d/hnx-l3table-l3mac.conf",
                          "/usr/share/doc/hnx-l3table-l3mac/operations.md",
                          "/usr/share/doc/hnx-l3table-l3mac/examples/capability-two-tcam.json"})
        EXPECT_TRUE(fs::exists(installed(f))) << f;

    int pages = 0;
    for (const char *sec : {"/usr/share/man/man1", "/usr/share/man/man8"})
        for (const auto &e : fs::directory_iterator(installed(sec))) {
            const managed_result r = managed_shell("LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l '" +
                                                   e.path().string() + "' 2>&1 >/dev/null");
            EXPECT_EQ(r.status, 0) << e.path();
            EXPECT_EQ(r.out, "") << e.path();
            pages++;
        }
    EXPECT_EQ(pages, 8);  // the daemon's and one for each of the seven tools
    const managed_result tbl =
        managed_shell("MANWIDTH=80 man -l '" + installed("/usr/share/man/man1/hnx-tbl.1") + "'");
    EXPECT_NE(tbl.out.find("3 the store cannot be read or written."), std::string::npos) << tbl.out;
}

// The installed daemon serves a request that the installed tools write,
// read back and check; the bash completion asks the installed tools for
// the names it offers.
TEST_F(Package, InstalledDaemonToolsAndCompletionServeARequest) {
    daemon_ = managed_daemon_start(installed("/usr/sbin"), root_);
    ASSERT_EQ(tool("hnx-tbl", {"set", "s_route.l3mac_res", "index.t_user=19", "index.uuid=v100",
                               "status=STATUS_REQUEST", "attr.evlan=100",
                               "attr.mac_type=L3MAC_NORMAL", "attr.mac=00:11:22:33:44:55"})
                  .status, 0);
    ASSERT_TRUE(managed_wait([&] {
        return tool("hnx-tbl", {"dump", "s_route.l3mac_hw_res"}).out.find("00:11:22:33:44:55") !=
               std::string::npos;
    }));
    const managed_result help = tool("hnx-cmd", {"hnx-l3table-l3mac", "help"});
    EXPECT_EQ(help.status, 0) << help.err;
    EXPECT_NE(help.out.find("show-cap"), std::string::npos);
    const managed_result check = tool("hnx-l3mac-check", {"--quiet"});
    EXPECT_EQ(check.status, 0) << check.out << check.err;
    EXPECT_EQ(tool("l3mac-cover", {"100-103"}).status, 0);
    for (const char *t : {"hnx-tbl", "hnx-cmd", "hnx-l3mac-check", "l3mac-cover", "l3mac-feed",
                          "hnx-load", "hnx-soak"})
        EXPECT_EQ(tool(t, {"--version"}).out, std::string(t) + " (hnx-l3table-l3mac) 1.0.0\n");

    auto complete = [&](const std::string &fn, const std::string &words, int cword) {
        const std::string script = "export PATH='" + installed("/usr/bin") + "':$PATH HNX_ROOT='" + root_ +
                                   "'; . '" + installed("/usr/share/bash-completion/completions/hnx-tbl") +
                                   "'; COMP_WORDS=(" + words + "); COMP_CWORD=" + std::to_string(cword) +
                                   "; " + fn + " 2>/dev/null; printf '%s\\n' \"${COMPREPLY[@]}\"";
        std::ofstream(root_ + "/complete.sh") << script;
        return managed_shell("bash '" + root_ + "/complete.sh'").out;
    };
    EXPECT_EQ(complete("_hnx_tbl", "hnx-tbl dump s_route.l3mac_h", 2), "s_route.l3mac_hw_res\n");
    EXPECT_EQ(complete("_hnx_tbl", "hnx-tbl set s_route.l3mac_res attr.m", 3),
              "attr.mac_type=\nattr.mac=\nattr.mac.data=\n");
    EXPECT_EQ(complete("_hnx_cmd", "hnx-cmd hnx-l3table-l3mac show-c", 2), "show-cap\n");
    EXPECT_EQ(complete("_hnx_cmd", "hnx-cmd hnx-l", 1), "hnx-l3table-l3mac\n");
    EXPECT_EQ(complete("_hnx_simple hnx-soak", "hnx-soak --boa", 1).find("--board"), 0u);
}

}  // namespace
