// The tool's two printed forms of a row. The readable form is one line of
// FIELD=VALUE words in the schema's field order, with the paths that `set`
// takes ("index.uuid=a attr.mac=00:11:22:33:44:55"); other tools read it,
// so it stays as it is. The JSON form is one object with the schema's
// field names. Absent messages are left out of both; the tables' records
// have no repeated fields, and such a field would be left out too.
#pragma once

#include <string>

#include <protobuf-c/protobuf-c.h>

std::string print_readable(const ProtobufCMessage *row);

// Only the words of one member of the row (the key of a deleted row).
std::string print_member(const ProtobufCMessage *row, const ProtobufCFieldDescriptor *f);

std::string print_json(const ProtobufCMessage *row);
