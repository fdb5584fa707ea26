// The formats built into the library besides RLA: "mem", an in-process
// image store, and "pipe", RLA streamed through standard input and output or
// a shell command.  The registry lists them as built-in formats; these are
// their open and file-test functions.
#pragma once

#include <cstdint>
#include <cstdio>

#include "orx/plugin.h"

namespace orx::formats {

// "mem" (extension ".mem", access 60: read, write, random, memory).
int mem_read_open(ORX_OBJECT *object);
int mem_write_open(ORX_OBJECT *object);
uint8_t mem_is_file(const char *name, std::FILE *stream);
// Frees every stored image (called by ORX_exit).
void mem_clear();

// "pipe" (extension ".pipe", access 12): "-" is standard input or output,
// "|command" runs a shell command and reads its output or writes its input.
int pipe_read_open(ORX_OBJECT *object);
int pipe_write_open(ORX_OBJECT *object);
uint8_t pipe_is_file(const char *name, std::FILE *stream);

}  // namespace orx::formats
