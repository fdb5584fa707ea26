// Capability settings: the small code-and-value records an application
// asks a format for, allocated, copied and compared.
#include <cstring>

#include "err/messages.hpp"
#include "orx/capability.h"
#include "orx/err.h"
#include "orx/ptr.h"

namespace orx::core {
namespace {

bool is_empty(ORX_CAP_SETTING **settings) { return settings == nullptr || settings[0] == nullptr; }

// Whether two settings of the same code hold the same value.
bool same_value(const ORX_CAP_SETTING &a, const ORX_CAP_SETTING &b) {
  switch (a.code) {
    case ORX_CAP_INTEGER:
      return a.value.i == b.value.i;
    case ORX_CAP_FLOAT:
      return a.value.f == b.value.f;  // unordered (NaN) compares unequal
    default:
      report(Msg::kCapabilityCode, static_cast<int>(a.code));
      return false;
  }
}

}  // namespace
}  // namespace orx::core

extern "C" {

ORX_CAP_SETTING *ORX_cap_setting_alloc(int32_t n) {
  if (n < 0) return nullptr;
  const auto bytes = static_cast<uint64_t>(n) * sizeof(ORX_CAP_SETTING);
  if (bytes > UINT32_MAX) {
    orx::report(orx::Msg::kNoMemory);
    return nullptr;
  }
  auto *settings = static_cast<ORX_CAP_SETTING *>(ERR_malloc(static_cast<uint32_t>(bytes)));
  if (settings == nullptr) return nullptr;
  for (int32_t i = 0; i < n; ++i) {
    settings[i].code = ORX_CAP_UNSET;
    settings[i].value.i = 0;
  }
  return settings;
}

ORX_CAP_SETTING **ORX_cap_setting_copy(ORX_CAP_SETTING **settings) {
  using orx::core::is_empty;
  if (is_empty(settings)) return nullptr;
  void **source = reinterpret_cast<void **>(settings);
  const uint32_t n = PTR_length(source);
  auto **copy = reinterpret_cast<ORX_CAP_SETTING **>(PTR_more(nullptr, n));
  if (copy == nullptr) {
    orx::report(orx::Msg::kNoMemory);
    return nullptr;
  }
  for (uint32_t i = 0; i < n; ++i) {
    auto *one = static_cast<ORX_CAP_SETTING *>(ERR_malloc(sizeof(ORX_CAP_SETTING)));
    copy[i] = one;
    if (one == nullptr) return copy;  // reported by ERR_malloc; ended here
    *one = *settings[i];
  }
  copy[n] = nullptr;
  return copy;
}

int ORX_cap_setting_compare(ORX_CAP_SETTING **a, ORX_CAP_SETTING **b) {
  using orx::core::is_empty;
  // A null a asks for nothing only against nothing; an empty (non-null) a
  // asks for nothing and so matches whatever b holds.
  if (a == nullptr) return is_empty(b) ? 1 : 0;
  if (is_empty(b)) return is_empty(a) ? 1 : 0;
  // Each search resumes just after the setting the previous one matched, so b
  // must list the codes a asks for in a's order; repeated codes pair up in turn.
  std::size_t j = 0;
  for (std::size_t i = 0; a[i] != nullptr; ++i) {
    while (b[j] != nullptr && b[j]->code != a[i]->code) ++j;
    if (b[j] == nullptr) return 0;
    if (!orx::core::same_value(*a[i], *b[j])) return 0;
    ++j;
  }
  return 1;
}

}  // extern "C"
