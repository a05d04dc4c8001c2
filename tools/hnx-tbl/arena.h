// Records built by the tool from the command line: every message, string
// and byte run they point to lives here until the command ends.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <protobuf-c/protobuf-c.h>

class msg_arena {
public:
    // A record of `desc` in its initial state.
    ProtobufCMessage *make(const ProtobufCMessageDescriptor *desc);
    // Copies that stay put for the arena's life.
    char *keep(std::string s);
    uint8_t *keep(std::vector<uint8_t> b);

private:
    std::vector<std::unique_ptr<max_align_t[]>> records_;
    std::vector<std::unique_ptr<std::string>> strings_;
    std::vector<std::unique_ptr<std::vector<uint8_t>>> bytes_;
};
