// Store URLs and the password file: see tbl_where.h.
#include "platform/host/tbl_where.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {

const char *const kForms = "give sqlite, redis://HOST:PORT[/DB] or unix:///PATH[?db=N]";

bool number(const std::string &s, int lo, int hi, int *out) {
    if (s.empty() || s.size() > 9 || s.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const int v = std::atoi(s.c_str());
    if (v < lo || v > hi) return false;
    *out = v;
    return true;
}

std::string bad(const std::string &text, const std::string &why) {
    return "store URL \"" + text + "\": " + why + "; " + kForms;
}

}  // namespace

std::string tbl_where_parse(const std::string &text, tbl_where *out) {
    *out = tbl_where{};
    out->url = text;
    if (text.empty() || text == "sqlite") return "";
    if (text == "memory") return out->memory = true, "";
    out->redis = true;
    const std::string tcp = "redis://", unix_ = "unix://";
    if (text.rfind(tcp, 0) == 0) {
        std::string rest = text.substr(tcp.size());
        const size_t slash = rest.find('/');
        if (slash != std::string::npos) {
            if (!number(rest.substr(slash + 1), 0, 1 << 20, &out->db))
                return bad(text, "the database after / is not a number");
            rest.resize(slash);
        }
        const size_t colon = rest.rfind(':');
        if (colon == std::string::npos || colon == 0)
            return bad(text, "HOST:PORT is missing");
        out->host = rest.substr(0, colon);
        if (!number(rest.substr(colon + 1), 1, 65535, &out->port))
            return bad(text, "the port is not a number from 1 to 65535");
        return "";
    }
    if (text.rfind(unix_, 0) == 0) {
        std::string rest = text.substr(unix_.size());
        const size_t q = rest.find('?');
        if (q != std::string::npos) {
            const std::string query = rest.substr(q + 1);
            if (query.rfind("db=", 0) != 0 || !number(query.substr(3), 0, 1 << 20, &out->db))
                return bad(text, "the only query is ?db=N with a number N");
            rest.resize(q);
        }
        if (rest.empty() || rest[0] != '/') return bad(text, "the socket path must be absolute");
        out->socket = rest;
        return "";
    }
    return bad(text, "not a store this host knows");
}

std::string tbl_where_now(tbl_where *out) {
    const char *env = std::getenv("HNX_STORE");
    std::string err = tbl_where_parse(env ? env : "", out);
    return err.empty() ? "" : "HNX_STORE: " + err;
}

std::string tbl_where_password(std::string *user, std::string *password) {
    user->clear();
    password->clear();
    const char *file = std::getenv("HNX_STORE_PASSWORD_FILE");
    if (!file || !*file) return "";
    std::ifstream in(file);
    if (!in)
        return std::string("HNX_STORE_PASSWORD_FILE: cannot read ") + file + ": " +
               std::strerror(errno) + "; name a file that holds the password on its first line";
    std::getline(in, *password);
    if (password->empty())
        return std::string("HNX_STORE_PASSWORD_FILE: ") + file +
               " is empty; put the password on its first line";
    const size_t space = password->find(' ');
    if (space != std::string::npos) {
        *user = password->substr(0, space);
        password->erase(0, space + 1);
    }
    return "";
}
