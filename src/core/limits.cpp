// Limits on what a file may make the library allocate: a host's override,
// else the environment, else the default.  Overrides are atomics so that
// hosts may set them while other threads open files.
#include "orx/limits.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "core/limits.hpp"
#include "err/messages.hpp"
#include "orx/err.h"
#include "platform/platform.hpp"

namespace orx::core {
namespace {

struct Limit {
  const char *variable;
  std::int64_t fallback;
  std::atomic<std::int64_t> override_value{0};  // 0: none
};

Limit g_channels{"KV_ORX_MAX_CHANNELS", 1024};
Limit g_row_memory{"KV_ORX_MAX_ROW_MEMORY", std::int64_t{1} << 30};

Limit *find(std::int32_t which) {
  switch (which) {
    case ORX_LIMIT_CHANNELS: return &g_channels;
    case ORX_LIMIT_ROW_MEMORY: return &g_row_memory;
    default: return nullptr;
  }
}

// A positive number with an optional binary suffix k, m or g; 0 when the
// text is anything else (the default then holds).
std::int64_t parse(const char *text) {
  if (text == nullptr) return 0;
  errno = 0;
  char *end = nullptr;
  const long long n = std::strtoll(text, &end, 10);
  if (end == text || errno != 0 || n <= 0) return 0;
  int shift = 0;
  switch (*end) {
    case 'k': case 'K': shift = 10; ++end; break;
    case 'm': case 'M': shift = 20; ++end; break;
    case 'g': case 'G': shift = 30; ++end; break;
    default: break;
  }
  if (*end != '\0' || n > (INT64_MAX >> shift)) return 0;
  return static_cast<std::int64_t>(n) << shift;
}

std::int64_t in_force(const Limit &limit) {
  const std::int64_t set = limit.override_value.load(std::memory_order_relaxed);
  if (set > 0) return set;
  const std::int64_t env = parse(platform::get_env(limit.variable));
  return env > 0 ? env : limit.fallback;
}

}  // namespace

const char *limit_variable(std::int32_t which) {
  const Limit *limit = find(which);
  return limit != nullptr ? limit->variable : "";
}

}  // namespace orx::core

extern "C" {

int64_t ORX_limit(int32_t which) {
  const orx::core::Limit *limit = orx::core::find(which);
  return limit != nullptr ? orx::core::in_force(*limit) : -1;
}

int64_t ORX_set_limit(int32_t which, int64_t value) {
  orx::core::Limit *limit = orx::core::find(which);
  if (limit == nullptr) {
    orx::fail(ORX_E_UNSUPPORTED, orx::Msg::kCannotHandleAction, "ORX_set_limit");
    return -1;
  }
  const int64_t before = orx::core::in_force(*limit);
  limit->override_value.store(value > 0 ? value : 0, std::memory_order_relaxed);
  return before;
}

}  // extern "C"
