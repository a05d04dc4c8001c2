// The check of a capability profile file against the keys its reader
// knows: see cap_check.h.
#include "platform/host/cap_check.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "platform/host/cap.h"
#include "platform/host/hnx_host.h"

using nlohmann::json;

namespace {

// The keys the L3 MAC service reads at bring-up; everything under
// s_route/l3mac is its own, so another key there is a slip.
const hnx_cap_schema kL3macSchema = {
    {
        {"s_route/l3mac/capacity/algo", hnx_cap_kind::int32},
        {"s_route/l3mac/capacity/tcam-cap", hnx_cap_kind::int32},
        {"s_route/l3mac/capacity/tcam2-cap", hnx_cap_kind::int32},
        {"s_route/l3mac/capacity/rsvd-size", hnx_cap_kind::int32},
        {"s_route/l3intf/capacity/l3mac-dec-cnt", hnx_cap_kind::int32},
        {"s_bridge/ebridge/capacity/evlan_num", hnx_cap_kind::int32},
        {"s_route/l3mac/ability/tcam2-en", hnx_cap_kind::flag},
        {"s_route/l3mac/ability/is-mng", hnx_cap_kind::flag},
        {"s_route/l3mac/ability/is-mng2", hnx_cap_kind::flag},
        {"s_route/l3mac/ability/copy-to-tcam2", hnx_cap_kind::flag},
        {"s_route/l3mac/ability/compact-cover", hnx_cap_kind::flag},
    },
    "s_route/l3mac",
};
const hnx_cap_schema kNoSchema = {};

std::vector<std::string> split_path(std::string_view path) {
    std::vector<std::string> segs;
    for (size_t cut; (cut = path.find('/')) != std::string_view::npos; path.remove_prefix(cut + 1))
        segs.emplace_back(path.substr(0, cut));
    segs.emplace_back(path);
    return segs;
}

// The value as the file writes it, cut short for a line.
std::string shown(const json &v) {
    std::string s = v.dump();
    return s.size() > 40 ? s.substr(0, 37) + "..." : s;
}

bool fits_int32(const json &v) {
    if (v.is_number_unsigned()) return v.get<uint64_t>() <= INT32_MAX;
    if (!v.is_number_integer()) return false;
    const int64_t s = v.get<int64_t>();
    return s >= INT32_MIN && s <= INT32_MAX;
}

// "is a string (\"12\")", "is an array ([1])", "is null".
std::string is_what(const json &v) {
    if (v.is_null()) return "is null";
    const std::string kind = v.type_name();
    const bool vowel = kind[0] == 'a' || kind[0] == 'o';
    return std::string(vowel ? "is an " : "is a ") + kind + " (" + shown(v) + ")";
}

// Why `v` is no value of `kind`, or "" when it is one.
std::string kind_fault(const json &v, hnx_cap_kind kind) {
    if (kind == hnx_cap_kind::flag) return v.is_boolean() ? "" : is_what(v) + ", not true or false";
    if (fits_int32(v)) return "";
    if (v.is_number_integer()) return "is " + shown(v) + ", beyond a 32-bit integer";
    if (v.is_number_float()) return "is " + shown(v) + ", not a whole number";
    return is_what(v) + ", not an integer";
}

// Levenshtein distance, for the key that an unknown one most likely meant.
size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++) row[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        size_t diag = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] != b[j - 1])});
            diag = up;
        }
    }
    return row[b.size()];
}

struct checker {
    const std::string &file;
    const hnx_cap_schema &schema;
    hnx_cap_findings &out;
    std::set<std::string> known;  // every key path and every object above one

    std::string head() const { return "capability profile " + file + ": "; }

    void learn_paths() {
        for (const hnx_cap_key &k : schema.keys) {
            std::string at;
            for (const std::string &seg : split_path(k.path)) {
                at += (at.empty() ? "" : "/") + seg;
                known.insert(at);
            }
        }
    }

    // One key: its value when given, and the fault of the value or of an
    // object above it that is no object (said once for all keys below).
    void check_key(const json &doc, const hnx_cap_key &k, std::set<std::string> &said) {
        const json *at = &doc;
        std::string path;
        for (const std::string &seg : split_path(k.path)) {
            if (!path.empty() && !at->is_object()) {
                if (said.insert(path).second)
                    out.errors.push_back(head() + path + " " + is_what(*at) +
                                         ", not an object of keys");
                out.values.emplace_back(k.path, "");
                return;
            }
            path += (path.empty() ? "" : "/") + seg;
            auto it = at->find(seg);
            if (it == at->end()) {
                out.values.emplace_back(k.path, "");
                return;
            }
            at = &*it;
        }
        out.values.emplace_back(k.path, shown(*at));
        if (std::string fault = kind_fault(*at, k.kind); !fault.empty())
            out.errors.push_back(head() + k.path + " " + fault);
    }

    // The known key that `path` most likely meant: one of the same name in
    // another place, or the nearest of the same depth within three edits.
    std::string nearest(const std::string &path) const {
        const std::vector<std::string> segs = split_path(path);
        std::string best;
        size_t best_d = 4;
        for (const std::string &k : known) {
            const std::vector<std::string> ks = split_path(k);
            if (ks.back() == segs.back()) return k;
            if (ks.size() != segs.size()) continue;
            const size_t d = distance(path, k);
            if (d < best_d) best_d = d, best = k;
        }
        return best;
    }

    // Keys under the service's own path that no schema key lies on.
    void check_unknown(const json &obj, const std::string &path) {
        for (auto it = obj.begin(); it != obj.end(); ++it) {
            const std::string sub = path + "/" + it.key();
            if (!known.count(sub)) {
                const std::string near = nearest(sub);
                out.warnings.push_back(head() + "unknown key " + sub + ", ignored" +
                                       (near.empty() ? "" : " (did you mean " + near + "?)"));
            } else if (it->is_object()) {
                check_unknown(*it, sub);
            }
        }
    }

    void run(const json &doc) {
        learn_paths();
        std::set<std::string> said;
        for (const hnx_cap_key &k : schema.keys) check_key(doc, k, said);
        if (schema.own_prefix.empty()) return;
        const json *own = &doc;
        for (const std::string &seg : split_path(schema.own_prefix)) {
            if (!own->is_object() || !own->contains(seg)) return;
            own = &(*own)[seg];
        }
        if (own->is_object()) check_unknown(*own, schema.own_prefix);
    }
};

// Line and column (both from 1) of the byte before `byte` (1-based, as the
// JSON library counts the bytes it has read).
std::pair<size_t, size_t> line_col(const std::string &text, size_t byte) {
    const size_t end = std::min(byte > 0 ? byte - 1 : 0, text.size());
    size_t line = 1, col = 1;
    for (size_t i = 0; i < end; i++) {
        if (text[i] == '\n') line++, col = 1;
        else col++;
    }
    return {line, col};
}

// The library's reason without its own head ("[json.exception...] parse
// error at line 1, column 5: ").
std::string parse_reason(const json::parse_error &e) {
    std::string what = e.what();
    size_t cut = what.find("column ");
    cut = what.find(": ", cut == std::string::npos ? 0 : cut);
    return cut == std::string::npos ? what : what.substr(cut + 2);
}

// The whole file, or false with errno set.
bool slurp(const std::string &path, std::string *text) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text->append(buf, size_t(n));
    const int err = errno;
    close(fd);
    errno = err;
    return n == 0;
}

}  // namespace

const hnx_cap_schema &hnx_cap_schema_of(const char *name) {
    return name && std::strcmp(name, "hnx-l3table-l3mac") == 0 ? kL3macSchema : kNoSchema;
}

hnx_cap_findings hnx_cap_check_text(const std::string &path, const std::string &text,
                                    const hnx_cap_schema &schema) {
    hnx_cap_findings out;
    out.present = true;
    json doc;
    try {
        doc = json::parse(text);
    } catch (const json::parse_error &e) {
        const auto [line, col] = line_col(text, e.byte);
        out.errors.push_back("capability profile " + path + " is not valid JSON at line " +
                             std::to_string(line) + ", column " + std::to_string(col) + ": " +
                             parse_reason(e));
        return out;
    }
    if (!doc.is_object()) {
        out.errors.push_back("capability profile " + path + ": the top is a JSON " +
                             doc.type_name() + ", not an object");
        return out;
    }
    checker{path, schema, out, {}}.run(doc);
    return out;
}

hnx_cap_findings hnx_cap_check_file(const std::string &path, const hnx_cap_schema &schema) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 && errno == ENOENT) return {};
    std::string text;
    if (!slurp(path, &text)) {
        hnx_cap_findings out;
        out.present = true;
        out.errors.push_back("capability profile " + path + " cannot be read: " +
                             std::strerror(errno));
        return out;
    }
    return hnx_cap_check_text(path, text, schema);
}

namespace {

// The findings of the last starts' files. A daemon starts once; a harness
// that starts the service again and again over a few profiles (the fuzz
// targets, one per board) checks each text once, and the same text finds
// the same. The last few are kept.
struct past_check {
    const hnx_cap_schema *schema = nullptr;
    std::string path, text;
    hnx_cap_findings found;
};

const hnx_cap_findings &check_once(const std::string &path, const std::string &text,
                                   const hnx_cap_schema &schema) {
    static std::deque<past_check> kept;
    for (const past_check &c : kept)
        if (c.schema == &schema && c.text == text && c.path == path) return c.found;
    if (kept.size() == 8) kept.pop_front();
    kept.push_back({&schema, path, text, hnx_cap_check_text(path, text, schema)});
    return kept.back().found;
}

// The text that a harness gave stands for the file (hnx_host_set_profile).
const hnx_cap_findings &check_at_start(const std::string &path, const hnx_cap_schema &schema) {
    static const hnx_cap_findings none;
    static hnx_cap_findings unread;
    if (const std::optional<std::string> *given = hnx_cap_given_profile())
        return *given ? check_once(path, **given, schema) : none;
    struct stat st;
    std::string text;
    if ((stat(path.c_str(), &st) != 0 && errno == ENOENT) || !slurp(path, &text))
        return unread = hnx_cap_check_file(path, schema);
    return check_once(path, text, schema);
}

}  // namespace

int hnx_cap_start_check(const char *name) {
    const hnx_cap_schema &schema = hnx_cap_schema_of(name);
    if (schema.keys.empty()) return 0;
    const std::string path = hnx_host_path(HNX_CAP_FILE);
    const hnx_cap_findings &f = check_at_start(path, schema);
    for (const std::string &w : f.warnings) std::fprintf(stderr, "%s: %s\n", name, w.c_str());
    if (f.ok()) return 0;
    std::string more;
    if (f.errors.size() > 1)
        more = " (and " + std::to_string(f.errors.size() - 1) + " more)";
    std::fprintf(stderr,
                 "%s: %s%s; not started: mend the file (hnx-l3mac-check --profile %s lists "
                 "every fault) or remove it to start on the built-in defaults\n",
                 name, f.errors.front().c_str(), more.c_str(), path.c_str());
    return HNX_CAP_E_BAD_FILE;
}
