// The check of a board's capability profile file before a process reads
// it: the keys each reader knows and their kinds, what a file gives for
// them, and the slips that must stop a start (a file that cannot be read,
// is no JSON object, or gives a known key a value of another kind) apart
// from those that only deserve a warning (an unknown key where the
// service's own keys live, most likely a typo).
#pragma once

#include <string>
#include <vector>

enum class hnx_cap_kind { int32, flag };

struct hnx_cap_key {
    const char *path;  // "s_route/l3mac/capacity/tcam-cap"
    hnx_cap_kind kind;
};

// The keys that the process `name` reads, and the path under which any
// other key is taken for a typo ("" when unknown keys pass). No keys for a
// process that reads no profile.
struct hnx_cap_schema {
    std::vector<hnx_cap_key> keys;
    std::string own_prefix;
};
const hnx_cap_schema &hnx_cap_schema_of(const char *name);

// What a profile file holds for a schema.
struct hnx_cap_findings {
    bool present = false;  // false: no file, the reader takes its built-in defaults
    // Each key of the schema with its value as the file writes it, "" when
    // the file does not give it.
    std::vector<std::pair<std::string, std::string>> values;
    std::vector<std::string> errors;    // each alone stops a start
    std::vector<std::string> warnings;  // said, and the start goes on
    bool ok() const { return errors.empty(); }
};

// Checks the file at `path` (any file; a missing one is no error). The
// lines name the file, the line and column of a JSON error, or the key.
hnx_cap_findings hnx_cap_check_file(const std::string &path, const hnx_cap_schema &schema);
// The same for a file's text already read.
hnx_cap_findings hnx_cap_check_text(const std::string &path, const std::string &text,
                                    const hnx_cap_schema &schema);

// The check of <root>/etc/hnx/capability.json at the start of process
// `name`: each warning and, for a bad file, one line that stops the start
// go to standard error, each headed by the name. 0, or HNX_CAP_E_BAD_FILE
// when the start must stop. A process without a schema passes.
int hnx_cap_start_check(const char *name);
