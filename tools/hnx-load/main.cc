// hnx-load: drives the L3 MAC daemon through the table store with a
// workload of user requests and prints what it measured; a signal ends the
// run early, after it has taken its rows back.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <unistd.h>

#include "cli.h"
#include "load.h"
#include "platform/host/hnx_host.h"

namespace {

const char kUsage[] =
    "Usage: hnx-load [--root DIR] WORKLOAD [options]\n"
    "workloads: l3intf, vrrp, mixed, scale, scale2, churn, restart\n"
    "Loads the daemon that runs under the root, or one it starts (--daemon), and\n"
    "deletes the request rows it wrote when it ends, also on SIGINT or SIGTERM.\n"
    "  --daemon [PROG]   start the daemon (default: hnx-l3table-l3mac beside this tool)\n"
    "  --store URL       table store, as HNX_STORE: sqlite, redis://HOST:PORT[/DB], unix:///PATH\n"
    "  --cap FILE        capability profile to install under the root before the start\n"
    "  --json            one JSON object instead of lines\n"
    "  --keep            leave the request rows written in the store\n"
    "  --batch N         requests per transaction (64)\n"
    "  --rate N --secs S churn: operations per second and seconds (20000, 5)\n"
    "  --requests N --macs M  scale: requests over MACs; churn: MAC pool (100000, 1000)\n"
    "                    scale2: 2 x 4096 entries from N requests, 32768 to 65536\n"
    "  --with WORKLOAD   restart: what is loaded before the kill (l3intf)\n"
    "  --idle S          measure the daemon's CPU for S idle seconds after the load\n"
    "  --limit S         longest wait for the output tables (10)\n"
    "  --seed N          random sets' seed (1)\n"
    "\nExit status: 0 done, 2 a usage error or a load that could not be run (told\n"
    "on standard error), 130 or 143 stopped by SIGINT or SIGTERM (its rows taken\n"
    "back), 255 the daemon it started did not come up.\n";

const cli_tool kTool = {"hnx-load", kUsage};

std::string beside_me(const char *argv0) {
    char buf[4096];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    std::string self = n > 0 ? std::string(buf, size_t(n)) : argv0;
    return cli_daemon_near(self.substr(0, self.rfind('/')));
}

bool number(const std::string &s, double *out) {
    char *end = nullptr;
    *out = std::strtod(s.c_str(), &end);
    return !s.empty() && *end == 0 && *out >= 0;
}

// Options with a value; a bad one ends the parse with its message.
std::string take(load_opts &o, const std::string &opt, const std::string &val) {
    if (opt == "--root") { o.root = val; o.has_root = true; return ""; }
    if (opt == "--with") { o.base = val; return ""; }
    if (opt == "--cap") { o.cap = val; return ""; }
    double v = 0;
    if (opt != "--batch" && opt != "--rate" && opt != "--secs" && opt != "--requests" &&
        opt != "--macs" && opt != "--idle" && opt != "--limit" && opt != "--seed")
        return "unknown option " + opt;
    if (!number(val, &v)) return "bad value \"" + val + "\" for " + opt;
    if (opt == "--batch") o.batch = int(v);
    else if (opt == "--rate") o.rate = v;
    else if (opt == "--secs") o.secs = v;
    else if (opt == "--requests") o.requests = int(v);
    else if (opt == "--macs") o.macs = int(v);
    else if (opt == "--idle") o.idle = v;
    else if (opt == "--limit") o.settle_limit = v;
    else o.seed = unsigned(v);
    return "";
}

std::string parse(int argc, char **argv, load_opts &o) {
    for (int i = 1; i < argc; i++) {
        std::string a = argv[i];
        if (a == "--json") o.json = true;
        else if (a == "--keep") o.keep = true;
        else if (a == "--daemon") {
            bool has = i + 1 < argc && argv[i + 1][0] != '-' && std::string(argv[i + 1]).find('/') != std::string::npos;
            o.daemon = has ? argv[++i] : beside_me(argv[0]);
        } else if (a.rfind("--", 0) == 0) {
            if (i + 1 >= argc) {
                const std::string err = take(o, a, "");
                return err.rfind("unknown option", 0) == 0 ? err : a + " needs a value";
            }
            if (std::string err = take(o, a, argv[++i]); !err.empty()) return err;
        } else if (o.workload.empty()) o.workload = a;
        else return "one workload only: " + a;
    }
    static const std::set<std::string> known = {"l3intf", "vrrp", "mixed", "scale", "scale2", "churn", "restart"};
    if (!known.count(o.workload)) return o.workload.empty() ? "no workload" : "unknown workload " + o.workload;
    if (o.workload == "restart" && o.daemon.empty()) return "restart needs --daemon";
    if (o.workload == "restart" && (o.base == "restart" || o.base == "churn" || !known.count(o.base)))
        return "--with takes l3intf, vrrp, mixed, scale or scale2";
    return "";
}

volatile sig_atomic_t g_stop = 0;

// The first signal asks the run to end through its clean-up; the handler
// is reset by it, so that a second one ends the tool at once.
void on_stop(int sig) { g_stop = sig; }

void watch_stop() {
    struct sigaction sa = {};
    sa.sa_handler = on_stop;
    sa.sa_flags = SA_RESETHAND;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

}  // namespace

int load_stopped() { return g_stop; }

int main(int argc, char **argv) {
    hnx_host_store_arg(&argc, argv);  // --store URL, for every tool alike
    load_opts o;
    if (int status; cli_help_or_version(kTool, argc, argv, &status)) return status;
    if (std::string err = parse(argc, argv, o); !err.empty()) return cli_usage_error(kTool, err);
    if (o.has_root) hnx_host_set_root(o.root);
    watch_stop();
    load_figures fig;
    int rv = load_run(o, &fig);
    if (load_stopped()) {
        std::fprintf(stderr, "hnx-load: stopped by signal %d\n", int(load_stopped()));
        return rv;
    }
    if (rv == 0 || !fig.items.empty()) load_print(fig, o.workload, o.json);
    return rv;
}
