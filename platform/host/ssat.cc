// The debug command framework's registry: modules, their commands in the
// order of registration, and the running of one command line.
#include "platform/ssat.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/hnx_host.h"
#include "platform/host/ssat_args.h"
#include "platform/host/ssat_capture.h"
#include "platform/host/ssat_help.h"
#include "platform/host/ssat_host.h"
#include "platform/host/ssat_server.h"

namespace {

struct ssat_cmd {
    std::string name;
    std::string fmt;
    std::string kinds;  // conversions of fmt, one letter each
    ssat_invoker invoke;
};

// A module's table: its commands are cmds[0, live). An init forgets them
// by setting live to 0 but keeps the records: a service started again in
// one process registers the same commands with the same formats in the same
// order, and each such registration takes its old record back without
// reading its format again. The first one that differs drops the rest.
struct ssat_module {
    std::vector<ssat_cmd> cmds;
    size_t live = 0;
    bool known = true;  // false once forgotten, until its next init
    ssat_server *server = nullptr;
};

// Everything runs on the event thread: no lock. The registry is never
// destroyed, so that a server whose handle the runtime's finish closed is
// still held, not lost, when the process ends.
std::map<std::string, ssat_module, std::less<>> &modules() {
    static auto *m = new std::map<std::string, ssat_module, std::less<>>;
    return *m;
}

ssat_module *find_module(std::string_view name) {
    auto it = modules().find(name);
    return it == modules().end() || !it->second.known ? nullptr : &it->second;
}

bool fits_handler(const std::string &fmt_kinds, std::string_view param_kinds) {
    return fmt_kinds.size() <= param_kinds.size() &&
           param_kinds.substr(0, fmt_kinds.size()) == fmt_kinds;
}

const ssat_cmd *find_cmd(const ssat_module &m, std::string_view name) {
    for (size_t i = 0; i < m.live; i++)
        if (m.cmds[i].name == name) return &m.cmds[i];
    return nullptr;
}

// The next record of the last table, when it is this very command: its
// name and format checked once already, so it stands again as it was.
bool retake_cmd(ssat_module &m, const char *cmd, const char *fmt, ssat_invoker &invoke,
                const char *kinds) {
    if (m.live >= m.cmds.size()) return false;
    ssat_cmd &c = m.cmds[m.live];
    if (c.name != cmd || c.fmt != fmt || !fits_handler(c.kinds, kinds)) {
        m.cmds.resize(m.live);
        return false;
    }
    c.invoke = std::move(invoke);
    m.live++;
    return true;
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
}

std::string usage(const ssat_cmd &c) {
    return "usage: " + c.name + " " + std::string(trimmed(c.fmt)) + "\n";
}

std::string help_text(const ssat_module &m) {
    std::vector<ssat_cmd_info> cmds;
    for (size_t i = 0; i < m.live; i++) cmds.push_back({m.cmds[i].name, m.cmds[i].fmt});
    return ssat_help_list(cmds);
}

// A format is one line of the help list: no tab, no line break in it.
bool fmt_fits_list(std::string_view fmt) {
    return fmt.find_first_of("\t\r\n") == std::string_view::npos;
}

ssat_reply refused(std::string text) { return ssat_reply{false, 0, std::move(text)}; }

ssat_reply run_cmd(const ssat_cmd &c, std::span<const std::string_view> words) {
    ssat_read read;
    std::string err;
    if (!ssat_read_args(c.kinds, words, &read, &err))
        return refused(c.name + ": " + err + "\n" + usage(c));
    // A copy: a handler may register commands and move the table under us.
    ssat_invoker invoke = c.invoke;
    std::vector<ssat_arg> args = read.args();
    ssat_reply reply{true, 0, {}};
    if (!ssat_capture_stdout([&] { return invoke(args); }, &reply.result, &reply.text))
        return refused("cannot capture the output of " + c.name + "\n");
    return reply;
}

}  // namespace

bool ssat_module_name_ok(std::string_view module) {
    if (module.empty() || module.size() > 64 || module[0] == '.') return false;
    for (char c : module) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                  (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
        if (!ok) return false;
    }
    return true;
}

std::string ssat_sock_path(std::string_view module) {
    return hnx_host_path("/var/run/hnx/" + std::string(module) + ".sock");
}

int ssat_serve(uv_loop_t *loop, std::string_view module, const std::string &path) {
    if (loop == nullptr) return SSAT_E_NOLOOP;
    if (!ssat_module_name_ok(module)) return SSAT_E_PARAM;
    ssat_module &m = modules()[std::string(module)];
    m.live = 0;
    m.known = true;
    if (m.server != nullptr && ssat_server_is(m.server, loop, path)) return 0;
    if (m.server != nullptr) ssat_server_close(m.server);
    int rv = 0;
    m.server = ssat_server_open(loop, std::string(module), path, &rv);
    if (m.server == nullptr) modules().erase(modules().find(module));
    return rv;
}

namespace {

// In-process mode: the module's commands are run by direct calls only,
// so no socket is served and a server of an earlier runtime goes.
int ssat_keep_in_process(uv_loop_t *loop, std::string_view module) {
    if (loop == nullptr) return SSAT_E_NOLOOP;
    if (!ssat_module_name_ok(module)) return SSAT_E_PARAM;
    auto it = modules().find(module);
    ssat_module *m = it != modules().end() ? &it->second : &modules()[std::string(module)];
    m->live = 0;
    m->known = true;
    if (m->server != nullptr) ssat_server_close(std::exchange(m->server, nullptr));
    return 0;
}

}  // namespace

int ssat_lib_init(kw_global *global, const char *module) {
    if (global == nullptr || module == nullptr) return SSAT_E_PARAM;
    if (hnx_host_in_process()) return ssat_keep_in_process(hnx_host_loop(global), module);
    return ssat_serve(hnx_host_loop(global), module, ssat_sock_path(module));
}

int ssat_reg_mod_cmd_erased(const char *module, const char *cmd, int,
                            const char *fmt, ssat_invoker invoke,
                            const char *kinds) {
    if (module == nullptr || cmd == nullptr || fmt == nullptr || !invoke)
        return SSAT_E_PARAM;
    ssat_module *m = find_module(module);
    if (m == nullptr) return SSAT_E_NOMOD;
    if (retake_cmd(*m, cmd, fmt, invoke, kinds)) return 0;
    if (ssat_split_words(cmd).size() != 1 || std::string_view(cmd) == "help")
        return SSAT_E_PARAM;
    if (find_cmd(*m, cmd) != nullptr) return SSAT_E_DUP;
    std::string fmt_kinds;
    if (!fmt_fits_list(fmt)) {
        std::fprintf(stderr, "ssat: %s %s: a format is one line without tabs\n", module, cmd);
        return SSAT_E_FORMAT;
    }
    if (!ssat_fmt_kinds(fmt, &fmt_kinds) || !fits_handler(fmt_kinds, kinds)) {
        std::fprintf(stderr, "ssat: %s %s: format \"%s\" does not fit its handler\n",
                     module, cmd, fmt);
        return SSAT_E_FORMAT;
    }
    m->cmds.push_back(ssat_cmd{cmd, fmt, std::move(fmt_kinds), std::move(invoke)});
    m->live = m->cmds.size();
    return 0;
}

ssat_reply ssat_run_line(std::string_view module, std::string_view line) {
    std::vector<std::string_view> words = ssat_split_words(line);
    const ssat_module *m = find_module(module);
    if (m == nullptr) return refused("module " + std::string(module) + " has no commands\n");
    if (words.empty()) return refused("empty command line; \"help\" lists the commands\n");
    if (words[0] == "help") return ssat_reply{true, 0, help_text(*m)};
    const ssat_cmd *c = find_cmd(*m, words[0]);
    if (c == nullptr)
        return refused("unknown command \"" + std::string(words[0]) +
                       "\"; \"help\" lists the commands\n");
    return run_cmd(*c, std::span(words).subspan(1));
}

std::vector<std::string> ssat_host_commands(std::string_view module) {
    std::vector<std::string> names;
    if (const ssat_module *m = find_module(module))
        for (size_t i = 0; i < m->live; i++) names.push_back(m->cmds[i].name);
    return names;
}

void ssat_host_forget_commands() {
    for (auto &[name, m] : modules()) {
        if (m.server != nullptr) ssat_server_close(std::exchange(m.server, nullptr));
        m.live = 0;
        m.known = false;
    }
}

void ssat_host_reset() {
    for (auto &[name, m] : modules())
        if (m.server != nullptr) ssat_server_close(m.server);
    modules().clear();
}
