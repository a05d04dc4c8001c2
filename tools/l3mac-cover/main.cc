// l3mac-cover: the cover that the L3 MAC service would program for a VLAN
// or VFI set, for operators who plan VLANs against TCAM space. One set from
// the command line, or one per line of standard input with --batch; the
// greedy search of the default mode, or with --compact that of the
// compact-cover mode.
#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "cover_plan.h"
#include "cover_set.h"
#include "cover_show.h"
#include "cli.h"

namespace {

constexpr int EXIT_BAD_INPUT = 2;
constexpr int EXIT_NO_MEMORY = 1;

const char USAGE[] =
    "Usage: l3mac-cover [--compact] [--vfi] SET\n"
    "  or:  l3mac-cover [--compact] --batch < lines of 'vlan SET' or 'vfi SET'\n"
    "  or:  l3mac-cover [--compact] --json SET | --batch\n"
    "  or:  l3mac-cover [--compact] --plan FILE   (lines 'MAC [vlan|vfi] SET', # comments)\n"
    "SET: numbers and ranges of 0-16383, e.g. 1-7,9,100-103; '-' is empty\n"
    "--compact: the cover of the compact-cover mode (a cover without entries\n"
    "           is '-' in --batch); --plan then shows both modes side by side\n"
    "--batch answers each line with one line; blank lines and text from # on are\n"
    "ignored (their answer is an empty line), a bad line gets an empty answer\n"
    "and an error line on standard error.\n"
    "--json: one JSON object a line: {\"line\" (--batch only), \"space\", \"mode\",\n"
    "        \"templates\": [{\"key\", \"mask\", \"level\"}], \"entries\"}; in --batch\n"
    "        blank, comment and bad lines give none.\n"
    "\nExit status: 0 done, 1 no memory for a cover, 2 a usage error or bad input\n"
    "(a bad set, a bad --batch or --plan line, a --plan file that cannot be read).\n";

const cli_tool TOOL = {"l3mac-cover", USAGE};

bool g_compact = false;  // --compact: the compact search
bool g_json = false;     // --json: answers as JSON objects

int run_single(std::string_view text, bool vfi) {
    std::vector<uint32_t> numbers;
    std::string error;
    if (!cover_parse_set(text, &numbers, &error)) {
        std::fprintf(stderr, "l3mac-cover: bad set '%.*s': %s\n",
                     static_cast<int>(text.size()), text.data(), error.c_str());
        return EXIT_BAD_INPUT;
    }
    cover_result c;
    if (cover_compute(numbers, vfi, g_compact, &c) != 0) {
        std::fputs("l3mac-cover: no memory for the cover\n", stderr);
        return EXIT_NO_MEMORY;
    }
    if (g_json) std::printf("%s\n", cover_json(c, 0).c_str());
    else std::fputs(cover_report(c).c_str(), stdout);
    return 0;
}

std::vector<std::string_view> split_words(std::string_view line) {
    std::vector<std::string_view> words;
    const char *blank = " \t\r";
    for (size_t at = line.find_first_not_of(blank); at != std::string_view::npos;) {
        const size_t end = line.find_first_of(blank, at);
        words.push_back(line.substr(at, end - at));
        at = line.find_first_not_of(blank, end);
    }
    return words;
}

// One batch line into its answer; false with *error on bad input.
bool answer_line(std::string_view line, long number, std::string *answer, std::string *error) {
    const std::vector<std::string_view> words = split_words(line.substr(0, line.find('#')));
    if (words.empty()) return true;
    if (words.size() != 2 || (words[0] != "vlan" && words[0] != "vfi")) {
        *error = "expected 'vlan SET' or 'vfi SET'";
        return false;
    }
    std::vector<uint32_t> numbers;
    if (!cover_parse_set(words[1], &numbers, error)) return false;
    cover_result c;
    if (cover_compute(numbers, words[0] == "vfi", g_compact, &c) != 0) {
        *error = "no memory for the cover";
        return false;
    }
    // A batch answer has no room to say that numbers went unread, as the
    // single-set report does: outside the space, such a line is a mistake.
    if (std::vector<uint32_t> out = c.unread; !out.empty() && (out.front() != 0 || out.size() > 1)) {
        if (out.front() == 0) out.erase(out.begin());
        *error = cover_ranges(out) + (words[0] == "vfi"
                                          ? " not in the VFI numbers 1-16382, so never covered"
                                          : " not in the VLANs 1-4094, so never covered; VFI "
                                            "numbers go on a 'vfi SET' line");
        return false;
    }
    *answer = g_json ? cover_json(c, number) : cover_batch_line(c);
    return true;
}

// One output line per input line, so that answers pair with their sets; a
// blank or comment line gets an empty one, and so does a bad line, with an
// error line on stderr and status 2 at the end.
int run_batch() {
    int status = 0;
    std::string line;
    for (long number = 1; std::getline(std::cin, line); ++number) {
        std::string answer, error;
        if (!answer_line(line, number, &answer, &error)) {
            std::fprintf(stderr, "l3mac-cover: line %ld: %s\n", number, error.c_str());
            status = EXIT_BAD_INPUT;
        }
        // JSON answers carry their line's number instead of standing on it.
        if (!g_json || !answer.empty()) std::cout << answer << '\n';
    }
    return status;
}

// The mode and its operands from the command line; "" or what is wrong.
struct cover_args {
    bool batch = false, vfi = false;
    std::string plan;
    std::vector<std::string_view> sets;
};

std::string parse_args(const std::vector<std::string_view> &args, cover_args *a) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string_view w = args[i];
        if (w == "--compact" && g_compact) return "--compact given twice";
        if (w == "--compact") g_compact = true;
        else if (w == "--vfi") a->vfi = true;
        else if (w == "--json") g_json = true;
        else if (w == "--batch") a->batch = true;
        else if (w == "--plan" && i + 1 < args.size()) a->plan = args[++i];
        else if (w == "--plan") return "--plan needs a FILE";
        else if (w.starts_with("--")) return "unknown option " + std::string(w);
        else a->sets.push_back(w);
    }
    const int modes = int(a->batch) + int(!a->plan.empty()) + int(!a->sets.empty());
    if (modes == 0) return "no SET, --batch or --plan";
    if (modes > 1 || a->sets.size() > 1)
        return "one of SET, --batch and --plan, and one SET only";
    if (a->vfi && a->sets.empty()) return "--vfi goes with a SET only";
    if (g_json && !a->plan.empty()) return "--json goes with a SET or --batch, not --plan";
    return "";
}

}  // namespace

int main(int argc, char **argv) {
    if (int status; cli_help_or_version(TOOL, argc, argv, &status)) return status;
    cover_args a;
    if (std::string err = parse_args({argv + 1, argv + argc}, &a); !err.empty())
        return cli_usage_error(TOOL, err);
    if (a.batch) return run_batch();
    if (!a.plan.empty()) return cover_plan_run(a.plan, g_compact);
    return run_single(a.sets[0], a.vfi);
}
