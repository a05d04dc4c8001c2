// hnx-tbl tables and hnx-tbl fields TABLE: the names that the other
// commands take, one a line, for the shell's completion and for people.
// They come from the same schema that the commands read, so they cannot
// drift from what the commands accept.
#include <cstdio>
#include <string>

#include "commands.h"
#include "schema.h"

namespace {

// Every settable path under `d`: a message of one field also stands for
// that field ("attr.mac" besides "attr.mac.data"); repeated fields are left
// out, since the tool does not set them.
void list_paths(const ProtobufCMessageDescriptor *d, const std::string &prefix) {
    for (unsigned i = 0; i < d->n_fields; i++) {
        const ProtobufCFieldDescriptor &f = d->fields[i];
        if (f.label == PROTOBUF_C_LABEL_REPEATED) continue;
        const std::string path = prefix + f.name;
        if (f.type != PROTOBUF_C_TYPE_MESSAGE) {
            std::printf("%s\n", path.c_str());
            continue;
        }
        const auto *sub = static_cast<const ProtobufCMessageDescriptor *>(f.descriptor);
        if (path_single(sub)) std::printf("%s\n", path.c_str());
        list_paths(sub, path + ".");
    }
}

}  // namespace

int cmd_tables(const tbl_args &) {
    const std::string names = schema_names() + ", ";
    for (size_t from = 0, at; (at = names.find(", ", from)) != std::string::npos; from = at + 2)
        std::printf("%s\n", names.substr(from, at - from).c_str());
    return kExitOk;
}

int cmd_fields(const tbl_args &a) {
    const tbl_schema *s = schema_find(a.tables[0]);
    if (!s) {
        std::fprintf(stderr, "hnx-tbl: unknown table %s; tables: %s\n", a.tables[0].c_str(),
                     schema_names().c_str());
        return kExitBadInput;
    }
    list_paths(s->row, "");
    return kExitOk;
}
