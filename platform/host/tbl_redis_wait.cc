// The Redis store's waiting connection: a reader on an event loop is woken
// by the server when the log grows, instead of asking for its top every few
// milliseconds. The connection sits blocked in "XREAD BLOCK 0" on the log,
// from the reader's place on; its loop watches the socket. The reply only
// wakes: the changes are read on the store's own connection, in order, as
// any poll reads them, so delivery stays exactly once and in order.
#include <algorithm>
#include <string>

#include <fcntl.h>

#include <hiredis/hiredis.h>

#include "platform/host/tbl_redis.h"

namespace {

constexpr int kFail = -11;

std::string text_of(const redisReply *r) { return r->str ? std::string(r->str, r->len) : ""; }

std::string why(const redisContext *c, const char *otherwise) {
    return c->errstr[0] ? c->errstr : otherwise;
}

// The low half of an entry ID is its writer's number: the highest one
// stands after every entry of that sequence number.
std::string after_id(int64_t seq) { return std::to_string(seq) + "-18446744073709551615"; }

}  // namespace

// Made on the first call, non-blocking once it is set up, so that reading
// it never stalls the loop.
int tbl_redis::wait_fd() {
    if (wait_failed_ || lost_) return -1;
    if (!wait_ctx_) {
        wait_ctx_ = dial(where_, "cannot connect for waiting");
        if (!wait_ctx_) {
            wait_failed_ = true;
            return -1;
        }
        const int flags = fcntl(wait_ctx_->fd, F_GETFL);
        if (flags < 0 || fcntl(wait_ctx_->fd, F_SETFL, flags | O_NONBLOCK) != 0) {
            redisFree(wait_ctx_);
            wait_ctx_ = nullptr;
            wait_failed_ = true;
            return -1;
        }
        wait_ctx_->flags &= ~REDIS_BLOCK;
    }
    return wait_ctx_->fd;
}

// Reads what has come: 0 when the outstanding XREAD has answered, or is
// still out (a reply read in part), else -11 with the reason in
// last_error(). Not said here: a server that went away is said by the
// store's own connection, and the reader says that it polls instead.
int tbl_redis::wait_read() {
    auto failed = [this](const std::string &reason) {
        last_error_ = "wait for changes: " + reason;
        wait_failed_ = true;
        return kFail;
    };
    if (redisBufferRead(wait_ctx_) != REDIS_OK) return failed(why(wait_ctx_, "no reply"));
    void *got = nullptr;
    while (redisReaderGetReply(wait_ctx_->reader, &got) == REDIS_OK && got) {
        reply r(static_cast<redisReply *>(got));
        got = nullptr;
        if (r->type == REDIS_REPLY_ERROR) return failed(text_of(r.get()));
        waiting_ = false;
    }
    return wait_ctx_->reader->err ? failed(wait_ctx_->reader->errstr) : 0;
}

int tbl_redis::wait_woken() {
    if (wait_failed_ || !wait_ctx_) return kFail;
    return waiting_ ? wait_read() : 0;
}

// Waits from the reader's place or the top this connection saw last,
// whichever is later: the changes up to that top are this process's own or
// were read when it was seen. An XREAD that is still out is left to answer;
// if it waits from an earlier place it answers at once, and the wake finds
// nothing new.
int tbl_redis::wait_again(int64_t after) {
    if (wait_failed_ || !wait_ctx_) return kFail;
    if (waiting_) return 0;
    const std::string log = key("log"), from = after_id(std::max(after, seen_top_));
    const char *argv[] = {"XREAD", "COUNT", "1",         "BLOCK",
                          "0",     "STREAMS", log.c_str(), from.c_str()};
    redisAppendCommandArgv(wait_ctx_, 8, argv, nullptr);
    int done = 0;
    for (int tries = 0; !done && tries < 100; tries++)
        if (redisBufferWrite(wait_ctx_, &done) != REDIS_OK) break;
    if (!done) {
        last_error_ = "wait for changes: " + why(wait_ctx_, "cannot send");
        return wait_failed_ = true, kFail;
    }
    waiting_ = true;
    return 0;
}
