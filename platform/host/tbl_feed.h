// Delivery of other processes' changes to this process's subscribers.
#pragma once

// Hands every waiting change of every subscribed store to its handlers;
// returns how many reached a handler.
int tbl_feed_poll_all();
