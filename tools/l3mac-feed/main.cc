// l3mac-feed: writes many requests into s_route.l3mac_res in one run, as
// many users of a busy switch would, far faster than one hnx-tbl call a row.
// Reads stdin, one request a line:
//   set USER UUID MAC_TYPE MAC EVLAN     (USER and MAC_TYPE by name or number)
//   del USER UUID
// Blank lines and lines from # on are ignored. A bad line is reported and
// skipped; the exit status is 0 when every line was written, 2 otherwise.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include "cli.h"
#include "platform/host/hnx_host.h"
#include "platform/ss_rt_tbl.h"
#include "s_route.pb-c.h"

namespace {

constexpr int kStore = 16;
constexpr int kKeyPos = 12;  // the `index` member of the row on the target

const char kUsage[] =
    "Usage: l3mac-feed [--root DIR] [--store URL] < REQUESTS\n"
    "  set USER UUID MAC_TYPE MAC EVLAN   e.g. set L3TABLE_L3INTF vlan10 L3MAC_NORMAL 00:11:22:33:44:55 10\n"
    "  del USER UUID\n"
    "Writes the requests of standard input, one a line, into s_route.l3mac_res.\n"
    "USER and MAC_TYPE by name or number; blank lines and text from # on are\n"
    "ignored; a bad line is told on standard error and skipped. --store URL: the\n"
    "table store, as HNX_STORE (sqlite, redis://HOST:PORT[/DB], unix:///PATH).\n"
    "\nExit status: 0 every line written, 2 a usage error or a line refused,\n"
    "3 the table cannot be opened.\n";

const cli_tool kTool = {"l3mac-feed", kUsage};

// An enumeration value given by name or number; -1 when it is neither.
int enum_value(const ProtobufCEnumDescriptor *d, const std::string &word) {
    if (const ProtobufCEnumValue *v = protobuf_c_enum_descriptor_get_value_by_name(d, word.c_str()))
        return v->value;
    char *end = nullptr;
    long n = std::strtol(word.c_str(), &end, 10);
    return (*end == '\0' && !word.empty() && n >= 0 && n < 256) ? int(n) : -1;
}

bool parse_mac(const std::string &text, uint8_t out[6]) {
    unsigned b[6];
    char tail;
    if (std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x%c", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5], &tail) != 6)
        return false;
    for (int i = 0; i < 6; i++) {
        if (b[i] > 255) return false;
        out[i] = uint8_t(b[i]);
    }
    return true;
}

struct feeder {
    ss_rt_tbl *tbl = nullptr;
    int written = 0;
    int refused = 0;

    void refuse(int line, const std::string &why) {
        std::fprintf(stderr, "l3mac-feed: line %d: %s\n", line, why.c_str());
        refused++;
    }

    void line(int no, const std::string &text) {
        std::istringstream in(text.substr(0, text.find('#')));
        std::string verb, user, uuid, type, mac, evlan, extra;
        in >> verb >> user >> uuid;
        if (verb.empty()) return;
        if (verb == "set") in >> type >> mac >> evlan;
        in >> extra;
        if ((verb != "set" && verb != "del") || uuid.empty() || !extra.empty() ||
            (verb == "set" && evlan.empty()))
            return refuse(no, "expected \"set USER UUID MAC_TYPE MAC EVLAN\" or \"del USER UUID\"");
        int u = enum_value(&s_route__l3table_user_e__descriptor, user);
        if (u < 0) return refuse(no, "unknown user " + user);
        SRoute__ResSubKey key = S_ROUTE__RES_SUB_KEY__INIT;
        key.t_user = uint32_t(u);
        key.uuid = uuid.data();
        SRoute__L3macRes row = S_ROUTE__L3MAC_RES__INIT;
        row.index = &key;
        if (verb == "del") return write(no, ss_rt_tbl_del_str(tbl, &row.base, 0, 0));

        int t = enum_value(&s_route__l3mac_type_e__descriptor, type);
        uint8_t addr[6];
        char *end = nullptr;
        unsigned long v = std::strtoul(evlan.c_str(), &end, 10);
        if (t < 0) return refuse(no, "unknown mac type " + type);
        if (!parse_mac(mac, addr)) return refuse(no, "bad MAC " + mac + " (want aa:bb:cc:dd:ee:ff)");
        if (*end != '\0' || v > 0xFFFFFFFFul) return refuse(no, "bad evlan " + evlan);
        PLibpub__Mac m = P_LIBPUB__MAC__INIT;
        m.data = {6, addr};
        SRoute__L3macAttr attr = S_ROUTE__L3MAC_ATTR__INIT;
        attr.evlan = uint32_t(v);
        attr.mac_type = SRoute__L3macTypeE(t);
        attr.mac = &m;
        row.status = S_ROUTE__L3TABLE_STATUS_E__STATUS_REQUEST;
        row.attr = &attr;
        write(no, ss_rt_tbl_add_str(tbl, &row.base, 0, 0));
    }

    void write(int no, int rv) {
        if (rv == 0) {
            written++;
            return;
        }
        refuse(no, "the store refused the row (" + std::to_string(rv) + ")");
    }
};

}  // namespace

int main(int argc, char **argv) {
    hnx_host_store_arg(&argc, argv);  // --store URL, for every tool alike
    if (int status; cli_help_or_version(kTool, argc, argv, &status)) return status;
    int i = 1;
    if (i + 1 < argc && std::strcmp(argv[i], "--root") == 0) {
        hnx_host_set_root(argv[i + 1]);
        i += 2;
    }
    if (i < argc && std::strcmp(argv[i], "--root") == 0)
        return cli_usage_error(kTool, "--root needs a DIR");
    if (i != argc)
        return cli_usage_error(kTool, "unexpected argument \"" + std::string(argv[i]) + "\"");
    SRoute__L3macRes tpl = S_ROUTE__L3MAC_RES__INIT;
    SRoute__ResSubKey key_tpl = S_ROUTE__RES_SUB_KEY__INIT;
    feeder f;
    f.tbl = ss_rt_tbl_create_detail(kStore, 1, &tpl.base, 0, kKeyPos, &key_tpl.base, 0, 0);
    if (!f.tbl) {
        std::fprintf(stderr, "l3mac-feed: cannot open table s_route.l3mac_res\n");
        return 3;
    }
    std::string text;
    for (int no = 1; std::getline(std::cin, text); no++) f.line(no, text);
    std::printf("l3mac-feed: %d rows written, %d refused\n", f.written, f.refused);
    return f.refused ? 2 : 0;
}
