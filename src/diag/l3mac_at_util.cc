// Helpers shared by the debug command handlers.
#include "diag/l3mac_at_util.h"

#include <cstdio>
#include <cstring>

mac_entry *l3mac_at_find_mac(int32_t type, const uint8_t *mac, uint32_t phyid) {
    if (mac == nullptr) return nullptr;
    return sw_l3mac_get_or_add_mac_db(static_cast<uint8_t>(type), mac, phyid, 0);
}

int l3mac_at_not_found() {
    std::printf("not found\n");
    return L3MAC_E_NOTFOUND;
}

void l3mac_at_copy_uuid(char (&dst)[128], const char *uuid) {
    std::memset(dst, 0, sizeof dst);
    if (uuid != nullptr) std::strncpy(dst, uuid, sizeof dst - 1);
}

int32_t l3mac_at_uuid_num(int32_t base, int32_t i) {
    return static_cast<int32_t>(static_cast<uint32_t>(base) + static_cast<uint32_t>(i));
}
