// Rows built from FIELD=VALUE words: see build.h.
#include "build.h"

#include "values.h"

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
    return value_parse(at, path.back(), text, arena);
}
