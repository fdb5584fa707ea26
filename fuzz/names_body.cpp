// Name syntaxes and path building: the bytes are a frame number (4 bytes),
// then a syntax, a base name and an extension separated by NUL bytes.  The
// syntax is also tried as a printf-style name format and as a format key.
#include <cstdlib>
#include <cstring>
#include <string>

#include "bodies.hpp"
#include "orx/err.h"
#include "orx/naming.h"
#include "orx/registry.h"
#include "quiet.hpp"

namespace orx::fuzz {
namespace {

// The next NUL-separated field of [*at, end).
std::string field(const std::uint8_t **at, const std::uint8_t *end) {
  const std::uint8_t *start = *at;
  while (*at < end && **at != 0) ++*at;
  std::string text(reinterpret_cast<const char *>(start), static_cast<std::size_t>(*at - start));
  if (*at < end) ++*at;
  return text;
}

}  // namespace

int name_syntax(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  static const bool registry = ORX_init(nullptr, nullptr) == 0;
  int32_t frame = 0;
  if (size >= 4) std::memcpy(&frame, data, 4);
  const std::uint8_t *at = data + (size >= 4 ? 4 : size);
  const std::uint8_t *end = data + size;
  const std::string syntax = field(&at, end);
  const std::string base = field(&at, end);
  const std::string extension = field(&at, end);

  const int valid = ORX_name_syntax_verify(syntax.c_str());
  ORX_name_syntax_has_ext(syntax.c_str());
  ORX_name_syntax_ends_ext(syntax.c_str());
  ORX_name_syntax_has_frame(syntax.c_str());
  ORX_NAME_TOKEN *tokens = nullptr;
  const bool parsed = ORX_parse_name_syntax(syntax.c_str(), &tokens, 0) != 0;
  // The parser and the verifier agree on what is valid.
  if (parsed != (valid == 1)) return -1;
  if (parsed) {
    int n = 0;
    while (tokens[n].kind != ORX_TOKEN_END) ++n;
    std::free(tokens);
  }
  char *name = ORX_pathname_build_from_name_syntax(syntax.c_str(), base.c_str(), frame,
                                                   extension.c_str());
  // A valid syntax always builds a name (memory permitting).
  if (valid == 1 && name == nullptr && orx__err != ORX_E_NO_MEMORY) return -1;
  ERR_free(name);
  ERR_free(ORX_pathname_build_no_name_syntax(syntax.c_str(), base.c_str(), frame,
                                             extension.c_str()));
  if (registry) ERR_free(ORX_pathname_build(syntax.c_str(), base.c_str(), frame));
  return 0;
}

}  // namespace orx::fuzz
