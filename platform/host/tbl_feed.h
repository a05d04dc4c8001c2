// Delivery of other processes' changes to this process's subscribers.
#pragma once

// Hands every waiting change of every subscribed store to its handlers;
// returns how many reached a handler.
int tbl_feed_poll_all();

// Joins the change logs that this process could not join yet and reads
// afresh the tables whose changes were lost; returns how many stores still
// wait for that.
int tbl_feed_mend();

// Ends the process (one line, status 75) when the file of a store that it
// reads is no longer the one it opened (removed, or another put in its
// place), for its supervisor to start it again on the store that stands.
void tbl_feed_check_files();
