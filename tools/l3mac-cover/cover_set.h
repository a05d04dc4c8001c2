// Set syntax of l3mac-cover: numbers and ranges of the 16384-bit VLAN
// bitmap, "1-7,9,100-103", or "-" for the empty set.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

inline constexpr uint32_t COVER_MAX_NUMBER = 16383;

// Parses `text` into ascending, distinct numbers. false, with a message in
// *error, on bad syntax or a number above COVER_MAX_NUMBER.
bool cover_parse_set(std::string_view text, std::vector<uint32_t> *numbers,
                     std::string *error);

// Ascending numbers written back as ranges: "1-7,9"; "-" when empty.
std::string cover_ranges(const std::vector<uint32_t> &numbers);
