// Debug command lines of any text through the command framework: split
// into words, read by each command's argument format (ssat_args) and run on
// a live service, which the injecting commands change. The words that a
// format reads are read back as the framework promises, and after the
// lines and a decision round the service is consistent.
#include <cstdlib>
#include <string_view>

#include "decision/l3mac_decision.h"
#include "platform/host/ssat_args.h"
#include "platform/host/ssat_host.h"
#include "support/fuzz_world.h"

namespace {

constexpr const char *kModule = "hnx-l3table-l3mac";

[[noreturn]] void fuzz_fail(const char *what, std::string_view line) {
    std::fprintf(stderr, "fuzz: command line \"%.*s\": %s\n", int(line.size()), line.data(), what);
    std::abort();
}

// A number that the framework reads must fit a 32-bit word and must read
// the same from its own decimal text.
void fuzz_numbers(std::string_view line) {
    for (std::string_view w : ssat_split_words(line)) {
        int64_t n = 0, again = 0;
        if (!ssat_read_num(w, &n)) continue;
        if (n < INT32_MIN || n > UINT32_MAX) fuzz_fail("a number beyond 32 bits", line);
        if (!ssat_read_num(std::to_string(n), &again) || again != n)
            fuzz_fail("a number does not read back", line);
    }
}

// The loops of add-mul-user-entry and del-mul-user-entry run as many times
// as they are told: a count beyond a few dozen only costs time.
bool fuzz_line_bounded(std::string_view line) {
    const auto words = ssat_split_words(line);
    if (words.size() < 4 || (words[0] != "add-mul-user-entry" && words[0] != "del-mul-user-entry"))
        return true;
    int64_t count = 0;
    return !ssat_read_num(words[3], &count) || count <= 64;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    fuzz_world_start(fuzz_board_json(in.ConsumeIntegral<uint8_t>()));
    const std::string text = in.ConsumeRemainingBytesAsString();
    size_t at = 0;
    for (int lines = 0; at < text.size() && lines < 32; lines++) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line(text.data() + at, end - at);
        at = end + 1;
        fuzz_numbers(line);
        if (fuzz_line_bounded(line)) ssat_run_line(kModule, line);
        fuzz_world_check({.round_done = false, .tables = false}, "after a command line");
    }
    sw_l3mac_mac_decision();
    fuzz_world_check({.round_done = true}, "after the lines and a round");
    return 0;
}
