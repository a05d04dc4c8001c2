// Readiness and status for the service manager, by systemd's notify
// protocol: READY=1 once every data smoothing window of this process has
// ended (its output tables stand, and it serves requests), STATUS= lines
// with the rows of those tables and the last store error, STOPPING=1 when
// the event loop ends. Without NOTIFY_SOCKET in the environment nothing is
// sent and no timer is made: a process started by hand runs as before.
#pragma once

#include <string>

// How often the status line is looked at again once ready; it is sent when
// it changed.
constexpr unsigned kHostNotifyStatusMs = 2000;

// A data smoothing window of table `name` began: the table is one that this
// process writes, and its rows belong in the status line.
void host_notify_smoothing_began(const std::string &name);

// A smoothing window ended; when none is left open, READY=1 goes out with
// the first status line, once per event loop.
void host_notify_smoothing_ended();

// The event loop of the runtime has ended.
void host_notify_stopping();

// The status line as it stands: "N rows in TABLE, ...; store: ...".
std::string host_notify_status();
