// The text forms of one scalar field: see values.h.
#include "values.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "s_route.pb-c.h"

namespace {

// Some records hold an enumeration's value as a plain number: the key's
// t_user everywhere, mac_type in the output tables. They are shown and
// taken by name as enumeration fields are; a number outside the
// enumeration stays a number.
const ProtobufCEnumDescriptor *named_number(const ProtobufCFieldDescriptor *f) {
    if (f->type != PROTOBUF_C_TYPE_UINT32) return nullptr;
    if (std::strcmp(f->name, "t_user") == 0) return &s_route__l3table_user_e__descriptor;
    if (std::strcmp(f->name, "mac_type") == 0) return &s_route__l3mac_type_e__descriptor;
    return nullptr;
}

const char *number_name(const ProtobufCFieldDescriptor *f, uint32_t v) {
    const ProtobufCEnumDescriptor *e = named_number(f);
    const ProtobufCEnumValue *ev = e ? protobuf_c_enum_descriptor_get_value(e, int(v)) : nullptr;
    return ev ? ev->name : nullptr;
}

template <typename T>
T &member(ProtobufCMessage *msg, const ProtobufCFieldDescriptor *f) {
    return *reinterpret_cast<T *>(reinterpret_cast<char *>(msg) + f->offset);
}

template <typename T>
const T &member(const ProtobufCMessage *msg, const ProtobufCFieldDescriptor *f) {
    return *reinterpret_cast<const T *>(reinterpret_cast<const char *>(msg) + f->offset);
}

// A whole-text integer of T's range, decimal or 0x hex.
template <typename T>
std::optional<T> parse_int(std::string_view t) {
    int base = 10;
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
        base = 16;
        t = t.substr(2);
    }
    T v{};
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v, base);
    if (t.empty() || ec != std::errc() || end != t.data() + t.size()) return std::nullopt;
    return v;
}

std::optional<std::vector<uint8_t>> parse_bytes(std::string_view t) {
    std::vector<uint8_t> out;
    if (t.empty()) return out;
    for (size_t i = 0;; i += 3) {
        uint8_t b = 0;
        if (i + 2 > t.size()) return std::nullopt;
        auto [end, ec] = std::from_chars(t.data() + i, t.data() + i + 2, b, 16);
        if (ec != std::errc() || end != t.data() + i + 2) return std::nullopt;
        out.push_back(b);
        if (i + 2 == t.size()) return out;
        if (t[i + 2] != ':') return std::nullopt;
    }
}

std::optional<int> parse_enum(const ProtobufCFieldDescriptor *f, std::string_view t) {
    auto *e = static_cast<const ProtobufCEnumDescriptor *>(f->descriptor);
    std::string name(t);
    if (const ProtobufCEnumValue *v = protobuf_c_enum_descriptor_get_value_by_name(e, name.c_str()))
        return v->value;
    return parse_int<int32_t>(t);
}

std::optional<bool> parse_bool(std::string_view t) {
    if (t == "true" || t == "1") return true;
    if (t == "false" || t == "0") return false;
    return std::nullopt;
}

template <typename T>
bool store(std::optional<T> v, T &slot) {
    if (v) slot = *v;
    return v.has_value();
}

// Presence of a proto3 optional or oneof member, set with its value.
void mark_present(ProtobufCMessage *msg, const ProtobufCFieldDescriptor *f) {
    if (f->quantifier_offset == 0 || f->label == PROTOBUF_C_LABEL_REPEATED) return;
    char *q = reinterpret_cast<char *>(msg) + f->quantifier_offset;
    if (f->flags & PROTOBUF_C_FIELD_FLAG_ONEOF)
        *reinterpret_cast<uint32_t *>(q) = f->id;
    else
        *reinterpret_cast<protobuf_c_boolean *>(q) = 1;
}

bool parse_into(ProtobufCMessage *m, const ProtobufCFieldDescriptor *f, std::string_view t,
                msg_arena &arena) {
    switch (f->type) {
    case PROTOBUF_C_TYPE_INT32: case PROTOBUF_C_TYPE_SINT32: case PROTOBUF_C_TYPE_SFIXED32:
        return store(parse_int<int32_t>(t), member<int32_t>(m, f));
    case PROTOBUF_C_TYPE_UINT32: case PROTOBUF_C_TYPE_FIXED32:
        if (const ProtobufCEnumDescriptor *e = named_number(f)) {
            const ProtobufCEnumValue *v =
                protobuf_c_enum_descriptor_get_value_by_name(e, std::string(t).c_str());
            if (v && v->value >= 0)
                return store(std::optional<uint32_t>(uint32_t(v->value)), member<uint32_t>(m, f));
        }
        return store(parse_int<uint32_t>(t), member<uint32_t>(m, f));
    case PROTOBUF_C_TYPE_INT64: case PROTOBUF_C_TYPE_SINT64: case PROTOBUF_C_TYPE_SFIXED64:
        return store(parse_int<int64_t>(t), member<int64_t>(m, f));
    case PROTOBUF_C_TYPE_UINT64: case PROTOBUF_C_TYPE_FIXED64:
        return store(parse_int<uint64_t>(t), member<uint64_t>(m, f));
    case PROTOBUF_C_TYPE_BOOL: {
        std::optional<bool> b = parse_bool(t);
        if (b) member<protobuf_c_boolean>(m, f) = *b;
        return b.has_value();
    }
    case PROTOBUF_C_TYPE_ENUM:
        return store(parse_enum(f, t), member<int>(m, f));
    case PROTOBUF_C_TYPE_STRING:
        member<char *>(m, f) = arena.keep(std::string(t));
        return true;
    case PROTOBUF_C_TYPE_BYTES: {
        std::optional<std::vector<uint8_t>> b = parse_bytes(t);
        if (!b) return false;
        size_t len = b->size();
        member<ProtobufCBinaryData>(m, f) = {len, len ? arena.keep(std::move(*b)) : nullptr};
        return true;
    }
    default:
        return false;  // floats and messages are not set from text
    }
}

const char *type_word(const ProtobufCFieldDescriptor *f) {
    switch (f->type) {
    case PROTOBUF_C_TYPE_BOOL: return "true, false, 1 or 0";
    case PROTOBUF_C_TYPE_ENUM: return "a name of the enumeration or a number";
    case PROTOBUF_C_TYPE_BYTES: return "bytes as 00:11:22:33:44:55";
    case PROTOBUF_C_TYPE_INT32: case PROTOBUF_C_TYPE_SINT32: case PROTOBUF_C_TYPE_SFIXED32:
        return "a 32-bit signed number";
    case PROTOBUF_C_TYPE_UINT32: case PROTOBUF_C_TYPE_FIXED32:
        return named_number(f) ? "a name of the enumeration or a number" : "a 32-bit unsigned number";
    case PROTOBUF_C_TYPE_UINT64: case PROTOBUF_C_TYPE_FIXED64: return "a 64-bit unsigned number";
    case PROTOBUF_C_TYPE_STRING: return "text";
    default: return "a value the tool can set";
    }
}

std::string bytes_text(const ProtobufCBinaryData &b) {
    std::string out;
    char hex[4];
    for (size_t i = 0; i < b.len; i++) {
        std::snprintf(hex, sizeof hex, i ? ":%02x" : "%02x", b.data[i]);
        out += hex;
    }
    return out;
}

std::string quoted(const char *s) {
    bool plain = *s != '\0';
    for (const char *p = s; *p && plain; p++)
        plain = *p > ' ' && *p < 0x7f && *p != '"' && *p != '\\';
    if (plain) return s;
    std::string out = "\"";
    char esc[8];
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(s); *p; p++) {
        if (*p == '"' || *p == '\\') {
            out += '\\';
            out += char(*p);
        } else if (*p < ' ' || *p >= 0x7f) {
            std::snprintf(esc, sizeof esc, "\\x%02x", *p);
            out += esc;
        } else {
            out += char(*p);
        }
    }
    return out + "\"";
}

std::string enum_text(const ProtobufCFieldDescriptor *f, int v) {
    auto *e = static_cast<const ProtobufCEnumDescriptor *>(f->descriptor);
    const ProtobufCEnumValue *ev = protobuf_c_enum_descriptor_get_value(e, v);
    return ev ? ev->name : std::to_string(v);
}

}  // namespace

std::string value_parse(ProtobufCMessage *msg, const ProtobufCFieldDescriptor *f,
                        std::string_view text, msg_arena &arena) {
    if (!parse_into(msg, f, text, arena))
        return std::string("want ") + type_word(f);
    mark_present(msg, f);
    return "";
}

std::string value_text(const ProtobufCMessage *m, const ProtobufCFieldDescriptor *f) {
    switch (f->type) {
    case PROTOBUF_C_TYPE_INT32: case PROTOBUF_C_TYPE_SINT32: case PROTOBUF_C_TYPE_SFIXED32:
        return std::to_string(member<int32_t>(m, f));
    case PROTOBUF_C_TYPE_UINT32: case PROTOBUF_C_TYPE_FIXED32:
        if (const char *name = number_name(f, member<uint32_t>(m, f))) return name;
        return std::to_string(member<uint32_t>(m, f));
    case PROTOBUF_C_TYPE_INT64: case PROTOBUF_C_TYPE_SINT64: case PROTOBUF_C_TYPE_SFIXED64:
        return std::to_string(member<int64_t>(m, f));
    case PROTOBUF_C_TYPE_UINT64: case PROTOBUF_C_TYPE_FIXED64:
        return std::to_string(member<uint64_t>(m, f));
    case PROTOBUF_C_TYPE_FLOAT: return std::to_string(member<float>(m, f));
    case PROTOBUF_C_TYPE_DOUBLE: return std::to_string(member<double>(m, f));
    case PROTOBUF_C_TYPE_BOOL: return member<protobuf_c_boolean>(m, f) ? "true" : "false";
    case PROTOBUF_C_TYPE_ENUM: return enum_text(f, member<int>(m, f));
    case PROTOBUF_C_TYPE_STRING: {
        const char *s = member<const char *>(m, f);
        return quoted(s ? s : "");
    }
    case PROTOBUF_C_TYPE_BYTES: return bytes_text(member<ProtobufCBinaryData>(m, f));
    default: return "?";
    }
}

nlohmann::ordered_json value_json(const ProtobufCMessage *m, const ProtobufCFieldDescriptor *f) {
    switch (f->type) {
    case PROTOBUF_C_TYPE_INT32: case PROTOBUF_C_TYPE_SINT32: case PROTOBUF_C_TYPE_SFIXED32:
        return member<int32_t>(m, f);
    case PROTOBUF_C_TYPE_UINT32: case PROTOBUF_C_TYPE_FIXED32:
        if (const char *name = number_name(f, member<uint32_t>(m, f))) return name;
        return member<uint32_t>(m, f);
    case PROTOBUF_C_TYPE_INT64: case PROTOBUF_C_TYPE_SINT64: case PROTOBUF_C_TYPE_SFIXED64:
        return member<int64_t>(m, f);
    case PROTOBUF_C_TYPE_UINT64: case PROTOBUF_C_TYPE_FIXED64: return member<uint64_t>(m, f);
    case PROTOBUF_C_TYPE_FLOAT: return member<float>(m, f);
    case PROTOBUF_C_TYPE_DOUBLE: return member<double>(m, f);
    case PROTOBUF_C_TYPE_BOOL: return bool(member<protobuf_c_boolean>(m, f));
    case PROTOBUF_C_TYPE_ENUM: {
        int v = member<int>(m, f);
        std::string name = enum_text(f, v);
        return name == std::to_string(v) ? nlohmann::ordered_json(v) : nlohmann::ordered_json(name);
    }
    case PROTOBUF_C_TYPE_STRING: {
        const char *s = member<const char *>(m, f);
        return s ? s : "";
    }
    case PROTOBUF_C_TYPE_BYTES: return bytes_text(member<ProtobufCBinaryData>(m, f));
    default: return nullptr;
    }
}
