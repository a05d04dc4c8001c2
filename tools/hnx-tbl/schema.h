// The tables the tool knows, and dotted field paths over their records'
// descriptors ("index.uuid", "attr.mac.data").
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <protobuf-c/protobuf-c.h>

#include "arena.h"
#include "platform/host/tbl_store.h"
#include "platform/ss_rt_tbl.h"

struct tbl_schema {
    const ProtobufCMessageDescriptor *row;
    const ProtobufCFieldDescriptor *key;  // the row's key member, `index`
};

using field_path = std::vector<const ProtobufCFieldDescriptor *>;

// The table of that full message name; null for an unknown one.
const tbl_schema *schema_find(std::string_view name);

// Readies store 16 for opening as `mode` says. A reading command finds no
// store only under a root that holds none, most likely a forgotten HNX_ROOT
// or a mistyped --root: false after the line that says so, and nothing is
// created. A write to such a root creates the store and says that it does.
bool schema_store_ready(tbl_open mode);

// Creates or attaches the table in store 16, as its owner creates it. Null
// after an error line when the store cannot be opened.
ss_rt_tbl *schema_open(const tbl_schema *s, msg_arena &arena);

// The known tables' names, for messages.
std::string schema_names();

// Resolves a dotted path down to one scalar field. A message of a single
// field stands for that field, so "attr.mac" is "attr.mac.data". Returns ""
// or the reason the path names no settable field.
std::string path_resolve(const ProtobufCMessageDescriptor *row, std::string_view text,
                         field_path *out);

// The field of a message that stands for the whole message, if it has only one.
const ProtobufCFieldDescriptor *path_single(const ProtobufCMessageDescriptor *d);
