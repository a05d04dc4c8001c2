// Set syntax of l3mac-cover: parsing and writing numbers and ranges.
#include "cover_set.h"

#include <algorithm>
#include <charconv>

namespace {

bool parse_number(std::string_view s, uint32_t *n, std::string *error) {
    const char *end = s.data() + s.size();
    uint64_t v = 0;
    const auto [ptr, ec] = std::from_chars(s.data(), end, v);
    if (s.empty() || ec == std::errc::invalid_argument || ptr != end) {
        *error = std::string("'").append(s).append("' is not a number");
        return false;
    }
    if (ec == std::errc::result_out_of_range || v > COVER_MAX_NUMBER) {
        *error = std::string("number ").append(s).append(" is out of range (0-16383)");
        return false;
    }
    *n = static_cast<uint32_t>(v);
    return true;
}

// One item: a number or a range "lo-hi" with lo <= hi.
bool parse_item(std::string_view item, std::vector<uint32_t> *numbers,
                std::string *error) {
    if (item.empty()) {
        *error = "empty item";
        return false;
    }
    const size_t dash = item.find('-');
    uint32_t lo = 0, hi = 0;
    if (!parse_number(item.substr(0, dash), &lo, error)) return false;
    hi = lo;
    if (dash != std::string_view::npos &&
        !parse_number(item.substr(dash + 1), &hi, error))
        return false;
    if (hi < lo) {
        *error = "range " + std::string(item) + " runs backwards";
        return false;
    }
    for (uint32_t v = lo; v <= hi; ++v) numbers->push_back(v);
    return true;
}

}  // namespace

bool cover_parse_set(std::string_view text, std::vector<uint32_t> *numbers,
                     std::string *error) {
    numbers->clear();
    if (text == "-") return true;
    if (text.empty()) {
        *error = "empty set (write '-')";
        return false;
    }
    for (size_t start = 0;;) {
        const size_t comma = text.find(',', start);
        if (!parse_item(text.substr(start, comma - start), numbers, error)) return false;
        if (comma == std::string_view::npos) break;
        start = comma + 1;
    }
    std::sort(numbers->begin(), numbers->end());
    numbers->erase(std::unique(numbers->begin(), numbers->end()), numbers->end());
    return true;
}

std::string cover_ranges(const std::vector<uint32_t> &numbers) {
    if (numbers.empty()) return "-";
    std::string out;
    for (size_t i = 0; i < numbers.size();) {
        size_t j = i;
        while (j + 1 < numbers.size() && numbers[j + 1] == numbers[j] + 1) ++j;
        if (!out.empty()) out += ',';
        out += std::to_string(numbers[i]);
        if (j > i) out += '-' + std::to_string(numbers[j]);
        i = j + 1;
    }
    return out;
}
