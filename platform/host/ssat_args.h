// Reading of an operator's words by a command's argument format: pure
// functions, no state, no output, so that they can be fed any input.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ssat.h"

// The conversions of a format in order, one letter each: 'd' for %d (also
// %i %u %x), 's' for %s, 'm' for %m. Flags, width and length modifiers are
// skipped, "%%" is text. False for a conversion the framework cannot read.
bool ssat_fmt_kinds(std::string_view fmt, std::string *kinds);

// The names that a format gives its conversions, one each, in order: the
// word right before the conversion ("level" in "level=%d", "log_cnt" in
// "log_cnt:%d"), or "argN" (N from 1) where none stands there. False as
// for ssat_fmt_kinds.
bool ssat_fmt_names(std::string_view fmt, std::vector<std::string> *names);

// The words of a command line, split at blanks (space, tab, CR, LF).
std::vector<std::string_view> ssat_split_words(std::string_view line);

// A signed decimal or 0x hexadecimal number (optionally signed) that fits
// a 32-bit word, signed or unsigned: -2147483648 .. 4294967295.
bool ssat_read_num(std::string_view word, int64_t *out);

// A MAC address: six groups of one or two hexadecimal digits joined by ':'.
bool ssat_read_mac(std::string_view word, uint8_t mac[6]);

// One value read from a word, owned here.
struct ssat_value {
    char kind = 'd';
    int64_t num = 0;
    std::string str;
    uint8_t mac[6] = {};
};

// The values of one command line, with the arguments that refer to them.
struct ssat_read {
    std::vector<ssat_value> values;
    // Valid while `values` is not changed.
    std::vector<ssat_arg> args() const;
};

// Reads `words` by the conversions `kinds` (from ssat_fmt_kinds). True and
// `out` filled, or false with `err` telling which word is missing, wrong or
// too many (one line, no format: the caller adds it).
bool ssat_read_args(std::string_view kinds,
                    std::span<const std::string_view> words, ssat_read *out,
                    std::string *err);
