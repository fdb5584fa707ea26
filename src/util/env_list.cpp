// Splicing a value into a ":"-separated environment variable.  A "+" item in
// such a variable marks where the library's own directory goes, so a user
// can place it anywhere in the search order.
#include <cstring>
#include <string_view>

#include "err/heap.hpp"
#include "platform/platform.hpp"
#include "util/env.hpp"

namespace orx::util {
namespace {

constexpr std::string_view kMarker = "+";

// Calls item(text, is_marker) for each ":"-separated item of list, empty
// items included, so that the rebuilt list keeps them.
template <class F>
void for_each_item(std::string_view list, F item) {
  for (;;) {
    std::size_t colon = list.find(':');
    std::string_view text = list.substr(0, colon);
    item(text, text == kMarker);
    if (colon == std::string_view::npos) return;
    list.remove_prefix(colon + 1);
  }
}

char *append(char *at, std::string_view text) {
  std::memcpy(at, text.data(), text.size());
  return at + text.size();
}

// Puts "name=value" into the environment, which keeps the string.  Returns
// its value part, or null when nothing was changed.
const char *put_assignment(char *assignment, std::size_t name_length) {
  if (platform::put_env(assignment) != 0) {
    heap::release(assignment);
    return nullptr;
  }
  return assignment + name_length + 1;
}

}  // namespace

const char *add_to_env_list(const char *name, const char *value) {
  if (name == nullptr || value == nullptr) return nullptr;
  std::string_view key(name);
  std::string_view splice(value);
  const char *old = platform::get_env(name);

  if (old == nullptr) {
    auto *assignment = static_cast<char *>(heap::allocate(key.size() + splice.size() + 2));
    if (assignment == nullptr) return nullptr;
    *append(append(append(assignment, key), "="), splice) = '\0';
    return put_assignment(assignment, key.size()) != nullptr ? value : nullptr;
  }

  std::size_t markers = 0;
  for_each_item(old, [&](std::string_view, bool marker) { markers += marker ? 1 : 0; });
  if (markers == 0) return old;

  std::string_view list(old);
  std::size_t size = key.size() + 1 + list.size() + markers * splice.size() - markers + 1;
  auto *assignment = static_cast<char *>(heap::allocate(size));
  if (assignment == nullptr) return nullptr;
  char *at = append(append(assignment, key), "=");
  bool first = true;
  for_each_item(list, [&](std::string_view text, bool marker) {
    if (!first) at = append(at, ":");
    first = false;
    at = append(at, marker ? splice : text);
  });
  *at = '\0';
  return put_assignment(assignment, key.size());
}

}  // namespace orx::util
