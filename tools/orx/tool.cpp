#include "tool.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "orx/attributes.h"
#include "orx/capability.h"
#include "orx/registry.h"
#include "orx/str.h"

namespace orx::tool {
namespace {

// Each thread keeps its own newest error and hint: frames of a sequence run
// on their own threads and each names its own failure.
thread_local std::string g_last_error;
thread_local std::string g_hint;  // a suggestion complain prints after the failure
thread_local int t_frame = 0;
thread_local bool t_in_frame = false;
bool g_verbose = false;
bool g_echo_errors = false;
thread_local std::string g_shown_error;  // the last error said as it happened

std::mutex g_output;      // one line at a time on standard error
bool g_status_shown = false;  // a status line waits to be cleared

// Errors are kept for the failing command to name with its file (and shown
// at once only when verbose); warnings always show, notes when verbose.
int report(const char *, int severity, const char *message, ERR_RECORD *, intptr_t) {
  if (message == nullptr) message = "";
  const bool show = severity == ERR_WARNING || g_verbose || (g_echo_errors && severity >= ERR_ERROR);
  if (severity >= ERR_ERROR) {
    g_last_error = message;
    g_shown_error = show ? message : "";
  }
  if (show) say(std::string(severity == ERR_WARNING ? "warning: " : "") + message);
  return severity == ERR_FATAL ? 1 : 0;  // a fatal report still ends the process
}

// A copy of a descriptor group's name, or NULL.
void copy_name(ORX_CHANNELS &g) { g.name = g.name != nullptr ? STR_save(g.name) : nullptr; }

// "rla (.rla), pipe (.pipe), ..." for messages.
std::string format_list() {
  std::string list;
  for (const ORX_FORMAT *f : all_formats()) {
    if (!list.empty()) list += ", ";
    list += std::string(f->key != nullptr ? f->key : "?") + " (" +
            (f->extension != nullptr ? f->extension : "") + ")";
  }
  return list;
}

// The extension of a file name ("" when it has none).
std::string extension_of(const std::string &path) {
  const std::size_t slash = path.find_last_of("/|> ");
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  return path.substr(dot);
}

// Library messages about the file name the tool is writing under, told with
// the name the user gave.
void name_final(const SafeOutput &output) {
  const std::string &from = output.path();
  if (from == output.final_path()) return;
  for (std::size_t at = g_last_error.find(from); at != std::string::npos;
       at = g_last_error.find(from, at + 1))
    g_last_error.replace(at, from.size(), output.final_path());
}

}  // namespace

bool ends_with(const std::string &text, const char *suffix) {
  const std::size_t n = suffix != nullptr ? std::strlen(suffix) : 0;
  return n > 0 && text.size() >= n && text.compare(text.size() - n, n, suffix) == 0;
}

void say(const std::string &text) {
  std::string line = "orx: ";
  if (t_in_frame) line += "frame " + std::to_string(t_frame) + ": ";
  line += text;
  line += '\n';
  std::lock_guard<std::mutex> hold(g_output);
  if (g_status_shown) std::fprintf(stderr, "\r%70s\r", "");
  g_status_shown = false;
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

void show_status(const std::string &text) {
  std::lock_guard<std::mutex> hold(g_output);
  std::fprintf(stderr, "\r%70s\r%s", "", text.c_str());
  std::fflush(stderr);
  g_status_shown = !text.empty();
}

FrameScope::FrameScope(int frame) {
  t_frame = frame;
  t_in_frame = true;
}

FrameScope::~FrameScope() { t_in_frame = false; }

bool in_frame() { return t_in_frame; }

std::mutex &library_state_lock() {
  static std::mutex lock;
  return lock;
}

void install_reporting(bool verbose) {
  g_verbose = verbose;
  if (verbose) {
    ERR_unmask_s(ERR_DEBUG);
    ERR_unmask_s(ERR_INFORMATION);
  }
  ERR_dcl_handler(nullptr, report, 0);
}

const std::string &last_error() { return g_last_error; }

void forget_error() {
  g_last_error.clear();
  g_shown_error.clear();
  g_hint.clear();
}

void echo_errors(bool on) { g_echo_errors = on; }

int complain(const std::string &what, const std::string &reason) {
  // Without a report of its own, the reason is what this thread's last
  // library call left (another thread's failure never shows here).
  std::string why = !reason.empty()          ? reason
                    : !g_last_error.empty()  ? g_last_error
                    : ORX_last_status() != 0 ? ORX_last_message()
                                             : "failed";
  // Most library messages name the file already; one shown as it happened
  // (verbose) is not said twice.
  if (why.compare(0, what.size(), what) == 0 || why.find(what) != std::string::npos) {
    if (why != g_shown_error) say(why);
  } else {
    say(what + ": " + why);
  }
  if (!g_hint.empty()) say(g_hint);
  g_hint.clear();
  return kFailed;
}

std::vector<const ORX_FORMAT *> all_formats() {
  // Formats are all registered when the library starts, so the list is made
  // once (walking it moves the registry's one cursor, which threads would
  // fight over).
  static const std::vector<const ORX_FORMAT *> formats = [] {
    std::vector<const ORX_FORMAT *> list;
    ORX_init(nullptr, nullptr);  // already started: rewinds ORX_info
    while (const ORX_FORMAT *f = ORX_info()) list.push_back(f);
    for (const char *key : {"rla", "pipe", "mem"})
      if (const ORX_FORMAT *f = ORX_find(key)) list.push_back(f);
    return list;
  }();
  return formats;
}

bool Image::open_read(const std::string &path, const std::string &type,
                      const std::vector<std::pair<std::string, std::string>> &settings) {
  ORX_INFO request;
  ORX_info_init(&request);
  request.handle = STR_save(path.c_str());
  // A name no format's extension claims (x.ppm, x.pic) is read by the
  // format that recognises its contents, rather than the default one.
  const ORX_FORMAT *by_contents = reading_format(path, type);
  bool claimed = !type.empty();
  for (const ORX_FORMAT *f : all_formats()) claimed = claimed || ends_with(path, f->extension);
  request.type = !type.empty()                     ? STR_save(type.c_str())
                 : !claimed && by_contents != nullptr ? STR_save(by_contents->key)
                                                      : nullptr;
  request.full_path = 1;
  request.settings = settings_.resolve(by_contents, settings);
  g_last_error.clear();
  object_ = ORX_open(&request, "r");
  ORX_info_cleanup(&request, 1);
  // The open's own reason, taken before the probes below make calls of
  // their own; when the open reported nothing, the hint is the reason.
  const bool reported = !g_last_error.empty();
  const std::string status_text = ORX_last_status() != 0 ? ORX_last_message() : "";
  if (object_ == nullptr && type.empty() && !path.empty() && path != "-" && path[0] != '|') {
    // Nothing claimed the name and no format recognised the contents: the
    // library tried its default format, whose complaint says little.
    int32_t known = 0;
    const char *found = ORX_get_file_type(path.c_str(), nullptr, &known);
    struct stat s;
    if (!claimed && (found == nullptr || std::strcmp(found, "__none_") == 0) &&
        stat(path.c_str(), &s) == 0)
      g_hint = "no format recognises " + path + "; name its format with --type KEY (see \"orx formats\")";
  }
  if (object_ == nullptr && !reported) {
    g_last_error = g_hint.empty() ? status_text : g_hint;
    if (!g_hint.empty()) g_hint.clear();
  }
  return object_ != nullptr;
}

bool Image::open_write(const std::string &path, const std::string &type, const ORX_INFO &like,
                       const std::vector<std::pair<std::string, std::string>> &settings) {
  if (type.empty()) {
    bool claimed = false;
    for (const ORX_FORMAT *f : all_formats()) claimed = claimed || ends_with(path, f->extension);
    if (!claimed) {
      const std::string ext = extension_of(path);
      g_last_error = (ext.empty() ? "the name has no extension that names a format"
                                  : "no format claims the extension \"" + ext + "\"") +
                     "; choose one with --type KEY: " + format_list();
      return false;
    }
  }
  output_ = std::make_unique<SafeOutput>(path);
  ORX_INFO request = like;  // texts, descriptors and attributes are copied below
  request.valid = ORX_INFO_VALID;
  request.reserved[0] = 0;
  ORX_attr_copy(&request, 0, &like, ORX_ATTR_ANY_IMAGE);
  for (char **s : {&request.name, &request.desc, &request.program, &request.machine,
                   &request.user, &request.date, &request.time, &request.filter,
                   &request.compression})
    *s = *s != nullptr ? STR_save(*s) : nullptr;
  request.handle = STR_save(output_->path().c_str());
  request.type = type.empty() ? nullptr : STR_save(type.c_str());
  request.extension = nullptr;
  request.settings = settings_.resolve(writing_format(path, type), settings);
  request.full_path = 1;
  const auto n = static_cast<uint32_t>(like.image_count > 0 ? like.image_count : 0);
  request.images = static_cast<ORX_IFD *>(ERR_malloc(n * sizeof(ORX_IFD)));
  for (uint32_t i = 0; i < n && request.images != nullptr; ++i) {
    ORX_IFD &ifd = request.images[i];
    ifd = like.images[i];  // the aspect is lent: the open copies it
    ifd.curve.curves = nullptr;
    ifd.curve.kind = ORX_CURVE_PARAMETRIC;
    copy_name(ifd.image);
    copy_name(ifd.matte);
    copy_name(ifd.aux);
    copy_name(ifd.index);
  }
  g_last_error.clear();
  object_ = request.images != nullptr ? ORX_open(&request, "w") : nullptr;
  ORX_info_cleanup(&request, 1);
  if (object_ == nullptr) name_final(*output_);
  return object_ != nullptr;
}

// Images after the first are reached through their own private data (the
// library's scan calls address the first image of a file).
bool Image::read_row(int i, int32_t y, void ***rows) {
  if (i == 0) return ORX_scan_read(object_, y, rows) == 0;
  return object_->scan(object_->private_cell[i], y, rows) == 0;
}

bool Image::write_row(int i, int32_t y, void **rows) {
  const bool ok = i == 0 ? ORX_scan_write(object_, y, rows) == 0
                         : object_->scan(object_->private_cell[i], y, rows) == 0;
  if (!ok && output_ != nullptr) name_final(*output_);
  return ok;
}

bool Image::close() {
  if (object_ == nullptr) return true;
  ORX_OBJECT *o = object_;
  object_ = nullptr;
  bool ok = ORX_close(o) == 0;
  if (output_ != nullptr) {
    if (!ok) name_final(*output_);
    if (ok && !output_->commit()) {
      g_last_error = "cannot put the written file in place as " + output_->final_path() + ": " +
                     std::strerror(errno);
      ok = false;
    }
    output_.reset();
  }
  return ok;
}

void Image::discard() {
  if (object_ != nullptr) ORX_close(object_);
  object_ = nullptr;
  output_.reset();
}

int width_of(const ORX_IFD &ifd) { return ifd.window.right - ifd.window.left + 1; }
int height_of(const ORX_IFD &ifd) { return ifd.window.top - ifd.window.bottom + 1; }
int channels_of(const ORX_IFD &ifd) {
  return ifd.image.count + ifd.matte.count + ifd.aux.count;
}

const ORX_CHANNELS &group_of(const ORX_IFD &ifd, int c) {
  if (c < ifd.image.count) return ifd.image;
  if (c < ifd.image.count + ifd.matte.count) return ifd.matte;
  return ifd.aux;
}

std::string channel_label(const ORX_IFD &ifd, int c) {
  static const char *const kRgb[] = {"red", "green", "blue"};
  if (c < ifd.image.count) {
    const bool rgb = ifd.image.name != nullptr && std::strcmp(ifd.image.name, "rgb") == 0;
    return rgb && c < 3 ? kRgb[c] : "image " + std::to_string(c);
  }
  c -= ifd.image.count;
  if (c < ifd.matte.count) return "matte " + std::to_string(c);
  return "aux " + std::to_string(c - ifd.matte.count);
}

RowBuffers::RowBuffers(int channels, int width)
    : storage_(static_cast<std::size_t>(channels), std::vector<double>(static_cast<std::size_t>(width))) {
  for (auto &row : storage_) pointers_.push_back(row.data());
  pointers_.push_back(nullptr);
}

const ORX_CHANNELS &double_channel() {
  static const ORX_CHANNELS kDouble{nullptr, 1, ORX_C_DOUBLE, 64, 0};
  return kDouble;
}

const char *type_name(int32_t type) {
  switch (type) {
    case ORX_C_INTEGER: return "integer";
    case ORX_C_FLOAT: return "float";
    case ORX_C_DOUBLE: return "double";
    default: return "unknown";
  }
}

}  // namespace orx::tool
