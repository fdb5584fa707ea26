// The operating-system services the library uses, and the only place that
// knows how each platform provides them.  Everything outside platform/ goes
// through these declarations, so a port implements this file and nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace orx::platform {

// A mutex, non-recursive unless asked.  Waits have no time-out.
class Mutex {
 public:
  enum Kind { kPlain, kRecursive };
  explicit Mutex(Kind kind = kPlain);
  ~Mutex();
  Mutex(const Mutex &) = delete;
  Mutex &operator=(const Mutex &) = delete;
  void lock();
  void unlock();

 private:
  alignas(16) unsigned char storage_[64];
};

// Scoped lock over a Mutex.
class Lock {
 public:
  explicit Lock(Mutex &m) : m_(m) { m_.lock(); }
  ~Lock() { m_.unlock(); }
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;

 private:
  Mutex &m_;
};

// Address of a named symbol in a module handle the host supplied (what the
// platform's loader returned), or null.
void *module_symbol(void *module, const char *name);

// Host and user names into buf (always terminated); false when unknown.
bool host_name(char *buf, std::size_t size);
bool user_name(char *buf, std::size_t size);

// Seconds since the epoch, and broken-down local time of such a value.
std::int64_t wall_seconds();
struct LocalTime {
  int year;  // years since 1900
  int month; // 0..11
  int day;   // 1..31
  int hour, minute, second;
};
bool local_time(std::int64_t seconds, LocalTime *out);
// A moment (seconds since the epoch) in local time, written with a strftime
// format into buf (always terminated).  Returns the length of the text, 0 when
// the moment cannot be represented or the text does not fit.
std::size_t format_local_time(std::int64_t seconds, const char *format, char *buf,
                              std::size_t size);
// Monotonic seconds, for elapsed-time measurements.
double tick_seconds();

// File status.  Returns 0 on success, else the system error number.
struct FileStatus {
  std::int64_t size;
  std::int64_t modified;  // seconds since the epoch
  bool directory;
};
int file_status(const char *path, FileStatus *out);
// True when the path exists (mode 0 of the access check).
bool file_exists(const char *path);
// Remove a file; 0 on success, else the system error number.
int remove_file(const char *path);
// Remove path only when it names a regular file itself (not a device, pipe,
// socket, directory or symbolic link); 0 when removed, else an error number.
int remove_regular_file(const char *path);

// A file opened for writing, and whether the open brought it into being, so
// that a failed write can take away what it made and nothing else.
struct CreatedFile {
  bool created = false;  // the open made a new regular file
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
};
// Opens path for writing as fopen(path, "wb") does (an existing file is
// emptied), noting in *file whether this open created it.  Null with errno
// set when it cannot be opened.
std::FILE *create_file(const char *path, CreatedFile *file);
// Removes path only when it still names the regular file that create_file
// created (not an existing file, a device, a link or a file put in its
// place since).  Returns 0 when removed, else a system error number.
int remove_created_file(const char *path, const CreatedFile &file);

// Creates a new file from the template name, whose last six characters are
// "XXXXXX" and are replaced in place to make the name unique, as mkstemp
// does, and opens it for writing with the permissions a plain new file gets.
// Null with errno set on failure.
std::FILE *create_temp_file(char *name_template);
// Renames from to to, replacing to; 0 on success, else the system error number.
int rename_file(const char *from, const char *to);

// A shell command whose standard output is read (mode "r") or whose
// standard input is written (mode "w") through the returned stream; null when
// it cannot be started.  close_command waits for it and returns 0 when it
// exited with status 0.
std::FILE *open_command(const char *command, const char *mode);
int close_command(std::FILE *stream);

// Environment.  put_env takes "NAME=value"; the string becomes part of the
// environment and must stay alive (the caller does not free it).
const char *get_env(const char *name);
int put_env(char *assignment);

// Show a fatal message by the platform's own means (a message box where
// there is one).  On POSIX the text has already gone to standard error, so
// this does nothing more.
void show_fatal_message(const char *title, const char *text);

}  // namespace orx::platform
