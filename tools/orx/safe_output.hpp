// Files the tool writes never replace what was there until they are
// complete: each is written under a temporary name in its own directory and
// renamed into place after it closed successfully, so a failed, full-disk or
// interrupted write leaves the old file (possibly the very input being read)
// untouched and no partial file behind.
#pragma once

#include <string>

namespace orx::tool {

// How many files may be under way at once and still be cleaned up after an
// interruption (one per frame thread, and a few more).
constexpr int kMaxOutputsAtOnce = 72;

class SafeOutput {
 public:
  // Picks where to write final_path: a temporary name beside it (keeping its
  // extension, which names the format), or final_path itself when that is
  // not a regular file to replace: a device, a FIFO, "-" or a "|command".
  explicit SafeOutput(const std::string &final_path);
  ~SafeOutput();  // removes the temporary file unless committed
  SafeOutput(const SafeOutput &) = delete;
  SafeOutput &operator=(const SafeOutput &) = delete;

  // Where to write now.
  const std::string &path() const { return path_; }
  // The name the file ends up with.
  const std::string &final_path() const { return final_; }
  // Moves the finished file into place, with the replaced file's
  // permissions.  False (errno set) when that fails; the temporary file goes
  // with this object.
  bool commit();

 private:
  std::string final_, path_;
  int slot_ = -1;  // entry in the list an interrupt cleans up, or -1
};

// Removes pending temporary files when the process is interrupted (SIGINT,
// SIGTERM, SIGHUP), then dies of the signal as it would have.
void remove_temporaries_on_interrupt();

}  // namespace orx::tool
