// Storage of the process-wide state record and its two statics.
#include "frame/l3mac_ctx.h"

#include "decision/l3mac_mac.h"
#include "frame/l3mac_mem.h"

l3mac_ctx_t l3mac_ctx;
uint32_t l3mac_commom_decision_counter = 5;
list_head l3mac_pending_head = {&l3mac_pending_head, &l3mac_pending_head};
long l3mac_mem_fail_after = -1;
