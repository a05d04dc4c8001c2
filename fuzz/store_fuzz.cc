// The keyed store under any sequence of finds, adds, deletes and scans,
// with allocation failures now and then, against a model: a map from the
// key's bytes (filler byte cleared) to the record that the store handed
// out. Records never move, a failed add changes nothing, the counts and
// buckets hold together, and a scan visits each live record once.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include <fuzzer/FuzzedDataProvider.h>

#include "check/l3mac_check.h"
#include "diag/l3mac_release.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"
#include "store/l3mac_db.h"

namespace {

[[noreturn]] void fuzz_fail(const char *what) {
    std::fprintf(stderr, "fuzz: store: %s\n", what);
    std::abort();
}

using fuzz_tcam_key = std::array<uint8_t, 20>;
std::map<fuzz_tcam_key, tcam_entry *> g_model;

// A key of the TCAM store: a few values, and a filler byte (15) that the
// caller may leave dirty, which the store must not see. The model's key,
// clean, in *clean.
fuzz_tcam_key fuzz_key(FuzzedDataProvider &in, fuzz_tcam_key *clean) {
    fuzz_tcam_key k{};
    k[0] = in.ConsumeIntegralInRange<uint8_t>(0, 40);
    k[8] = in.ConsumeIntegralInRange<uint8_t>(0, 2);
    k[16] = in.ConsumeIntegralInRange<uint8_t>(0, 1);
    *clean = k;
    k[15] = in.ConsumeBool() ? 0 : in.ConsumeIntegral<uint8_t>();
    return k;
}

void fuzz_add(FuzzedDataProvider &in) {
    fuzz_tcam_key clean;
    const fuzz_tcam_key k = fuzz_key(in, &clean);
    const bool fail = in.ConsumeIntegralInRange<int>(0, 7) == 0;
    if (fail) l3mac_mem_fail_after = in.ConsumeIntegralInRange<long>(0, 2);
    tcam_entry *e = tcam_db_get_or_add(l3mac_ctx.tcam_db, k.data());
    l3mac_mem_fail_after = -1;
    auto it = g_model.find(clean);
    if (it != g_model.end() && e != it->second) fuzz_fail("an existing key gave another record");
    if (!e && !fail) fuzz_fail("an add failed with memory to spare");
    if (!e || it != g_model.end()) return;
    if (std::memcmp(&e->key, clean.data(), clean.size()) != 0) fuzz_fail("a new record holds another key");
    if (!list_empty(&e->tcam_lst) || e->idx || e->ref_cnt || e->valid || e->is_hw)
        fuzz_fail("a new record is not set up blank");
    g_model[clean] = e;
}

void fuzz_get(FuzzedDataProvider &in) {
    fuzz_tcam_key clean;
    const fuzz_tcam_key k = fuzz_key(in, &clean);
    auto it = g_model.find(clean);
    if (tcam_db_get(l3mac_ctx.tcam_db, k.data()) != (it == g_model.end() ? nullptr : it->second))
        fuzz_fail("a find gave another record");
}

void fuzz_del(FuzzedDataProvider &in) {
    fuzz_tcam_key clean;
    tcam_entry probe{};
    std::memcpy(&probe.key, fuzz_key(in, &clean).data(), clean.size());
    if (tcam_db_del(l3mac_ctx.tcam_db, &probe) != 0) fuzz_fail("a delete failed");
    g_model.erase(clean);
}

void fuzz_scan() {
    std::set<tcam_entry *> seen;
    auto cb = [](tcam_entry *e, void *arg) {
        return static_cast<std::set<tcam_entry *> *>(arg)->insert(e).second ? 0 : 1;
    };
    if (tcam_db_scan(l3mac_ctx.tcam_db, cb, &seen) != 0) fuzz_fail("a scan met a record twice");
    for (const auto &[k, e] : g_model)
        if (!seen.count(e)) fuzz_fail("a scan missed a record");
    if (seen.size() != g_model.size()) fuzz_fail("a scan met a record that is gone");
}

void fuzz_check() {
    for (const auto &[k, e] : g_model)
        if (tcam_db_get(l3mac_ctx.tcam_db, k.data()) != e) fuzz_fail("a record moved or went");
    l3mac_check_report rep;
    l3mac_check_stores(&rep);
    for (const std::string &v : rep.violations) fuzz_fail(v.c_str());
    if (l3mac_ctx.malloc_db != g_model.size()) fuzz_fail("malloc_db is not the live count");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    l3mac_release_all();
    g_model.clear();
    l3mac_mem_fail_after = -1;
    if (tcam_db_create(&l3mac_ctx.tcam_db) != 0) fuzz_fail("no store");
    while (in.remaining_bytes() > 0) {
        switch (in.ConsumeIntegralInRange<int>(0, 5)) {
        case 0: case 1: case 2: fuzz_add(in); break;
        case 3: fuzz_get(in); break;
        case 4: fuzz_del(in); break;
        case 5: fuzz_scan(); break;
        }
        fuzz_check();
    }
    return 0;
}
