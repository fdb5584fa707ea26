#include "safe_output.hpp"

#include <limits.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace orx::tool {
namespace {

// Pending temporary names, kept in fixed storage so that the signal handler
// may read them.  Threads writing frames claim slots at once: a slot is
// taken with its "taken" flag and its name is read only while "ready" (both
// lock-free, so the handler may look at them).
constexpr int kSlots = kMaxOutputsAtOnce;
struct Slot {
  std::atomic<bool> taken{false};
  std::atomic<bool> ready{false};
  char name[PATH_MAX];
};
Slot g_pending[kSlots];

int claim(const std::string &path) {
  if (path.size() >= PATH_MAX) return -1;
  for (int i = 0; i < kSlots; ++i) {
    bool expected = false;
    if (!g_pending[i].taken.compare_exchange_strong(expected, true)) continue;
    std::memcpy(g_pending[i].name, path.c_str(), path.size() + 1);
    g_pending[i].ready.store(true);
    return i;
  }
  return -1;
}

void release(int slot) {
  if (slot < 0) return;
  g_pending[slot].ready.store(false);
  g_pending[slot].taken.store(false);
}

void on_interrupt(int signal_number) {
  for (auto &slot : g_pending)
    if (slot.ready.load()) unlink(slot.name);
  ::signal(signal_number, SIG_DFL);
  ::raise(signal_number);
}

// The file a name stands for: the target of a symbolic link, so that the
// link is written through rather than replaced.
std::string resolved(const std::string &path) {
  char buffer[PATH_MAX];
  struct stat s;
  if (lstat(path.c_str(), &s) == 0 && S_ISLNK(s.st_mode) && realpath(path.c_str(), buffer))
    return buffer;
  return path;
}

}  // namespace

SafeOutput::SafeOutput(const std::string &final_path) : final_(final_path), path_(final_path) {
  if (final_.empty() || final_ == "-" || final_[0] == '|') return;
  const std::string target = resolved(final_);
  struct stat s;
  if (stat(target.c_str(), &s) == 0 && !S_ISREG(s.st_mode)) return;
  final_ = target;
  const std::size_t slash = target.rfind('/');
  const std::string dir = slash == std::string::npos ? "" : target.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
  path_ = dir + ".orx-" + std::to_string(getpid()) + "-" + base;
  slot_ = claim(path_);
}

SafeOutput::~SafeOutput() {
  if (path_ != final_) unlink(path_.c_str());
  release(slot_);
}

bool SafeOutput::commit() {
  if (path_ == final_) return true;
  struct stat old;
  if (stat(final_.c_str(), &old) == 0) chmod(path_.c_str(), old.st_mode & 07777);
  if (std::rename(path_.c_str(), final_.c_str()) != 0) return false;  // the destructor removes it
  path_ = final_;
  release(slot_);
  slot_ = -1;
  return true;
}

void remove_temporaries_on_interrupt() {
  for (int s : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction old;
    // A signal the caller ignores (nohup, a background job) stays ignored.
    if (sigaction(s, nullptr, &old) == 0 && old.sa_handler != SIG_IGN) ::signal(s, on_interrupt);
  }
}

}  // namespace orx::tool
