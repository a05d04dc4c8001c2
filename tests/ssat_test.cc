// The command framework: reading words by a format, and a module's
// commands run with their arguments or refused with their format.
#include <cstdio>
#include <filesystem>
#include <tuple>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "platform/host/ssat_args.h"
#include "platform/host/ssat_help.h"
#include "platform/host/ssat_host.h"
#include "platform/host/ssat_server.h"
#include "platform/ssat.h"
#include "support/managed_proc.h"

namespace {

TEST(SsatRead, NumbersAndMacAddresses) {
    struct { const char *w; bool ok; int64_t v; } cases[] = {
        {"12", true, 12}, {"-1", true, -1}, {"0XfF", true, 255}, {"-0x10", true, -16},
        {"4294967295", true, 4294967295LL}, {"0xFFFFFFFF", true, 4294967295LL},
        {"-2147483648", true, -2147483648LL},
        {"4294967296", false, 0}, {"-2147483649", false, 0}, {"0x100000000", false, 0},
        {"", false, 0}, {"0x", false, 0}, {"12a", false, 0},
    };
    for (const auto &c : cases) {
        int64_t v = 0;
        EXPECT_EQ(ssat_read_num(c.w, &v), c.ok) << c.w;
        EXPECT_EQ(v, c.v) << c.w;
    }

    uint8_t m[6] = {};
    ASSERT_TRUE(ssat_read_mac("00:1a:2B:33:44:ff", m));
    const uint8_t want[6] = {0x00, 0x1a, 0x2b, 0x33, 0x44, 0xff};
    EXPECT_EQ(0, memcmp(m, want, 6));
    for (const char *bad : {"00:11:22:33:44", "00:11:22:33:44:55:66", "00:11:22:33:44:5g",
                            "001:11:22:33:44:55", "00-11-22-33-44-55", "", "00::22:33:44:55"})
        EXPECT_FALSE(ssat_read_mac(bad, m)) << bad;
}

// Each conversion is named by the word before it, whatever stands between.
// (The names of the service's own formats in hnx-cmd's help: hnx_cmd_test,
// at_test.)
TEST(SsatRead, FormatNamesItsArguments) {
    const std::pair<const char *, std::vector<std::string>> cases[] = {
        {"dbg on/off, level=%d log_cnt:%d[-1:unlimited]", {"level", "log_cnt"}},
        {" void ", {}},
        {"100%% of %d, then %s", {"of", "then"}},
        {"%d=%s", {"arg1", "arg2"}},
    };
    std::vector<std::string> names;
    for (const auto &[fmt, want] : cases) {
        EXPECT_TRUE(ssat_fmt_names(fmt, &names)) << fmt;
        EXPECT_EQ(names, want) << fmt;
    }
    EXPECT_FALSE(ssat_fmt_names("level=%q", &names));
}

// What the probe handler saw: calls, and the words of the last one.
int g_calls;
std::string g_seen;

int probe(int32_t num, const char *text, const uint8_t *mac, uint32_t extra) {
    g_calls++;
    char buf[96];
    std::snprintf(buf, sizeof buf, "%d %s %02x %u", num, text, mac[5], extra);
    g_seen = buf;
    std::printf("probe %d %s\n", num, text);
    return num < 0 ? -7 : 0;
}

constexpr const char *MOD = "ssat-test";

// A module served on a loop of the test's own, under a temporary root; its
// socket is met end to end through hnx-cmd.
class SsatModule : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/ssat-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        sock_ = root_ + "/var/run/hnx/" + MOD + ".sock";
        uv_loop_init(&loop_);
        ASSERT_EQ(ssat_serve(&loop_, MOD, sock_), 0);
        ASSERT_EQ(ssat_reg_mod_cmd(MOD, "probe", 0, "num=%d, text=%s, mac=%m", probe), 0);
        g_calls = 0;
    }
    void TearDown() override {
        ssat_host_reset();
        uv_run(&loop_, UV_RUN_NOWAIT);  // let the closed handles go
        EXPECT_EQ(uv_loop_close(&loop_), 0);
        std::filesystem::remove_all(root_);
    }
    std::string root_, sock_;
    uv_loop_t loop_;
};

TEST_F(SsatModule, HandlerGetsItsArgumentsAndRefusedLinesCallNothing) {
    ssat_reply r = ssat_run_line(MOD, "  probe\t0x10 abc 00:11:22:33:44:55 \r\n");
    EXPECT_TRUE(r.ran);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.text, "probe 16 abc\n");
    EXPECT_EQ(g_seen, "16 abc 55 0");  // the last, not in the format, reads 0
    r = ssat_run_line(MOD, "probe -1 x 0:0:0:0:0:0");
    EXPECT_EQ(std::tie(r.ran, r.result), std::make_tuple(true, -7));

    const std::string usage = "usage: probe num=%d, text=%s, mac=%m\n";
    const std::pair<const char *, std::string> refused[] = {
        {"probe 1 abc", "probe: missing argument 3: a MAC address like 00:11:22:33:44:55\n" + usage},
        {"probe one abc 0:0:0:0:0:0",
         "probe: argument 1 \"one\" is not a number, decimal or 0x hexadecimal\n" + usage},
        {"probe 1 abc x", "probe: argument 3 \"x\" is not a MAC address like 00:11:22:33:44:55\n" + usage},
        {"probe 1 abc 0:0:0:0:0:0 1 2", "probe: too many arguments: 5 given, the command takes 3\n" + usage},
        {"nosuch 1", "unknown command \"nosuch\"; \"help\" lists the commands\n"},
    };
    for (const auto &[line, text] : refused) {
        SCOPED_TRACE(line);
        r = ssat_run_line(MOD, line);
        EXPECT_FALSE(r.ran);
        EXPECT_EQ(r.text, text);
    }
    EXPECT_EQ(g_calls, 2);
}

int noop() { return 0; }
int other(int32_t n) { return n; }

// "help" answers the registered names and formats exactly, one a line, for
// hnx-cmd to show; a format that would break that line is not registered.
// An init again forgets the module's commands; the same ones registered
// again stand as before, with the handler of now, and a changed format or
// handler is read and checked against each other as at first.
TEST_F(SsatModule, HelpListsTheCommandsAsRegisteredAndAnInitAgainForgetsThem) {
    ASSERT_EQ(ssat_reg_mod_cmd(MOD, "nothing", 0, " void ", noop), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(MOD, "tab", 0, "a=%d\tb=%d", probe), SSAT_E_FORMAT);
    EXPECT_EQ(ssat_reg_mod_cmd(MOD, "two-lines", 0, "a=%d\n", probe), SSAT_E_FORMAT);
    const ssat_reply r = ssat_run_line(MOD, "help");
    EXPECT_TRUE(r.ran);
    EXPECT_EQ(r.text, "probe\tnum=%d, text=%s, mac=%m\nnothing\t void \n");
    std::vector<ssat_cmd_info> cmds;
    ASSERT_TRUE(ssat_help_parse(r.text, &cmds));
    ASSERT_EQ(cmds.size(), 2u);
    EXPECT_EQ(ssat_help_entry(cmds[0], "probe the framework"),
              "probe NUM TEXT MAC\n    probe the framework\n    format: \"num=%d, text=%s, mac=%m\"\n");
    EXPECT_EQ(ssat_help_entry(cmds[1], nullptr), "nothing\n    format: \" void \"\n");
    EXPECT_FALSE(ssat_help_parse("probe num=%d\n", &cmds));

    ASSERT_EQ(ssat_reg_mod_cmd(MOD, "other", 0, "n=%d", other), 0);
    ASSERT_EQ(ssat_serve(&loop_, MOD, sock_), 0);
    EXPECT_TRUE(ssat_host_commands(MOD).empty());
    EXPECT_EQ(ssat_run_line(MOD, "nothing").text,
              "unknown command \"nothing\"; \"help\" lists the commands\n");

    ASSERT_EQ(ssat_reg_mod_cmd(MOD, "probe", 0, "num=%d, text=%s, mac=%m", probe), 0);
    EXPECT_EQ(ssat_reg_mod_cmd(MOD, "probe", 0, "num=%d, text=%s, mac=%m", probe), SSAT_E_DUP);
    ASSERT_EQ(ssat_reg_mod_cmd(MOD, "nothing", 0, "n=%d", other), 0);  // new format, handler
    EXPECT_EQ(ssat_reg_mod_cmd(MOD, "other", 0, "n=%s", other), SSAT_E_FORMAT);
    EXPECT_EQ(ssat_host_commands(MOD), (std::vector<std::string>{"probe", "nothing"}));
    EXPECT_EQ(ssat_run_line(MOD, "help").text, "probe\tnum=%d, text=%s, mac=%m\nnothing\tn=%d\n");
    EXPECT_EQ(ssat_run_line(MOD, "nothing 9").result, 9);
    EXPECT_EQ(ssat_run_line(MOD, "probe 3 t 0:0:0:0:0:2").text, "probe 3 t\n");
    EXPECT_EQ(g_calls, 1);
}

sockaddr_un unix_addr(const std::string &path) {
    sockaddr_un a = {};
    a.sun_family = AF_UNIX;
    std::snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
    return a;
}

// A client of the module's socket: connected, nothing sent yet.
int ssat_client(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un a = unix_addr(path);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&a), sizeof a) == 0) return fd;
    close(fd);
    return -1;
}

// What a client has been sent, and whether the server has closed its side.
std::pair<std::string, bool> ssat_drain(int fd) {
    std::string got;
    char buf[256];
    while (true) {
        ssize_t n = recv(fd, buf, sizeof buf, MSG_DONTWAIT);
        if (n > 0) got.append(buf, size_t(n));
        else return {got, n == 0};
    }
}

// A server killed a moment ago may still listen while its successor
// starts; the holder of the path's lock takes the path all the same, and a
// path whose lock another process holds stays that process's.
TEST_F(SsatModule, TheHolderOfThePathsLockOwnsThePath) {
    const std::string path = root_ + "/var/run/hnx/other.sock";
    const int old = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un a = unix_addr(path);
    ASSERT_EQ(bind(old, reinterpret_cast<const sockaddr *>(&a), sizeof a), 0);
    ASSERT_EQ(listen(old, 4), 0);  // the predecessor, still listening
    struct stat before, after;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    EXPECT_EQ(ssat_serve(&loop_, "other", path), 0);
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino);
    close(old);

    // Another process serves `third` until the test closes its end of `sv`
    // (lockf takes the same whole-file write lock as the server's fcntl).
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv), 0);
    const std::string third = root_ + "/var/run/hnx/third.sock";
    const pid_t holder = child_start([&] {
        close(sv[0]);
        char c = lockf(open((third + ".lock").c_str(), O_RDWR | O_CREAT, 0600), F_TLOCK, 0) ? 'n' : 'y';
        (void)!write(sv[1], &c, 1);
        (void)!read(sv[1], &c, 1);
    });
    char c = 0;
    ASSERT_EQ(read(sv[0], &c, 1), 1);
    ASSERT_EQ(c, 'y');
    EXPECT_EQ(ssat_serve(&loop_, "third", third), SSAT_E_BUSY);
    close(sv[0]);
    child_wait(holder);
    EXPECT_EQ(ssat_serve(&loop_, "third", third), 0);  // its lock went with it
    close(sv[1]);
}

// Clients beyond the bound are told the module is busy; clients that send
// nothing are dropped when their time is up, and their places come back.
TEST_F(SsatModule, ConnectionsAreBoundedInNumberAndTime) {
    const ssat_conn_limits old = ssat_server_set_limits({.max_conns = 3, .timeout_ms = 30});
    std::vector<int> idle;
    for (int i = 0; i < 4; i++) idle.push_back(ssat_client(sock_));
    for (int i = 0; i < 8; i++) uv_run(&loop_, UV_RUN_NOWAIT);
    auto [said, closed] = ssat_drain(idle[3]);
    EXPECT_NE(said.find("the module serves 3 connections already; try again"), std::string::npos);
    EXPECT_TRUE(closed);
    for (int i = 0; i < 3; i++) EXPECT_EQ(ssat_drain(idle[i]), std::pair(std::string(), false));

    // The timer ends the idle ones; the loop runs until they are gone.
    for (int i = 0; i < 200 && !ssat_drain(idle[2]).second; i++) uv_run(&loop_, UV_RUN_ONCE);
    for (int i = 0; i < 3; i++) EXPECT_TRUE(ssat_drain(idle[i]).second) << i;
    for (int i = 0; i < 4; i++) uv_run(&loop_, UV_RUN_NOWAIT);
    const int fresh = ssat_client(sock_);
    ASSERT_EQ(send(fresh, "probe 5 x 0:0:0:0:0:1\n", 22, 0), 22);
    for (int i = 0; i < 8; i++) uv_run(&loop_, UV_RUN_NOWAIT);
    EXPECT_NE(ssat_drain(fresh).first.find("probe 5 x"), std::string::npos);
    for (int fd : idle) close(fd);
    close(fresh);
    ssat_server_set_limits(old);
}

}  // namespace
