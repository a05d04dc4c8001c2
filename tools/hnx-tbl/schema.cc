// The tables the tool knows and field paths over them: see schema.h.
#include "schema.h"

#include <array>
#include <cstdio>
#include <filesystem>

#include "platform/host/tbl_codec.h"
#include "platform/host/tbl_state.h"
#include "platform/host/tbl_where.h"
#include "s_route.pb-c.h"

namespace {

constexpr int kStore = 16;
constexpr int kKeyPos = 12;  // the key member's place in every row record

const std::array<const ProtobufCMessageDescriptor *, 4> kRows = {
    &s_route__l3mac_res__descriptor,
    &s_route__l3mac_hw_res__descriptor,
    &s_route__l3mac_bak__descriptor,
    &s_route__l3mac_vrrp_hw_res__descriptor,
};

const std::vector<tbl_schema> &schemas() {
    static const std::vector<tbl_schema> all = [] {
        std::vector<tbl_schema> v;
        for (const ProtobufCMessageDescriptor *d : kRows) v.push_back({d, tbl_key_field(d, kKeyPos, nullptr)});
        return v;
    }();
    return all;
}

}  // namespace

const tbl_schema *schema_find(std::string_view name) {
    for (const tbl_schema &s : schemas())
        if (name == s.row->name) return &s;
    return nullptr;
}

bool schema_store_ready(tbl_open mode) {
    tbl_set_open_mode(mode);
    const std::string path = tbl_store_path(kStore);
    std::error_code ec;
    tbl_where where;  // a Redis store's open says itself whether it is there
    if ((tbl_where_now(&where).empty() && where.redis) || std::filesystem::exists(path, ec))
        return true;
    if (mode != tbl_open::create) {
        std::fprintf(stderr, "hnx-tbl: no table store at %s (is HNX_ROOT set?)\n", path.c_str());
        return false;
    }
    std::fprintf(stderr, "hnx-tbl: creating table store at %s\n", path.c_str());
    return true;
}

ss_rt_tbl *schema_open(const tbl_schema *s, msg_arena &arena) {
    auto *key_desc = static_cast<const ProtobufCMessageDescriptor *>(s->key->descriptor);
    ss_rt_tbl *t = ss_rt_tbl_create_detail(kStore, 1, arena.make(s->row), 0, kKeyPos,
                                           arena.make(key_desc), 0, 0);
    if (!t) std::fprintf(stderr, "hnx-tbl: cannot open table %s\n", s->row->name);
    return t;
}

std::string schema_names() {
    std::string out;
    for (const tbl_schema &s : schemas()) out += (out.empty() ? "" : ", ") + std::string(s.row->name);
    return out;
}

const ProtobufCFieldDescriptor *path_single(const ProtobufCMessageDescriptor *d) {
    return d->n_fields == 1 ? &d->fields[0] : nullptr;
}

namespace {

const ProtobufCMessageDescriptor *message_of(const ProtobufCFieldDescriptor *f) {
    if (f->type != PROTOBUF_C_TYPE_MESSAGE) return nullptr;
    return static_cast<const ProtobufCMessageDescriptor *>(f->descriptor);
}

std::string take(const ProtobufCFieldDescriptor *f, std::string_view text, field_path *out) {
    if (f->label == PROTOBUF_C_LABEL_REPEATED)
        return std::string(text) + " is a repeated field, which the tool does not set";
    out->push_back(f);
    return "";
}

}  // namespace

std::string path_resolve(const ProtobufCMessageDescriptor *row, std::string_view text,
                         field_path *out) {
    if (text.empty()) return "empty field name";
    std::string unknown = "no field " + std::string(text) + " in " + row->name;
    const ProtobufCMessageDescriptor *at = row;
    size_t pos = 0;
    for (;;) {
        size_t dot = text.find('.', pos);
        std::string name(text.substr(pos, dot == std::string_view::npos ? dot : dot - pos));
        const ProtobufCFieldDescriptor *f =
            at ? protobuf_c_message_descriptor_get_field_by_name(at, name.c_str()) : nullptr;
        if (!f) return unknown;
        if (std::string err = take(f, text, out); !err.empty()) return err;
        at = message_of(f);
        if (dot == std::string_view::npos) break;
        pos = dot + 1;
    }
    while (at) {
        const ProtobufCFieldDescriptor *f = path_single(at);
        if (!f) return std::string(text) + " is a message: name one of its fields";
        if (std::string err = take(f, text, out); !err.empty()) return err;
        at = message_of(f);
    }
    return "";
}
