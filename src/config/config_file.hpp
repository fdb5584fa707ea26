// The per-user configuration file ".orxrc": found, read once into a list of
// split lines, and shared by the framebuffer, format-defaults and colour
// databases, each of which walks the same lines for its own keywords.
#pragma once

#include <cstdint>

namespace orx::config {

constexpr int kMaxWords = 17;
constexpr int kLineLength = 255;

// One line of the file: its words point into its own copy of the text.
struct ConfigLine {
  ConfigLine *next;
  uint32_t count;
  char *words[kMaxWords + 1];  // null after the last word
  char text[kLineLength + 1];
};

enum class ReadStatus { kOk, kNoFile, kNoMemory };

// Read the file on the first call (reporting exhaustion with set 903,
// message 7), rewind the line list on later calls.
ReadStatus read_config(void *catalogue);

// Split text in place into at most 17 words: blanks separate words; a word
// opened by a double quote, a single quote or ESC (27) runs to the same
// character, and one left open ends the splitting.  Returns the count.
uint32_t split_words(char *text, char **words);

// Path of the file that was read, or of the last one tried; "" before any.
const char *config_path();

// Iterate the lines in file order: rewind, then next until null.
void rewind_lines();
ConfigLine *next_line();

}  // namespace orx::config

extern "C" {
// Read (or rewind) the configuration; 0, or -1 without a file or memory.
int orx__read_config(void *catalogue);
// The next line record, or null at the end.
orx::config::ConfigLine *orx__config_next_line(void);
// Free the lines and the saved path and mark the file unread.
void orx__config_free(void);
}
