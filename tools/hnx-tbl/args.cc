// The command line of hnx-tbl: see args.h.
#include "args.h"

#include <string_view>

const char *const kTblUsage =
    "Usage: hnx-tbl [--root DIR] set TABLE FIELD=VALUE...\n"
    "  or:  hnx-tbl [--root DIR] del TABLE KEYFIELD=VALUE...\n"
    "  or:  hnx-tbl [--root DIR] get TABLE KEYFIELD=VALUE...\n"
    "  or:  hnx-tbl [--root DIR] dump TABLE [--json] [--ranges]\n"
    "  or:  hnx-tbl [--root DIR] watch [--json] TABLE...\n"
    "  or:  hnx-tbl tables | fields TABLE      the names the commands take\n"
    "TABLE is a row message's full name (s_route.l3mac_res); FIELD a dotted path\n"
    "into the row (index.uuid, attr.mac). The root is --root, else HNX_ROOT.\n"
    "--store URL places the tables in Redis (redis://HOST:PORT[/DB] or\n"
    "unix:///PATH[?db=N]) instead of the SQLite file under the root; else HNX_STORE.\n"
    "dump lists the rows in key order; --ranges adds the numbers each TCAM entry\n"
    "matches. --json prints one JSON object a line: a row's fields by name,\n"
    "enumerations by their names, a MAC as \"aa:bb:cc:dd:ee:ff\"; watch prints\n"
    "{\"op\": \"set\"|\"del\", \"table\": ..., \"row\": ...} (a del: the key only).\n"
    "\nExit status: 0 done, 1 get: no such row, 2 a usage error or bad input,\n"
    "3 the store cannot be read or written.\n";

namespace {

bool takes_fields(const std::string &verb) { return verb == "set" || verb == "del" || verb == "get"; }

std::string positional(std::string_view word, tbl_args *out) {
    if (out->verb.empty()) {
        out->verb = word;
        if (takes_fields(out->verb) || out->verb == "dump" || out->verb == "watch" ||
            out->verb == "tables" || out->verb == "fields")
            return "";
        return "unknown command " + out->verb;
    }
    bool first_table = out->tables.empty();
    if (first_table || out->verb == "watch") {
        out->tables.emplace_back(word);
        return "";
    }
    size_t eq = word.find('=');
    if (!takes_fields(out->verb)) return "unexpected word " + std::string(word);
    if (eq == std::string_view::npos) return "want FIELD=VALUE, not " + std::string(word);
    out->fields.emplace_back(word.substr(0, eq), word.substr(eq + 1));
    return "";
}

std::string complete(const tbl_args &a) {
    if (a.help) return "";
    if (a.verb.empty()) return "no command";
    if (a.verb == "tables" && !a.tables.empty()) return "tables takes no table";
    if (a.verb == "tables") return "";
    if (a.tables.empty()) return a.verb + " needs a table";
    if (a.json && a.verb != "dump" && a.verb != "watch") return "--json goes with dump and watch only";
    if (a.ranges && a.verb != "dump") return "--ranges goes with dump only";
    return "";
}

}  // namespace

std::string args_parse(int argc, char **argv, tbl_args *out) {
    for (int i = 1; i < argc; i++) {
        std::string_view w = argv[i];
        std::string err;
        if (w == "--root" && i + 1 < argc) {
            out->has_root = true;
            out->root = argv[++i];
        } else if (w.starts_with("--root=")) {
            out->has_root = true;
            out->root = w.substr(7);
        } else if (w == "--json") {
            out->json = true;
        } else if (w == "--ranges") {
            out->ranges = true;
        } else if (w == "-h" || w == "--help") {
            out->help = true;
        } else if (w.starts_with("--")) {
            err = "unknown option " + std::string(w);
        } else {
            err = positional(w, out);
        }
        if (!err.empty()) return err;
    }
    return complete(*out);
}
