// The one intrusive list of the service: circular and doubly linked, with
// the link inside the record and the head inside the owner.
//
//      head <-> a <-> b <-> c <-> (head)
//
// A link that points to itself is on no list; that is tested in place of a
// flag. Lists only link: they own nothing.
#pragma once

#include <cstddef>

struct list_head {
    list_head *next;
    list_head *prev;
};

inline void list_init(list_head *h) { h->next = h->prev = h; }

inline bool list_empty(const list_head *h) { return h->next == h; }

inline void list_insert_between(list_head *n, list_head *prev, list_head *next) {
    next->prev = n;
    n->next = next;
    n->prev = prev;
    prev->next = n;
}

// Links n directly behind the head: the front of the list.
inline void list_add(list_head *n, list_head *head) {
    list_insert_between(n, head, head->next);
}

// Links n in front of the head: the tail of the list.
inline void list_add_tail(list_head *n, list_head *head) {
    list_insert_between(n, head->prev, head);
}

// Unlinks n and links it to itself, so that it reads as on no list.
inline void list_del_init(list_head *n) {
    n->prev->next = n->next;
    n->next->prev = n->prev;
    list_init(n);
}

// The record that holds `link` as its member `Member`.
template <class Rec, list_head Rec::*Member>
inline Rec *list_rec(list_head *link) {
    const size_t off = reinterpret_cast<size_t>(
        &(static_cast<Rec *>(nullptr)->*Member));
    return reinterpret_cast<Rec *>(reinterpret_cast<char *>(link) - off);
}

// Walks a list; `next` is read before the body runs, so the body may unlink
// or free the current record.
#define L3MAC_LIST_FOR_EACH_SAFE(pos, nxt, head)                       \
    for (list_head *pos = (head)->next, *nxt = pos->next; pos != (head); \
         pos = nxt, nxt = pos->next)
