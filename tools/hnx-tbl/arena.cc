// Records built by the tool: see arena.h.
#include "arena.h"

ProtobufCMessage *msg_arena::make(const ProtobufCMessageDescriptor *desc) {
    size_t n = (desc->sizeof_message + sizeof(max_align_t) - 1) / sizeof(max_align_t);
    records_.push_back(std::make_unique<max_align_t[]>(n));
    void *rec = records_.back().get();
    protobuf_c_message_init(desc, rec);
    return static_cast<ProtobufCMessage *>(rec);
}

char *msg_arena::keep(std::string s) {
    strings_.push_back(std::make_unique<std::string>(std::move(s)));
    return strings_.back()->data();
}

uint8_t *msg_arena::keep(std::vector<uint8_t> b) {
    bytes_.push_back(std::make_unique<std::vector<uint8_t>>(std::move(b)));
    return bytes_.back()->data();
}
