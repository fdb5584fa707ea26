// A database's list of named entries in definition order, with one cursor
// for listing.  Built-in entries live in static storage and are never freed;
// entries read from the file are owned by the list, as is their name.
#pragma once

#include <cstring>

#include "err/heap.hpp"

namespace orx::config {

template <class Entry>
class EntryList {
 public:
  struct Node {
    Node *next;
    bool builtin;
    Entry *entry;
  };

  // Append an entry; false when the node cannot be allocated (the entry is
  // then still the caller's).
  bool append(Entry *entry, bool builtin) {
    auto *n = static_cast<Node *>(heap::allocate(sizeof(Node)));
    if (n == nullptr) return false;
    *n = Node{nullptr, builtin, entry};
    if (tail_ != nullptr)
      tail_->next = n;
    else
      head_ = n;
    tail_ = n;
    return true;
  }

  // Remove the entry of that name from its place, freeing it when it came
  // from the file.
  void remove_named(const char *name) {
    Node *prev = nullptr;
    for (Node *n = head_; n != nullptr; prev = n, n = n->next) {
      if (std::strcmp(n->entry->name, name) != 0) continue;
      (prev != nullptr ? prev->next : head_) = n->next;
      if (tail_ == n) tail_ = prev;
      if (cursor_ == n) cursor_ = n->next;
      release(n);
      return;
    }
  }

  // The entry named exactly so, or null.  A hit moves the cursor past it; a
  // miss leaves the cursor where it was.
  Entry *find(const char *name) {
    if (name == nullptr) return nullptr;
    for (Node *n = head_; n != nullptr; n = n->next) {
      if (std::strcmp(n->entry->name, name) == 0) {
        cursor_ = n->next;
        return n->entry;
      }
    }
    return nullptr;
  }

  void rewind() { cursor_ = head_; }
  Entry *next() {
    if (cursor_ == nullptr) return nullptr;
    Entry *e = cursor_->entry;
    cursor_ = cursor_->next;
    return e;
  }

  void clear() {
    while (head_ != nullptr) {
      Node *n = head_;
      head_ = n->next;
      release(n);
    }
    tail_ = cursor_ = nullptr;
  }

  // Free an entry read from the file, with its name.
  static void free_entry(Entry *e) {
    if (e == nullptr) return;
    heap::release(e->name);
    heap::release(e);
  }

 private:
  void release(Node *n) {
    if (!n->builtin) free_entry(n->entry);
    heap::release(n);
  }

  Node *head_ = nullptr;
  Node *tail_ = nullptr;
  Node *cursor_ = nullptr;
};

}  // namespace orx::config
