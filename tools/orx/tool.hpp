// Shared pieces of the orx tool: messages, opened images and samples.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "orx/err.h"
#include "orx/orx.h"
#include "orx/plugin.h"
#include "safe_output.hpp"
#include "settings.hpp"

namespace orx::tool {

// Exit statuses of every sub-command.
constexpr int kOk = 0;
constexpr int kDifferent = 1;  // diff: outside the thresholds
constexpr int kFailed = 2;     // also usage errors

// Writes "orx: text" and a newline to standard error as one line: on a
// thread working on a frame of a sequence, "orx: frame N: text".  Lines from
// different threads never mix, and a status line (see show_status) is
// cleared first.
void say(const std::string &text);
// A status line on standard error (a progress bar), replaced by the next one
// and cleared by the next message; "" clears it.
void show_status(const std::string &text);

// Marks the calling thread as working on one frame of a sequence while it
// lives: its messages name the frame and per-row progress bars stay hidden.
class FrameScope {
 public:
  explicit FrameScope(int frame);
  ~FrameScope();
  FrameScope(const FrameScope &) = delete;
  FrameScope &operator=(const FrameScope &) = delete;
};
// True on a thread inside a FrameScope.
bool in_frame();

// Held around the calls into parts of the library that keep process-wide
// state without locks of their own (the configuration databases behind the
// operators, the image processes): one frame's thread at a time.  Image I/O
// itself needs no such lock.
std::mutex &library_state_lock();

// Declares the tool's handler: warnings and errors go to standard error as
// "orx: message"; verbose also shows information and debug notes.
void install_reporting(bool verbose);
// Shows errors as they are reported (while no command is there to name
// them with its file, as when plug-ins are loaded).
void echo_errors(bool on);
// The newest error message the library reported on this thread, or "".
const std::string &last_error();
// Forgets this thread's newest error and hint (after a failure that was
// expected and dealt with).
void forget_error();

// Prints "orx: what: reason" for a failure (reason defaults to the newest
// library error), then any hint the failure left, and returns kFailed.
int complain(const std::string &what, const std::string &reason = "");

// Every registered format: plug-ins in registry order, then the built-in
// formats.
std::vector<const ORX_FORMAT *> all_formats();
// Whether text ends with a non-empty suffix.
bool ends_with(const std::string &text, const char *suffix);

// An image open for reading or writing.  A written file appears under its
// name only when close() succeeds; an image that goes out of scope without
// it leaves the old file, if any, untouched (see SafeOutput).
class Image {
 public:
  Image() = default;
  ~Image() { discard(); }
  Image(const Image &) = delete;
  Image &operator=(const Image &) = delete;

  // Takes o in place of the open image, which o now owns (a merged field
  // handle closes the handle it was made from).
  void adopt(ORX_OBJECT *o) { object_ = o; }

  // Opens path for reading; type is a format key or "" to let the library
  // choose.  False after reporting, with a hint to name the format when no
  // format recognises the file.
  // settings as for open_write, for the format that reads the file.
  bool open_read(const std::string &path, const std::string &type,
                 const NamedSettings &settings = {});
  // Opens path for writing with the descriptors, texts and attributes of
  // like.  Without a type, some format's extension must end path: the
  // library would otherwise fall back to its default format whatever the
  // name says.  settings name capabilities of the format and the choice
  // asked for in each ({"pixel type", "float"}); ones the format does not
  // offer are ignored.
  bool open_write(const std::string &path, const std::string &type, const ORX_INFO &like,
                  const NamedSettings &settings = {});

  ORX_OBJECT *get() const { return object_; }
  const ORX_INFO &info() const { return object_->info; }
  int images() const { return object_->info.image_count; }
  const ORX_IFD &ifd(int i) const { return object_->info.images[i]; }

  // Reads row y of image i; the rows (one per channel) belong to the format.
  bool read_row(int i, int32_t y, void ***rows);
  // Writes row y of image i from the caller's rows.
  bool write_row(int i, int32_t y, void **rows);
  // Closes the file and, when writing, puts it in place; false when
  // completing it failed.
  bool close();
  // Closes without keeping what was written.
  void discard();

 private:
  ORX_OBJECT *object_ = nullptr;
  std::unique_ptr<SafeOutput> output_;  // when writing
  // The settings the open object read, alive as long as it is.
  SettingArray settings_;
};

// Width, height and channel count of a descriptor's window.
int width_of(const ORX_IFD &ifd);
int height_of(const ORX_IFD &ifd);
int channels_of(const ORX_IFD &ifd);
// The group of channel c (image, matte, auxiliary, in that order).
const ORX_CHANNELS &group_of(const ORX_IFD &ifd, int c);
// A channel's name for people: "red", "green", "blue" for the colour
// channels of an "rgb" group, else "image 0", "matte 0", "aux 1"...
std::string channel_label(const ORX_IFD &ifd, int c);
// Rows of one line for every channel, each wide enough for width samples of
// any type, for a line converted with ORX_convert_row.
class RowBuffers {
 public:
  RowBuffers(int channels, int width);
  void *row(int c) { return pointers_[static_cast<std::size_t>(c)]; }
  // Every channel's row, then a null entry, as ORX_scan_write takes them.
  void **rows() { return pointers_.data(); }
  // Row c as doubles (after converting into it with to_double()).
  const double *doubles(int c) const { return static_cast<const double *>(pointers_[static_cast<std::size_t>(c)]); }

 private:
  std::vector<std::vector<double>> storage_;
  std::vector<void *> pointers_;
};
// The description of a row of doubles, for ORX_convert_row.
const ORX_CHANNELS &double_channel();

// "integer", "float" or "double".
const char *type_name(int32_t type);

}  // namespace orx::tool
