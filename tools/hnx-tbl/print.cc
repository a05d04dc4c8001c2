// The tool's printed forms of a row: see print.h.
#include "print.h"

#include "schema.h"
#include "values.h"

namespace {

const ProtobufCMessage *sub_of(const ProtobufCMessage *m, const ProtobufCFieldDescriptor *f) {
    return *reinterpret_cast<const ProtobufCMessage *const *>(
        reinterpret_cast<const char *>(m) + f->offset);
}

bool present(const ProtobufCMessage *m, const ProtobufCFieldDescriptor *f) {
    if (f->label == PROTOBUF_C_LABEL_REPEATED) return false;
    if (f->type == PROTOBUF_C_TYPE_MESSAGE) return sub_of(m, f) != nullptr;
    if (f->quantifier_offset == 0) return true;
    auto *q = reinterpret_cast<const char *>(m) + f->quantifier_offset;
    if (f->flags & PROTOBUF_C_FIELD_FLAG_ONEOF) return *reinterpret_cast<const uint32_t *>(q) == f->id;
    return *reinterpret_cast<const protobuf_c_boolean *>(q) != 0;
}

void words(const ProtobufCMessage *m, const ProtobufCFieldDescriptor *f, const std::string &prefix,
           std::string &out);

void all_words(const ProtobufCMessage *m, const std::string &prefix, std::string &out) {
    for (unsigned i = 0; i < m->descriptor->n_fields; i++)
        words(m, &m->descriptor->fields[i], prefix, out);
}

// A message of one scalar field is shown as that field under the
// message's own name, as `set` takes it ("attr.mac").
void words(const ProtobufCMessage *m, const ProtobufCFieldDescriptor *f, const std::string &prefix,
           std::string &out) {
    if (!present(m, f)) return;
    std::string name = prefix + f->name;
    if (f->type != PROTOBUF_C_TYPE_MESSAGE) {
        out += (out.empty() ? "" : " ") + name + "=" + value_text(m, f);
        return;
    }
    const ProtobufCMessage *sub = sub_of(m, f);
    const ProtobufCFieldDescriptor *single = path_single(sub->descriptor);
    if (single && single->type != PROTOBUF_C_TYPE_MESSAGE && present(sub, single))
        out += (out.empty() ? "" : " ") + name + "=" + value_text(sub, single);
    else
        all_words(sub, name + ".", out);
}

nlohmann::ordered_json json_of(const ProtobufCMessage *m);

nlohmann::ordered_json member_json(const ProtobufCMessage *m, const ProtobufCFieldDescriptor *f) {
    if (f->type != PROTOBUF_C_TYPE_MESSAGE) return value_json(m, f);
    const ProtobufCMessage *sub = sub_of(m, f);
    const ProtobufCFieldDescriptor *single = path_single(sub->descriptor);
    if (single && single->type != PROTOBUF_C_TYPE_MESSAGE && present(sub, single))
        return value_json(sub, single);
    return json_of(sub);
}

nlohmann::ordered_json json_of(const ProtobufCMessage *m) {
    nlohmann::ordered_json obj = nlohmann::ordered_json::object();
    for (unsigned i = 0; i < m->descriptor->n_fields; i++) {
        const ProtobufCFieldDescriptor *f = &m->descriptor->fields[i];
        if (present(m, f)) obj[f->name] = member_json(m, f);
    }
    return obj;
}

std::string dump_json(const nlohmann::ordered_json &j) {
    return j.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

std::string print_readable(const ProtobufCMessage *row) {
    std::string out;
    all_words(row, "", out);
    return out;
}

std::string print_member(const ProtobufCMessage *row, const ProtobufCFieldDescriptor *f) {
    std::string out;
    words(row, f, "", out);
    return out;
}

std::string print_json(const ProtobufCMessage *row, const std::string &ranges_word) {
    nlohmann::ordered_json obj = json_of(row);
    // " vlans=1-7" as "vlans": "1-7"
    const size_t eq = ranges_word.find('=');
    if (eq != std::string::npos) obj[ranges_word.substr(1, eq - 1)] = ranges_word.substr(eq + 1);
    return dump_json(obj);
}

std::string print_json_change(const char *op, const ProtobufCMessage *row,
                              const ProtobufCFieldDescriptor *key) {
    nlohmann::ordered_json obj = nlohmann::ordered_json::object();
    obj["op"] = op;
    obj["table"] = row->descriptor->name;
    if (key && present(row, key)) obj["row"] = {{key->name, member_json(row, key)}};
    else obj["row"] = json_of(row);
    return dump_json(obj);
}
