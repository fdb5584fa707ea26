// The walk over the configuration lines that every database makes: match
// each line's first word against the database's keyword table, report a
// wrong word count with the file path and line number, and apply the rest.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

#include "config/config_file.hpp"
#include "err/messages.hpp"

namespace orx::config {

template <class Db>
struct Keyword {
  const char *word;
  uint32_t words;  // including the keyword
  // Returns 0 to go on, or a status that ends the walk.
  int (*apply)(Db &db, char **words);
};

// Lines whose first word is no keyword go to unknown (which may be null,
// skipping them).  Lines are numbered from 1 over all lines.  Returns 0 or
// the status that ended the walk.
template <class Db>
int walk_lines(std::span<const Keyword<Db>> table, Db &db,
               int (*unknown)(Db &db, ConfigLine *line, int number)) {
  rewind_lines();
  int number = 0;
  while (ConfigLine *line = next_line()) {
    ++number;
    if (line->count == 0) continue;
    const Keyword<Db> *kw = nullptr;
    for (const auto &k : table) {
      if (std::strcmp(k.word, line->words[0]) == 0) {
        kw = &k;
        break;
      }
    }
    int status = 0;
    if (kw == nullptr) {
      if (unknown != nullptr) status = unknown(db, line, number);
    } else if (kw->words != line->count) {
      report(Msg::kConfigSyntax, config_path(), number);
    } else {
      status = kw->apply(db, line->words);
    }
    if (status != 0) return status;
  }
  return 0;
}

// Parse a real number; false (value untouched) when the word is not one.
bool parse_real(const char *word, float *value);

}  // namespace orx::config
