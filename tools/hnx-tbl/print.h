// The tool's two printed forms of a row. The readable form is one line of
// FIELD=VALUE words in the schema's field order, with the paths that `set`
// takes ("index.uuid=a attr.mac=00:11:22:33:44:55"); other tools read it,
// so it stays as it is. The JSON form is one object on one line with the
// schema's field names, enumerations by their names, and a message of one
// scalar field as that value (a MAC: "attr": {"mac": "00:11:22:33:44:55"}).
// Absent messages are left out of both; the tables' records have no
// repeated fields, and such a field would be left out too.
#pragma once

#include <string>

#include <protobuf-c/protobuf-c.h>

std::string print_readable(const ProtobufCMessage *row);

// Only the words of one member of the row (the key of a deleted row).
std::string print_member(const ProtobufCMessage *row, const ProtobufCFieldDescriptor *f);

// The row's object; `ranges_word` (" vlans=1-7", see ranges.h), when not
// empty, adds its member ("vlans": "1-7").
std::string print_json(const ProtobufCMessage *row, const std::string &ranges_word = "");

// A change that watch shows: {"op": "set"|"del", "table": NAME, "row": ...},
// the row of a "del" holding only its `key` member when given.
std::string print_json_change(const char *op, const ProtobufCMessage *row,
                              const ProtobufCFieldDescriptor *key);
