// Rows built from FIELD=VALUE words.
#pragma once

#include <string>
#include <string_view>

#include "arena.h"
#include "schema.h"

// Sets the scalar at the end of `path` in `row`, making the messages on the
// way. Returns "" or the reason the value does not fit; a MAC (the bytes
// of a p_libpub.mac) fits only with 6 bytes.
std::string build_set(ProtobufCMessage *row, const field_path &path, std::string_view text,
                      msg_arena &arena);
