// The text forms of one scalar field: numbers in decimal (or 0x hex),
// enumerations by name or number (and so the plain numbers t_user and
// mac_type that name one of the users or MAC types), bools as true/false/1/0, bytes as
// colon-separated hex ("00:11:22:33:44:55"), strings as they are.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>
#include <protobuf-c/protobuf-c.h>

#include "arena.h"

// Parses `text` into the field's member of `msg`. Returns "" or what the
// field wants ("want a 32-bit unsigned number"); the member is untouched then.
std::string value_parse(ProtobufCMessage *msg, const ProtobufCFieldDescriptor *f,
                        std::string_view text, msg_arena &arena);

// The member's value as the readable form shows it: strings are quoted
// when they are empty or hold spaces, quotes or unprintable bytes.
std::string value_text(const ProtobufCMessage *msg, const ProtobufCFieldDescriptor *f);

// The member's value for JSON: enumerations by name, bytes in colon form.
nlohmann::ordered_json value_json(const ProtobufCMessage *msg, const ProtobufCFieldDescriptor *f);
