// File-system and environment helpers with "/" as path separator and ":" as
// list separator: testing and copying files, finding a file along a search
// path, splicing a directory into a list-valued environment variable, and
// the comment banner at the head of generated text files.  Nothing here is
// reported through the error service; results say what happened.
#pragma once

#include <cstdint>
#include <cstdio>

namespace orx::util {

// 1 when the file exists, -1 when it does not, 0 when its status cannot be
// had for another reason or the last component of the name (after the last
// "/") holds a character that is not printable.
int check_file(const char *name);

// Copies source to destination.  Returns 1 on success; the result of
// check_file(source) when that is not 1; 0 when check_file(destination) is
// 0; -2 when the source cannot be opened or read; -3 when the destination
// cannot be opened, written or closed, in which case it is removed so that
// no partial copy is left behind.
int copy_file(const char *source, const char *destination);

// When name contains "/" or search_path is null or empty: name itself if it
// exists, else null.  Otherwise the first existing "<dir>/<name>" over the
// ":"-separated directories of search_path (one trailing "/" of a directory
// is dropped, empty entries are skipped).  The result lives in a static
// buffer that the next call overwrites; null when nothing is found.
const char *find_file(const char *name, const char *search_path);

// Splices value into the list-valued environment variable name.  When the
// variable is unset it is set to value, and value is returned.  Otherwise
// every ":"-separated item that is exactly "+" is replaced by value; when
// there was one, the new assignment goes into the environment (which then
// owns it) and the returned pointer is its value part; when there was none,
// nothing changes and the old value is returned.  Null when name or value is
// null, or when memory or the environment fails.
const char *add_to_env_list(const char *name, const char *value);

// Writes the comment banner for a file titled title, dated by clock (seconds
// since the epoch, in local time): "/*" ... " */" style when block_comment,
// "#" lines otherwise.
void write_banner(std::FILE *stream, const char *title, bool block_comment, std::int64_t clock);

}  // namespace orx::util
