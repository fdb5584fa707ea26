// Expansion of environment variables in file names ("$NAME" and "${NAME}").
#include <cctype>
#include <cstring>

#include "orx/err.h"
#include "orx/str.h"
#include "platform/platform.hpp"

namespace orx::util {
namespace {

// Longest variable name and longest expanded text, in characters.
constexpr std::size_t kLimit = 259;

bool is_name_char(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

// The expanded text, bounded by kLimit.
class Expansion {
 public:
  bool add(const char *text, std::size_t n) {
    if (n > kLimit - used_) return false;
    std::memcpy(text_ + used_, text, n);
    used_ += n;
    return true;
  }
  char *save() {
    text_[used_] = '\0';
    return STR_save(text_);
  }

 private:
  char text_[kLimit + 1];
  std::size_t used_ = 0;
};

// A name or expansion past the limit is a fault of the caller, who passed a
// file name no path buffer of the library could hold.
int too_long(const char *name) {
  ERR_printf(ERR_FATAL, "File name longer than %d characters after expansion: %.60s...",
             static_cast<int>(kLimit), name);
  return 0;
}

}  // namespace
}  // namespace orx::util

extern "C" {

int STR_expand_filename(const char *name, char **result) {
  using orx::util::kLimit;
  if (result == nullptr) return 0;
  *result = nullptr;
  if (name == nullptr) return 0;

  orx::util::Expansion out;
  const char *p = STR_skip_space(name);
  while (*p != '\0') {
    if (*p == '$') {
      bool braced = p[1] == '{';
      const char *start = p + (braced ? 2 : 1);
      const char *end = start;
      while (orx::util::is_name_char(*end)) ++end;
      auto length = static_cast<std::size_t>(end - start);
      if (length > 0 && (!braced || *end == '}')) {
        if (length > kLimit) return orx::util::too_long(name);
        char variable[kLimit + 1];
        std::memcpy(variable, start, length);
        variable[length] = '\0';
        const char *value = orx::platform::get_env(variable);
        if (value == nullptr) {
          *result = STR_save(variable);
          return 0;
        }
        if (!out.add(value, std::strlen(value))) return orx::util::too_long(name);
        p = braced ? end + 1 : end;
        continue;
      }
    }
    // Anything else, including a "$" that starts no name, is copied.
    if (!out.add(p, 1)) return orx::util::too_long(name);
    ++p;
  }
  *result = out.save();
  return *result != nullptr ? 1 : 0;
}

}  // extern "C"
