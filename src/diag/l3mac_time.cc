// Timing probe: the ring of decision times in l3mac_ctx, its two steps and
// its three commands.
#include "diag/l3mac_time.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

#include "frame/l3mac_codes.h"
#include "frame/l3mac_ctx.h"
#include "frame/l3mac_mem.h"

namespace {

l3mac_time_ring_t &ring() { return l3mac_ctx.l3mac_time_ring; }

bool ring_on() {
    const l3mac_time_ring_t &r = ring();
    return r.per_cnt != 0 && r.size != 0 && r.samples != nullptr;
}

bool ring_ready() { return ring().size != 0 && ring().samples != nullptr; }

int not_init() {
    std::printf("\nnot init\n");
    return L3MAC_E_PARAM;
}

void print_sample(const l3mac_time_sample &s) {
    char ip[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &s.ip, ip, sizeof ip);
    std::printf("%8d, %16s/%2d, %10ld:%-6ld, %10ld:%-6ld\n", (int)s.cnt, ip,
                (int)s.mask, (long)s.input.tv_sec, (long)s.input.tv_usec,
                (long)s.output.tv_sec, (long)s.output.tv_usec);
}

// Rows in index order, not time order: after a wrap the oldest sample is
// the one behind cur_idx.
void dump_ring() {
    const l3mac_time_ring_t &r = ring();
    std::printf("\n%8s  %18s  %10s %6s  %10s %6s\n", "cnt", "ip/mask",
                "input(s)", "(us)", "output(s)", "(us)");
    for (uint32_t i = 0; i < r.size; i++)
        if (r.samples[i].cnt != 0) print_sample(r.samples[i]);
    std::printf("count      :%d\n", (int)r.count);
    std::printf("per cnt    :%d\n", (int)r.per_cnt);
    std::printf("size       :%d\n", (int)r.size);
    std::printf("cur_idx    :%d\n", (int)r.cur_idx);
}

// Frees the samples and zeroes the ring: the probe is off from here on.
void drop_ring() {
    l3mac_free(ring().samples);
    std::memset(&ring(), 0, sizeof ring());
}

}  // namespace

void l3mac_time_start(uint32_t ip, int32_t mask) {
    if (!ring_on()) return;
    l3mac_time_ring_t &r = ring();
    r.count++;
    if (r.count % r.per_cnt != 0) return;
    // The index moves first: after a reset the first sample lands at 1.
    r.cur_idx = (r.cur_idx + 1) % r.size;
    l3mac_time_sample &s = r.samples[r.cur_idx];
    s.cnt = r.count;
    s.ip = ip;
    s.mask = mask;
    kw_monotime(&s.input);
}

void l3mac_time_end() {
    if (!ring_on()) return;
    l3mac_time_ring_t &r = ring();
    if (r.count % r.per_cnt != 0) return;
    kw_monotime(&r.samples[r.cur_idx].output);
}

int l3mac_at_time_init(int32_t size) {
    std::printf("size:%d -> %d\n", (int)ring().size, (int)size);
    // The present size keeps the ring as it is, samples and period.
    if (size >= 0 && (uint32_t)size == ring().size) return l3mac_at_time_dump();
    drop_ring();
    // Only 0 is refused here: any other size, a negative one too, is
    // handed to the allocation, which refuses what the probe cannot hold.
    if (size == 0) {
        std::printf("\nerror size:%d\n", (int)size);
        return not_init();
    }
    auto *samples = (uint32_t)size > L3MAC_TIME_RING_MAX ? nullptr
        : static_cast<l3mac_time_sample *>(l3mac_calloc(size, sizeof(l3mac_time_sample)));
    if (samples == nullptr) {
        std::printf("\nmalloc fail, size:%d\n", (int)size);
        not_init();
        return L3MAC_E_NOMEM;
    }
    ring().samples = samples;
    ring().size = (uint32_t)size;
    dump_ring();
    return 0;
}

int l3mac_at_time_set(int32_t per_cnt) {
    l3mac_time_ring_t &r = ring();
    std::printf("per cnt:%d -> %d\n", (int)r.per_cnt, (int)per_cnt);
    if (!ring_ready()) return not_init();
    // The operator sees what the ring held before the change.
    dump_ring();
    r.per_cnt = (uint32_t)per_cnt;
    if (per_cnt != 0) {
        r.count = 0;
        r.cur_idx = 0;
        std::memset(r.samples, 0, r.size * sizeof(l3mac_time_sample));
    }
    return 0;
}

int l3mac_at_time_dump() {
    if (!ring_ready()) return not_init();
    dump_ring();
    return 0;
}
