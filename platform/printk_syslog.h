// System log of the switch.
#pragma once

// Sends one message with its level and two tags. 0 or a code.
int printk_syslog_lc(int level, const char *tag, const char *id,
                     const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));
