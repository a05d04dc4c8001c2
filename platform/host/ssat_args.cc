// Reading of an operator's words by a command's argument format.
#include "platform/host/ssat_args.h"

#include <cstring>

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Skips flags, width, precision and length modifiers of one conversion.
size_t skip_spec(std::string_view fmt, size_t i) {
    while (i < fmt.size() && std::strchr("-+ #0123456789.hlzjt", fmt[i]) != nullptr)
        i++;
    return i;
}

char kind_of_conv(char c) {
    switch (c) {
    case 'd': case 'i': case 'u': case 'x': case 'X': return 'd';
    case 's': return 's';
    case 'm': return 'm';
    default: return 0;
    }
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Digits of one base; false on an empty run, a stray character or a value
// beyond `limit`.
bool read_digits(std::string_view w, int base, uint64_t limit,
                 uint64_t *out) {
    if (w.empty()) return false;
    uint64_t v = 0;
    for (char c : w) {
        int d = hex_digit(c);
        if (d < 0 || d >= base) return false;
        v = v * base + d;
        if (v > limit) return false;
    }
    *out = v;
    return true;
}

const char *kind_text(char kind) {
    switch (kind) {
    case 's': return "a word";
    case 'm': return "a MAC address like 00:11:22:33:44:55";
    default: return "a number, decimal or 0x hexadecimal";
    }
}

std::string quoted(std::string_view w) { return "\"" + std::string(w) + "\""; }

// Calls fn(lead, kind) for each conversion of the format, in order, with
// the text between the previous conversion (or the start) and this one;
// false at a conversion the framework cannot read.
template <class Fn> bool for_each_conv(std::string_view fmt, Fn &&fn) {
    size_t lead_start = 0;
    for (size_t i = 0; i < fmt.size(); i++) {
        if (fmt[i] != '%') continue;
        if (i + 1 < fmt.size() && fmt[i + 1] == '%') {
            i++;
            continue;
        }
        const std::string_view lead = fmt.substr(lead_start, i - lead_start);
        i = skip_spec(fmt, i + 1);
        if (i >= fmt.size()) return false;
        char k = kind_of_conv(fmt[i]);
        if (k == 0) return false;
        fn(lead, k);
        lead_start = i + 1;
    }
    return true;
}

bool is_name_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '_';
}

// The name that a format gives the conversion after `head`: the word right
// before it, past blanks, '=' and ':' ("level=", "log_cnt:", " size = ").
std::string name_before(std::string_view head) {
    while (!head.empty() && std::strchr(" \t=:", head.back()) != nullptr) head.remove_suffix(1);
    size_t start = head.size();
    while (start > 0 && is_name_char(head[start - 1])) start--;
    return std::string(head.substr(start));
}

bool read_one(char kind, std::string_view word, ssat_value *v) {
    v->kind = kind;
    switch (kind) {
    case 's': v->str = word; return true;
    case 'm': return ssat_read_mac(word, v->mac);
    default: return ssat_read_num(word, &v->num);
    }
}

}  // namespace

bool ssat_fmt_kinds(std::string_view fmt, std::string *kinds) {
    kinds->clear();
    return for_each_conv(fmt, [&](std::string_view, char k) { kinds->push_back(k); });
}

bool ssat_fmt_names(std::string_view fmt, std::vector<std::string> *names) {
    names->clear();
    return for_each_conv(fmt, [&](std::string_view lead, char) {
        std::string name = name_before(lead);
        if (name.empty()) name = "arg" + std::to_string(names->size() + 1);
        names->push_back(std::move(name));
    });
}

std::vector<std::string_view> ssat_split_words(std::string_view line) {
    std::vector<std::string_view> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && is_blank(line[i])) i++;
        size_t start = i;
        while (i < line.size() && !is_blank(line[i])) i++;
        if (i > start) words.push_back(line.substr(start, i - start));
    }
    return words;
}

bool ssat_read_num(std::string_view w, int64_t *out) {
    bool neg = false;
    if (!w.empty() && (w[0] == '-' || w[0] == '+')) {
        neg = w[0] == '-';
        w.remove_prefix(1);
    }
    int base = 10;
    if (w.size() > 2 && w[0] == '0' && (w[1] == 'x' || w[1] == 'X')) {
        base = 16;
        w.remove_prefix(2);
    }
    uint64_t v = 0;
    if (!read_digits(w, base, neg ? 2147483648ULL : 4294967295ULL, &v)) return false;
    *out = neg ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
    return true;
}

bool ssat_read_mac(std::string_view w, uint8_t mac[6]) {
    uint8_t m[6];
    for (int g = 0; g < 6; g++) {
        size_t n = g < 5 ? w.find(':') : w.size();
        if (n == std::string_view::npos || n == 0 || n > 2) return false;
        uint64_t v = 0;
        if (!read_digits(w.substr(0, n), 16, 255, &v)) return false;
        m[g] = static_cast<uint8_t>(v);
        w.remove_prefix(g < 5 ? n + 1 : n);
    }
    std::memcpy(mac, m, 6);
    return true;
}

std::vector<ssat_arg> ssat_read::args() const {
    std::vector<ssat_arg> a(values.size());
    for (size_t i = 0; i < values.size(); i++) {
        const ssat_value &v = values[i];
        if (v.kind == 's') a[i].str = v.str.c_str();
        else if (v.kind == 'm') a[i].mac = v.mac;
        else a[i].num = v.num;
    }
    return a;
}

bool ssat_read_args(std::string_view kinds,
                    std::span<const std::string_view> words, ssat_read *out,
                    std::string *err) {
    out->values.assign(kinds.size(), ssat_value{});
    if (words.size() > kinds.size()) {
        *err = "too many arguments: " + std::to_string(words.size()) +
               " given, the command takes " + std::to_string(kinds.size());
        return false;
    }
    for (size_t i = 0; i < kinds.size(); i++) {
        const std::string n = std::to_string(i + 1);
        if (i >= words.size()) {
            *err = "missing argument " + n + ": " + kind_text(kinds[i]);
            return false;
        }
        if (!read_one(kinds[i], words[i], &out->values[i])) {
            *err = "argument " + n + " " + quoted(words[i]) + " is not " +
                   kind_text(kinds[i]);
            return false;
        }
    }
    return true;
}
