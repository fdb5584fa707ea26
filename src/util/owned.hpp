// RAII owners for library memory, so failure paths release what they took
// without hand-written unwinding.
#pragma once

#include <utility>

#include "orx/err.h"

namespace orx {

// Owns a block from ERR_malloc / STR_ / PTR_ and frees it with ERR_free.
template <class T>
class Owned {
 public:
  Owned() = default;
  explicit Owned(T *p) : p_(p) {}
  ~Owned() { ERR_free(p_); }
  Owned(Owned &&o) noexcept : p_(o.release()) {}
  Owned &operator=(Owned &&o) noexcept {
    reset(o.release());
    return *this;
  }
  Owned(const Owned &) = delete;
  Owned &operator=(const Owned &) = delete;

  T *get() const { return p_; }
  T *operator->() const { return p_; }
  T &operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  T *release() { return std::exchange(p_, nullptr); }
  void reset(T *p = nullptr) {
    ERR_free(p_);
    p_ = p;
  }

 private:
  T *p_ = nullptr;
};

// Runs a cleanup at scope exit unless dismissed.
template <class F>
class ScopeGuard {
 public:
  explicit ScopeGuard(F f) : f_(std::move(f)) {}
  ~ScopeGuard() {
    if (active_) f_();
  }
  ScopeGuard(const ScopeGuard &) = delete;
  ScopeGuard &operator=(const ScopeGuard &) = delete;
  void dismiss() { active_ = false; }

 private:
  F f_;
  bool active_ = true;
};

}  // namespace orx
