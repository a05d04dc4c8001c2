// Rows as bytes: packing, unpacking and the key of a row. The store keeps
// only bytes; this file is the one place that turns records into bytes and
// back.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include <protobuf-c/protobuf-c.h>

using tbl_bytes = std::vector<uint8_t>;

// An unpacked row, freed with the library's free when it goes.
struct tbl_msg_free {
    void operator()(ProtobufCMessage *m) const;
};
using tbl_msg = std::unique_ptr<ProtobufCMessage, tbl_msg_free>;

// The field of `row` that sits at byte `key_pos` of the record as laid out
// on the 32-bit target, if it is a message of type `key` (any message type
// when `key` is null). Null otherwise.
const ProtobufCFieldDescriptor *tbl_key_field(const ProtobufCMessageDescriptor *row,
                                              int key_pos,
                                              const ProtobufCMessageDescriptor *key);

// The message packed. Proto3 packing is deterministic, so equal records
// give equal bytes.
tbl_bytes tbl_pack(const ProtobufCMessage *msg);

// The packed key of a row: its key member, or no bytes when the member is
// absent (an all-default key packs to nothing as well).
tbl_bytes tbl_key_of(const ProtobufCMessage *row, const ProtobufCFieldDescriptor *key);

// A packed row of which only the key member is set: what a delete carries.
tbl_bytes tbl_key_row(const ProtobufCFieldDescriptor *key, const tbl_bytes &key_bytes);

// The bytes unpacked as a `desc` record; null, after one error line on
// stderr naming the table, when they are no such record.
tbl_msg tbl_unpack(const ProtobufCMessageDescriptor *desc, const tbl_bytes &bytes,
                   std::string_view table);
