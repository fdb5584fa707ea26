#include "config/keywords.hpp"

#include <cstdlib>

#include "orx/str.h"

namespace orx::config {

bool parse_real(const char *word, float *value) {
  if (word == nullptr || word[0] == '\0' || !STR_is_real(word)) return false;
  *value = std::strtof(word, nullptr);
  return true;
}

}  // namespace orx::config
