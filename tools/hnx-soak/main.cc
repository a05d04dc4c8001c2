// hnx-soak [options]: a crash-restart soak of hnx-l3table-l3mac. Random
// requests go into the input table while the daemon runs (and while it is
// down); the daemon is killed with SIGKILL at random moments, restarted,
// left to settle, and the store is checked with hnx-l3mac-check. Entries
// that stood whole in both tables at the kill and are still wanted must
// stand at the same index afterwards. Bounded in time and in restarts;
// prints its figures; exit status 0 when nothing was found.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

#include "cli.h"
#include "platform/host/hnx_host.h"
#include "soak.h"

namespace fs = std::filesystem;

namespace {

constexpr const char *kUsage =
    "Usage: hnx-soak [--seconds N] [--restarts N] [--seed N] [--board two|copy|direct|one]\n"
    "                [--macs N] [--keys N] [--burst N] [--unit-ms N] [--root DIR] [--keep]\n"
    "                [--bin DIR] [--store URL]\n"
    "A crash-restart soak of the daemon: random requests, SIGKILL at random moments,\n"
    "and a check of the store after every restart.\n"
    "  --seconds N    longest run in seconds (40)\n"
    "  --restarts N   most restarts (1000000)\n"
    "  --seed N       seed of the random choices (1)\n"
    "  --board NAME   built-in board: two, copy, direct or one (two)\n"
    "  --macs N       MAC addresses in play, 1-65535 (16)\n"
    "  --keys N       most requests standing at once (300)\n"
    "  --burst N      most requests written between two kills (120)\n"
    "  --unit-ms N    timer unit of the daemon in ms (5)\n"
    "  --root DIR     file root to use (default: a fresh temporary one)\n"
    "  --keep         keep the root at the end\n"
    "  --store URL    table store, as HNX_STORE: sqlite, redis://HOST:PORT[/DB], unix:///PATH\n"
    "  --bin DIR      folder of the daemon and the checker (default: this tool's)\n"
    "\nExit status: 0 nothing found, 1 violations found (printed),\n"
    "2 a usage error or a root that cannot be prepared.\n";

const cli_tool kTool = {"hnx-soak", kUsage};

// A numeric option's value into *out; "" or what is wrong with it.
std::string soak_number(const std::string &opt, const std::string &val, long lo, long hi,
                        long *out) {
    std::string why;
    return cli_number(val, lo, hi, out, &why) ? "" : opt + ": " + why;
}

std::string soak_take(soak_opts *o, const std::string &a, const std::string &val) {
    long v = 0;
    std::string err;
    if (a == "--board") {
        if (soak_board_json(val).empty())
            return "unknown board \"" + val + "\"; boards: " + soak_board_names();
        o->board = val;
    } else if (a == "--root") o->root = val;
    else if (a == "--bin") o->bin = val;
    else if (a == "--seconds") { err = soak_number(a, val, 0, 1000000000, &v); o->seconds = int(v); }
    else if (a == "--restarts") { err = soak_number(a, val, 0, 1000000000, &v); o->restarts = int(v); }
    else if (a == "--seed") { err = soak_number(a, val, 0, 4294967295, &v); o->seed = uint32_t(v); }
    else if (a == "--macs") { err = soak_number(a, val, 1, 65535, &v); o->macs = int(v); }
    else if (a == "--keys") { err = soak_number(a, val, 1, 1000000000, &v); o->keys = int(v); }
    else if (a == "--burst") { err = soak_number(a, val, 1, 1000000000, &v); o->burst = int(v); }
    else if (a == "--unit-ms") { err = soak_number(a, val, 1, 1000000, &v); o->unit_ms = int(v); }
    else return "unknown option " + a;
    return err;
}

// "" when the command line is good, else what is wrong with it.
std::string soak_parse(int argc, char **argv, soak_opts *o) {
    for (int i = 1; i < argc; i++) {
        const std::string a = argv[i];
        if (a == "--keep") o->keep = true;
        else if (a.rfind("--", 0) != 0) return "unexpected argument \"" + a + "\"";
        else if (i + 1 >= argc) {
            const std::string err = soak_take(o, a, "");
            return err.rfind("unknown option", 0) == 0 ? err : a + " needs a value";
        } else if (std::string err = soak_take(o, a, argv[++i]); !err.empty()) {
            return err;
        }
    }
    return "";
}

// The folder of this program: the daemon and the checker are built beside it.
std::string soak_own_dir() {
    std::error_code ec;
    return fs::read_symlink("/proc/self/exe", ec).parent_path().string();
}

bool soak_prepare_root(soak_opts *o) {
    if (o->root.empty()) {
        char tmpl[] = "/tmp/hnx-soak-XXXXXX";
        if (!mkdtemp(tmpl)) return false;
        o->root = tmpl;
    }
    const std::string json = soak_board_json(o->board);
    if (json.empty()) return false;
    fs::create_directories(o->root + "/etc/hnx");
    fs::create_directories(o->root + "/var/run");  // the daemon's lock lives there
    std::ofstream(o->root + "/etc/hnx/capability.json") << json;
    hnx_host_set_root(o->root);
    soak_tables_open();
    return true;
}

class soak_run {
public:
    soak_run(const soak_opts &o) : o_(o), rng_(o.seed), traffic_(o, rng_) {}

    int go();

private:
    bool up();
    void down();
    void check();
    void compare_places(const soak_places &now);
    void found(const std::string &what);
    bool time_left() const {
        return std::chrono::steady_clock::now() < until_ && f_.restarts < o_.restarts;
    }
    uint32_t pick(uint32_t lo, uint32_t hi) {
        return std::uniform_int_distribution<uint32_t>(lo, hi)(rng_);
    }

    const soak_opts &o_;
    std::mt19937 rng_;
    soak_traffic traffic_;
    soak_figures f_;
    l3mac_check_board board_;
    soak_places at_kill_;
    pid_t pid_ = 0;
    std::chrono::steady_clock::time_point until_;
};

void soak_run::found(const std::string &what) {
    f_.violations++;
    std::printf("hnx-soak: restart %d: %s\n", f_.restarts, what.c_str());
    std::fflush(stdout);
}

// Entries whole at the last kill that stand now, after a start that ran
// at most its first round, stand where they stood; what stands whole now
// is what the next comparison starts from.
void soak_run::compare_places(const soak_places &now) {
    std::vector<std::string> moved;
    soak_compare_places(at_kill_, now, &f_, &moved);
    for (const std::string &m : moved) found("an entry that stays wanted moved: " + m);
    at_kill_ = now;
}

// Starts the daemon; now and then kills it again while it starts and
// smooths its data, which may have published its first round already.
// True once it is up, settled and checked.
bool soak_run::up() {
    while (time_left() && pick(0, 99) < 20) {
        pid_ = soak_daemon_start(o_);
        std::this_thread::sleep_for(std::chrono::microseconds(pick(0, 12000)));
        const bool answered = soak_daemon_ready(pid_, std::chrono::milliseconds(0));
        soak_daemon_kill(pid_);
        f_.restarts++;
        if (!answered) f_.kills_starting++;
        compare_places(soak_whole_entries(board_));
        traffic_.burst(static_cast<int>(pick(0, 3)), &f_);
    }
    pid_ = soak_daemon_start(o_);
    if (!soak_daemon_ready(pid_, std::chrono::seconds(60))) {
        found("the daemon did not come up (see " + o_.root + "/daemon.log)");
        return false;
    }
    if (!soak_settle(std::chrono::seconds(60))) found("the tables did not settle");
    check();
    return true;
}

void soak_run::check() {
    std::vector<std::string> lines;
    const int status = soak_run_checker(o_, &lines);
    f_.checks++;
    for (const std::string &l : lines) {
        unsigned u = 0, fill0 = 0, fill1 = 0;
        if (l.rfind("violation:", 0) == 0) found(l);
        else if (std::sscanf(l.c_str(), "hnx-l3mac-check: %*u managed and %*u direct requests, "
                             "%*u MACs (%u unserved), TCAM 0 holds %u of %*u, TCAM 1 holds %u",
                             &u, &fill0, &fill1) == 3) {
            f_.unserved += static_cast<int>(u);
            f_.fill[0] = fill0;
            f_.fill[1] = fill1;
        }
    }
    if (status != 0 && status != 1) found("hnx-l3mac-check failed: status " + std::to_string(status));
    compare_places(soak_whole_entries(board_));
}

// Requests while the daemon runs, and the kill somewhere among them. The
// number of standing requests swings between high and low every ten
// restarts, so that the TCAMs fill up and drain again.
void soak_run::down() {
    traffic_.set_bound((f_.restarts / 10) % 2 ? o_.keys / 6 + 1 : o_.keys);
    hnx_host_tbl_journal_clear();
    const int n = static_cast<int>(pick(1, o_.burst));
    const int kill_at = static_cast<int>(pick(0, n));
    for (int i = 0; i <= n; i++) {
        if (i == kill_at) {
            std::this_thread::sleep_for(std::chrono::microseconds(pick(0, 20000)));
            soak_daemon_kill(pid_);
        }
        if (i < n) traffic_.burst(1, &f_);
    }
    // While it ran, requests came and went: an entry may have gone and come
    // back elsewhere. Only a restart must leave the entries where they are.
    at_kill_ = soak_whole_entries(board_);
    f_.restarts++;
}

int soak_run::go() {
    // The board as the daemon will build it from the profile under the root.
    board_ = l3mac_check_board_of_profile();
    until_ = std::chrono::steady_clock::now() + std::chrono::seconds(o_.seconds);
    std::printf("hnx-soak: root %s, board %s, seed %u, %d s or %d restarts at most\n",
                o_.root.c_str(), o_.board.c_str(), o_.seed, o_.seconds, o_.restarts);
    bool ok = up();
    while (ok && time_left()) {
        down();
        ok = up();
    }
    soak_daemon_stop(pid_);
    std::printf("hnx-soak: %d restarts (%d killed while starting), %llu requests, %d checks, "
                "%d violations, %d entries kept their index, %d moved (%d more of MACs with a "
                "phyid, renewed by design), %d unserved MACs seen, TCAM fill at the end %u "
                "and %u\n",
                f_.restarts, f_.kills_starting, static_cast<unsigned long long>(f_.requests),
                f_.checks, f_.violations, f_.entries_kept, f_.entries_moved, f_.entries_renewed,
                f_.unserved, f_.fill[0], f_.fill[1]);
    return f_.violations == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    hnx_host_store_arg(&argc, argv);  // --store URL, for every tool alike
    soak_opts o;
    o.bin = soak_own_dir();
    if (int status; cli_help_or_version(kTool, argc, argv, &status)) return status;
    if (std::string err = soak_parse(argc, argv, &o); !err.empty())
        return cli_usage_error(kTool, err);
    const bool own_root = o.root.empty();
    if (!soak_prepare_root(&o)) {
        std::fprintf(stderr, "hnx-soak: cannot prepare the root (board %s)\n", o.board.c_str());
        return 2;
    }
    const int rv = soak_run(o).go();
    if (own_root && !o.keep && rv == 0) fs::remove_all(o.root);
    else std::printf("hnx-soak: the root stays at %s\n", o.root.c_str());
    return rv;
}
