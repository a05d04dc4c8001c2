// Rows as bytes: see tbl_codec.h.
#include "platform/host/tbl_codec.h"

#include <cstdio>
#include <map>
#include <string>
#include <tuple>

void tbl_msg_free::operator()(ProtobufCMessage *m) const {
    protobuf_c_message_free_unpacked(m, nullptr);
}

namespace {

// Header of a record on the 32-bit target: descriptor, count and pointer of
// unknown fields.
constexpr uint32_t kTargetHeader = 12;

struct target_slot {
    uint32_t size;
    uint32_t align;
};

target_slot target_value_slot(const ProtobufCFieldDescriptor *f) {
    if (f->label == PROTOBUF_C_LABEL_REPEATED) return {4, 4};  // pointer
    switch (f->type) {
    case PROTOBUF_C_TYPE_INT64: case PROTOBUF_C_TYPE_SINT64:
    case PROTOBUF_C_TYPE_SFIXED64: case PROTOBUF_C_TYPE_UINT64:
    case PROTOBUF_C_TYPE_FIXED64: case PROTOBUF_C_TYPE_DOUBLE:
        return {8, 8};
    case PROTOBUF_C_TYPE_BYTES:
        return {8, 4};  // length and pointer
    default:
        return {4, 4};  // 32-bit scalars, enums, bools, pointers
    }
}

// Every member of the host record, by host offset, with its target slot.
// Quantifiers (has_, n_, oneof case) are 32-bit members of their own; a
// oneof's case member is shared, which the map folds.
std::map<unsigned, target_slot> target_members(const ProtobufCMessageDescriptor *d) {
    std::map<unsigned, target_slot> members;
    for (unsigned i = 0; i < d->n_fields; i++) {
        const ProtobufCFieldDescriptor *f = &d->fields[i];
        members[f->offset] = target_value_slot(f);
        if (f->quantifier_offset != 0) members[f->quantifier_offset] = {4, 4};
    }
    return members;
}

const ProtobufCFieldDescriptor *find_key_field(const ProtobufCMessageDescriptor *row,
                                               int key_pos,
                                               const ProtobufCMessageDescriptor *key) {
    unsigned host_off = 0;
    bool found = false;
    uint32_t at = kTargetHeader;
    for (const auto &[off, slot] : target_members(row)) {
        at = (at + slot.align - 1) / slot.align * slot.align;
        if (at == uint32_t(key_pos)) { host_off = off; found = true; break; }
        at += slot.size;
    }
    if (!found) return nullptr;
    for (unsigned i = 0; i < row->n_fields; i++) {
        const ProtobufCFieldDescriptor *f = &row->fields[i];
        if (f->offset != host_off) continue;
        bool is_msg = f->type == PROTOBUF_C_TYPE_MESSAGE && f->label != PROTOBUF_C_LABEL_REPEATED;
        if (is_msg && (!key || f->descriptor == key)) return f;
    }
    return nullptr;
}

}  // namespace

// Descriptors are the program's constant data: a table made again (a
// service started again in one process) finds its key by the answer of the
// first time.
const ProtobufCFieldDescriptor *tbl_key_field(const ProtobufCMessageDescriptor *row,
                                              int key_pos,
                                              const ProtobufCMessageDescriptor *key) {
    if (!row || key_pos < 0) return nullptr;
    static std::map<std::tuple<const void *, int, const void *>, const ProtobufCFieldDescriptor *>
        found;
    const auto at = std::make_tuple(static_cast<const void *>(row), key_pos,
                                    static_cast<const void *>(key));
    auto it = found.find(at);
    if (it == found.end()) it = found.emplace(at, find_key_field(row, key_pos, key)).first;
    return it->second;
}

tbl_bytes tbl_pack(const ProtobufCMessage *msg) {
    tbl_bytes out(protobuf_c_message_get_packed_size(msg));
    if (!out.empty()) protobuf_c_message_pack(msg, out.data());
    return out;
}

tbl_bytes tbl_key_of(const ProtobufCMessage *row, const ProtobufCFieldDescriptor *key) {
    auto *base = reinterpret_cast<const char *>(row);
    auto *member = *reinterpret_cast<const ProtobufCMessage *const *>(base + key->offset);
    return member ? tbl_pack(member) : tbl_bytes{};
}

namespace {

void put_varint(tbl_bytes &out, uint64_t v) {
    while (v >= 0x80) {
        out.push_back(uint8_t(v | 0x80));
        v >>= 7;
    }
    out.push_back(uint8_t(v));
}

}  // namespace

tbl_bytes tbl_key_row(const ProtobufCFieldDescriptor *key, const tbl_bytes &key_bytes) {
    constexpr unsigned kLengthDelimited = 2;
    tbl_bytes out;
    put_varint(out, (uint64_t(key->id) << 3) | kLengthDelimited);
    put_varint(out, key_bytes.size());
    out.insert(out.end(), key_bytes.begin(), key_bytes.end());
    return out;
}

tbl_msg tbl_unpack(const ProtobufCMessageDescriptor *desc, const tbl_bytes &bytes,
                   std::string_view table) {
    static const uint8_t kNone = 0;
    const uint8_t *data = bytes.empty() ? &kNone : bytes.data();
    ProtobufCMessage *m = protobuf_c_message_unpack(desc, nullptr, bytes.size(), data);
    if (!m) {
        std::fprintf(stderr, "ss_rt_tbl: table %.*s: row of %zu bytes cannot be unpacked, skipped\n",
                     int(table.size()), table.data(), bytes.size());
    }
    return tbl_msg(m);
}
