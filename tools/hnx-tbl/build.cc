// Rows built from FIELD=VALUE words: see build.h.
#include "build.h"

#include "p_libpub.pb-c.h"
#include "values.h"

namespace {

constexpr size_t kMacBytes = 6;

// A MAC of any other length is no address: the service reads it as
// 00:00:00:00:00:00 and would program that, so it never leaves the tool.
std::string mac_fits(const ProtobufCMessage *at, const ProtobufCFieldDescriptor *f) {
    if (at->descriptor != &p_libpub__mac__descriptor || f->type != PROTOBUF_C_TYPE_BYTES) return "";
    const auto &b = *reinterpret_cast<const ProtobufCBinaryData *>(
        reinterpret_cast<const char *>(at) + f->offset);
    if (b.len == kMacBytes) return "";
    return "a MAC has 6 bytes, as 00:11:22:33:44:55; this one has " + std::to_string(b.len);
}

}  // namespace

std::string build_set(ProtobufCMessage *row, const field_path &path, std::string_view text,
                      msg_arena &arena) {
    ProtobufCMessage *at = row;
    for (size_t i = 0; i + 1 < path.size(); i++) {
        auto **sub = reinterpret_cast<ProtobufCMessage **>(reinterpret_cast<char *>(at) +
                                                           path[i]->offset);
        if (!*sub)
            *sub = arena.make(static_cast<const ProtobufCMessageDescriptor *>(path[i]->descriptor));
        at = *sub;
    }
    std::string err = value_parse(at, path.back(), text, arena);
    return err.empty() ? mac_fits(at, path.back()) : err;
}
