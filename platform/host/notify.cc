// Readiness and status for the service manager: see notify.h. The rows are
// counted from the store itself, so the line tells what the hardware side
// reads, whatever the service believes it wrote.
#include "platform/host/notify.h"

#include <cstdlib>
#include <set>

#include <systemd/sd-daemon.h>

#include "platform/host/tbl_state.h"

namespace {

std::set<std::string> &written_tables() {
    static std::set<std::string> names;
    return names;
}

// The timer of the status line lives in static storage: the runtime's end
// closes it with every other handle of the loop, and nothing is left to free.
uv_timer_t g_status_timer;
uv_loop_t *g_ready_loop = nullptr;
std::string g_last_sent;

bool manager_listens() {
    const char *sock = std::getenv("NOTIFY_SOCKET");
    return sock && *sock;
}

bool any_window_open() {
    for (const auto &entry : tbl_proc().tables)
        if (entry.second->ds.open) return true;
    return false;
}

// Rows of `name` in the first store that holds it, or -1 when none reads.
long count_rows(const std::string &name) {
    for (const auto &[key, tbl] : tbl_proc().tables) {
        if (tbl->name != name) continue;
        tbl_store *st = tbl_store_of(tbl->db);
        int64_t n = 0;
        return st && st->count(name, &n) == 0 ? long(n) : -1;
    }
    return -1;
}

void send_status(bool ready) {
    const std::string line = host_notify_status();
    if (!ready && line == g_last_sent) return;
    g_last_sent = line;
    const std::string msg = (ready ? "READY=1\nSTATUS=" : "STATUS=") + line;
    sd_notify(0, msg.c_str());
}

void on_status_timer(uv_timer_t *) { send_status(false); }

void start_status_timer(uv_loop_t *loop) {
    uv_timer_init(loop, &g_status_timer);
    uv_timer_start(&g_status_timer, on_status_timer, kHostNotifyStatusMs, kHostNotifyStatusMs);
    // The status alone never keeps the loop alive.
    uv_unref(reinterpret_cast<uv_handle_t *>(&g_status_timer));
}

}  // namespace

void host_notify_smoothing_began(const std::string &name) { written_tables().insert(name); }

void host_notify_smoothing_ended() {
    uv_loop_t *loop = tbl_proc().loop;
    if (!manager_listens() || !loop || loop == g_ready_loop || any_window_open()) return;
    g_ready_loop = loop;
    send_status(true);
    start_status_timer(loop);
}

void host_notify_stopping() {
    if (manager_listens()) sd_notify(0, "STOPPING=1\nSTATUS=stopping");
}

std::string host_notify_status() {
    std::string line;
    for (const std::string &name : written_tables()) {
        const long n = count_rows(name);
        line += (line.empty() ? "" : ", ") +
                (n < 0 ? "? rows" : std::to_string(n) + (n == 1 ? " row" : " rows")) + " in " +
                name;
    }
    const std::string &err = tbl_proc().stats.last_error;
    line += std::string(line.empty() ? "" : "; ") + "store: " + (err.empty() ? "no error" : err);
    return line;
}
