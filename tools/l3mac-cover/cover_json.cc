// The JSON form of a cover: see cover_show.h.
#include <nlohmann/json.hpp>

#include "cover_show.h"

std::string cover_json(const cover_result &c, long line) {
    nlohmann::ordered_json obj = nlohmann::ordered_json::object();
    if (line > 0) obj["line"] = line;
    obj["space"] = c.vfi ? "vfi" : "vlan";
    obj["mode"] = c.compact ? "compact" : "greedy";
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const cover_template &t : c.templates)
        list.push_back({{"key", t.key}, {"mask", t.mask}, {"level", t.level}});
    obj["templates"] = list;
    obj["entries"] = cover_entries(c);
    return obj.dump();
}
