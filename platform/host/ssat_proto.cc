// The line protocol of the command socket: see ssat_proto.h.
#include "platform/host/ssat_proto.h"

#include "platform/host/ssat_args.h"

std::string ssat_encode_reply(const ssat_reply &reply) {
    std::string head = reply.ran ? "ok " + std::to_string(reply.result) + "\n"
                                 : std::string("refused\n");
    return head + reply.text;
}

bool ssat_decode_reply(std::string_view wire, ssat_reply *reply) {
    size_t nl = wire.find('\n');
    if (nl == std::string_view::npos) return false;
    std::string_view head = wire.substr(0, nl);
    reply->text = std::string(wire.substr(nl + 1));
    if (head == "refused") {
        reply->ran = false;
        reply->result = 0;
        return true;
    }
    int64_t result = 0;
    if (head.substr(0, 3) != "ok " || !ssat_read_num(head.substr(3), &result))
        return false;
    reply->ran = true;
    reply->result = static_cast<int>(result);
    return true;
}
