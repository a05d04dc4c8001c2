// at_snprintf: snprintf with one more conversion, %m, a MAC address given
// by reference to 6 bytes and printed as 00:11:22:33:44:55.
//
// The format is walked piece by piece: literal text is copied, %m is
// formatted here, and every other conversion is handed to snprintf with its
// own argument, read with the type that its length modifier names. So every
// standard conversion behaves exactly as snprintf's.
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <type_traits>

#include "platform/ssat.h"

namespace {

// The output: the bytes that fit go to buf, `total` counts them all.
struct out_buf {
    char *buf;
    size_t size;
    size_t total = 0;
    bool failed = false;

    size_t room() const { return total < size ? size - total : 0; }
    char *at() const { return room() ? buf + total : nullptr; }

    void put(const char *s, size_t n) {
        if (size_t r = room(); r > 1) std::memcpy(buf + total, s, n < r - 1 ? n : r - 1);
        total += n;
    }
    // Accounts for what snprintf wrote (or would have written) at at().
    void wrote(int n) {
        if (n < 0) failed = true;
        else total += static_cast<size_t>(n);
    }
    int finish() {
        if (size) buf[total < size ? total : size - 1] = '\0';
        if (failed || total > INT_MAX) {
            if (!failed) errno = EOVERFLOW;
            return -1;
        }
        return static_cast<int>(total);
    }
};

// One conversion as read from the format, with '*' resolved.
struct conv_item {
    const char *start;  // the '%' in the format
    const char *end;    // one past the conversion character
    char flags[8] = {};
    int nflags = 0;
    int width = -1;  // -1 none; -2 more than an int can count
    int prec = -1;
    char len[3] = {};   // "", "hh", "h", "l", "ll", "z", "j", "t", "L"
    char conv = 0;
};

bool is_flag(char c) { return c && std::strchr("-+ #0'", c); }

void add_flag(conv_item &s, char c) {
    if (std::strchr(s.flags, c) == nullptr && s.nflags < 7) s.flags[s.nflags++] = c;
}

// Reads a decimal number; -2 when it does not fit an int.
int read_num(const char *&p) {
    long v = 0;
    for (; *p >= '0' && *p <= '9'; p++) {
        v = v * 10 + (*p - '0');
        if (v > INT_MAX) v = INT_MAX + 1L;
    }
    return v > INT_MAX ? -2 : static_cast<int>(v);
}

void read_width(conv_item &s, const char *&p, va_list &ap) {
    if (*p != '*') {
        if (*p >= '0' && *p <= '9') s.width = read_num(p);
        return;
    }
    p++;
    long w = va_arg(ap, int);
    if (w < 0) {  // a negative width from the argument list means '-'
        add_flag(s, '-');
        w = -w;
    }
    s.width = w > INT_MAX ? -2 : static_cast<int>(w);
}

void read_prec(conv_item &s, const char *&p, va_list &ap) {
    if (*p != '.') return;
    p++;
    if (*p == '*') {
        p++;
        int v = va_arg(ap, int);
        s.prec = v < 0 ? -1 : v;  // negative: as if no precision was given
    } else {
        s.prec = read_num(p);
    }
}

void read_len(conv_item &s, const char *&p) {
    int n = 0;
    if ((p[0] == 'h' || p[0] == 'l') && p[1] == p[0]) {
        s.len[n++] = *p++;
        s.len[n++] = *p++;
    } else if (*p == 'q') {  // BSD's name for ll
        p++;
        s.len[n++] = 'l';
        s.len[n++] = 'l';
    } else if (*p && std::strchr("hlzjtL", *p)) {
        s.len[n++] = *p++;
    }
}

// Reads the conversion behind the '%' at p (the width and precision arguments
// included). A format that ends inside the conversion leaves conv 0.
void read_spec(conv_item &s, const char *p, va_list &ap) {
    s.start = p++;
    for (; is_flag(*p); p++) add_flag(s, *p);
    read_width(s, p, ap);
    read_prec(s, p, ap);
    read_len(s, p);
    if (*p) s.conv = *p++;
    s.end = p;
}

// A field wider than an int can count fails, as in snprintf.
bool too_wide(const conv_item &s) { return s.width == -2 || s.prec == -2; }

// The conversion again, for snprintf, with numbers in place of '*'.
void build(const conv_item &s, char *one, size_t n) {
    char width[16] = "", prec[16] = "";
    if (s.width >= 0) std::snprintf(width, sizeof width, "%d", s.width);
    if (s.prec >= 0) std::snprintf(prec, sizeof prec, ".%d", s.prec);
    std::snprintf(one, n, "%%%s%s%s%s%c", s.flags, width, prec, s.len, s.conv);
}

template <class T> void piece(out_buf &o, const conv_item &s, T v) {
    char one[64];
    build(s, one, sizeof one);
    o.wrote(std::snprintf(o.at(), o.room(), one, v));
}

bool len_is(const conv_item &s, const char *l) { return std::strcmp(s.len, l) == 0; }

void signed_piece(out_buf &o, const conv_item &s, va_list &ap) {
    if (len_is(s, "l")) piece(o, s, va_arg(ap, long));
    else if (len_is(s, "ll") || len_is(s, "L")) piece(o, s, va_arg(ap, long long));
    else if (len_is(s, "z")) piece(o, s, va_arg(ap, std::make_signed_t<size_t>));
    else if (len_is(s, "j")) piece(o, s, va_arg(ap, intmax_t));
    else if (len_is(s, "t")) piece(o, s, va_arg(ap, ptrdiff_t));
    else piece(o, s, va_arg(ap, int));  // "", "h", "hh": promoted to int
}

void unsigned_piece(out_buf &o, const conv_item &s, va_list &ap) {
    if (len_is(s, "l")) piece(o, s, va_arg(ap, unsigned long));
    else if (len_is(s, "ll") || len_is(s, "L")) piece(o, s, va_arg(ap, unsigned long long));
    else if (len_is(s, "z")) piece(o, s, va_arg(ap, size_t));
    else if (len_is(s, "j")) piece(o, s, va_arg(ap, uintmax_t));
    else if (len_is(s, "t")) piece(o, s, va_arg(ap, std::make_unsigned_t<ptrdiff_t>));
    else piece(o, s, va_arg(ap, unsigned));
}

void float_piece(out_buf &o, const conv_item &s, va_list &ap) {
    if (len_is(s, "L")) piece(o, s, va_arg(ap, long double));
    else piece(o, s, va_arg(ap, double));
}

// %n: stores the count so far, at the width its length modifier names.
void count_piece(const out_buf &o, const conv_item &s, va_list &ap) {
    long long n = static_cast<long long>(o.total);
    if (len_is(s, "hh")) *va_arg(ap, signed char *) = static_cast<signed char>(n);
    else if (len_is(s, "h")) *va_arg(ap, short *) = static_cast<short>(n);
    else if (len_is(s, "l")) *va_arg(ap, long *) = static_cast<long>(n);
    else if (len_is(s, "ll")) *va_arg(ap, long long *) = n;
    else if (len_is(s, "z")) *va_arg(ap, size_t *) = static_cast<size_t>(n);
    else *va_arg(ap, int *) = static_cast<int>(n);
}

// %m: the address as text, then placed in its field like a %s.
void mac_piece(out_buf &o, const conv_item &s, va_list &ap) {
    const uint8_t *m = va_arg(ap, const uint8_t *);
    char text[18] = "(null)";
    if (m)
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1],
                      m[2], m[3], m[4], m[5]);
    int width = s.width > 0 ? s.width : 0;
    bool left = std::strchr(s.flags, '-') != nullptr;
    o.wrote(std::snprintf(o.at(), o.room(), left ? "%-*s" : "%*s", width, text));
}

void conversion(out_buf &o, const conv_item &s, va_list &ap) {
    switch (s.conv) {
    case 'd': case 'i': signed_piece(o, s, ap); break;
    case 'u': case 'o': case 'x': case 'X': unsigned_piece(o, s, ap); break;
    case 'f': case 'F': case 'e': case 'E':
    case 'g': case 'G': case 'a': case 'A': float_piece(o, s, ap); break;
    case 'c':
        if (len_is(s, "l")) piece(o, s, va_arg(ap, wint_t));
        else piece(o, s, va_arg(ap, int));
        break;
    case 's':
        if (len_is(s, "l")) piece(o, s, va_arg(ap, const wchar_t *));
        else piece(o, s, va_arg(ap, const char *));
        break;
    case 'p': piece(o, s, va_arg(ap, void *)); break;
    case 'n': count_piece(o, s, ap); break;
    case 'm': mac_piece(o, s, ap); break;
    case '%': o.put("%", 1); break;
    default:  // unknown, or cut by the end of the format: copied as written
        o.put(s.start, static_cast<size_t>(s.end - s.start));
        break;
    }
}

int at_vsnprintf(char *buf, size_t size, const char *fmt, va_list &ap) {
    out_buf o{buf, buf ? size : 0};
    const char *p = fmt;
    while (*p) {
        const char *pct = std::strchr(p, '%');
        if (pct == nullptr) {
            o.put(p, std::strlen(p));
            break;
        }
        o.put(p, static_cast<size_t>(pct - p));
        conv_item s;
        read_spec(s, pct, ap);
        if (too_wide(s)) {
            o.failed = true;
            break;
        }
        conversion(o, s, ap);
        p = s.end;
    }
    return o.finish();
}

}  // namespace

int at_snprintf(char *buf, size_t size, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = at_vsnprintf(buf, size, fmt, ap);
    va_end(ap);
    return n;
}
