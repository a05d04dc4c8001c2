// Which store backend this process uses: HNX_STORE from the environment,
// read here only, like HNX_ROOT.
//   unset, "" or "sqlite"      the SQLite file under the file root
//   redis://HOST:PORT[/DB]     a Redis server over TCP, database DB (0)
//   unix:///PATH[?db=N]        a Redis server on a Unix socket
//   memory                     this process's memory (tbl_memory.h): for
//                              tests, fuzz targets and benchmarks that run
//                              the service in one process. No other process
//                              sees it, so the tools refuse it
// A password, where the server wants one, stands in the file named by
// HNX_STORE_PASSWORD_FILE, never on a command line: its first line is
// "PASSWORD" for the default user, or "USER PASSWORD" for an ACL user, as
// Redis's own AUTH takes them.
#pragma once

#include <string>

struct tbl_where {
    bool memory = false;
    bool redis = false;
    std::string url;       // as given, for messages
    std::string host;      // TCP
    int port = 0;
    std::string socket;    // Unix socket path
    int db = 0;            // the Redis database number
};

// Parses a store URL. "" when it is good, else a line that says what is
// wrong and what to give instead.
std::string tbl_where_parse(const std::string &text, tbl_where *out);

// The store that HNX_STORE names, parsed afresh on each call (tests change
// it between cases). "" when good, else the line as above.
std::string tbl_where_now(tbl_where *out);

// The user and password from HNX_STORE_PASSWORD_FILE: both "" when the
// variable is unset, *user "" for the default user. "" when good, else a
// line on why the file fails.
std::string tbl_where_password(std::string *user, std::string *password);
