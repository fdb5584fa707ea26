// POSIX implementation of the platform services.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/platform.hpp"

namespace orx::platform {

static_assert(sizeof(pthread_mutex_t) <= 64, "Mutex storage too small");

namespace {
pthread_mutex_t *native(unsigned char *storage) {
  return std::launder(reinterpret_cast<pthread_mutex_t *>(storage));
}

void copy_out(char *buf, std::size_t size, const char *text) {
  if (size == 0) return;
  std::size_t n = std::strlen(text);
  if (n >= size) n = size - 1;
  std::memcpy(buf, text, n);
  buf[n] = '\0';
}
}  // namespace

Mutex::Mutex(Kind kind) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  if (kind == kRecursive) pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(new (storage_) pthread_mutex_t, &attributes);
  pthread_mutexattr_destroy(&attributes);
}
Mutex::~Mutex() { pthread_mutex_destroy(native(storage_)); }
void Mutex::lock() { pthread_mutex_lock(native(storage_)); }
void Mutex::unlock() { pthread_mutex_unlock(native(storage_)); }

void *module_symbol(void *module, const char *name) {
  if (module == nullptr || name == nullptr) return nullptr;
  return dlsym(module, name);
}

bool host_name(char *buf, std::size_t size) {
  if (size == 0) return false;
  if (gethostname(buf, size) != 0) {
    buf[0] = '\0';
    return false;
  }
  buf[size - 1] = '\0';
  return true;
}

bool user_name(char *buf, std::size_t size) {
  if (size == 0) return false;
  buf[0] = '\0';
  char scratch[4096];
  passwd pw{};
  passwd *found = nullptr;
  if (getpwuid_r(geteuid(), &pw, scratch, sizeof scratch, &found) == 0 && found != nullptr &&
      found->pw_name != nullptr) {
    copy_out(buf, size, found->pw_name);
    return true;
  }
  if (const char *env = std::getenv("USER")) {
    copy_out(buf, size, env);
    return true;
  }
  return false;
}

std::int64_t wall_seconds() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<std::int64_t>(ts.tv_sec);
}

bool local_time(std::int64_t seconds, LocalTime *out) {
  time_t t = static_cast<time_t>(seconds);
  tm parts{};
  if (localtime_r(&t, &parts) == nullptr) return false;
  *out = LocalTime{parts.tm_year, parts.tm_mon, parts.tm_mday,
                   parts.tm_hour, parts.tm_min, parts.tm_sec};
  return true;
}

std::size_t format_local_time(std::int64_t seconds, const char *format, char *buf,
                              std::size_t size) {
  if (size == 0) return 0;
  buf[0] = '\0';
  tzset();  // deliberate: honour a TZ changed since the last call
  time_t t = static_cast<time_t>(seconds);
  tm parts{};
  if (localtime_r(&t, &parts) == nullptr) return 0;
  std::size_t n = strftime(buf, size, format, &parts);
  if (n == 0) buf[0] = '\0';
  return n;
}

double tick_seconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

int file_status(const char *path, FileStatus *out) {
  struct stat st{};
  if (stat(path, &st) != 0) return errno;
  out->size = static_cast<std::int64_t>(st.st_size);
  out->modified = static_cast<std::int64_t>(st.st_mtime);
  out->directory = S_ISDIR(st.st_mode);
  return 0;
}

bool file_exists(const char *path) { return access(path, F_OK) == 0; }

int remove_file(const char *path) { return unlink(path) == 0 ? 0 : errno; }

std::FILE *create_temp_file(char *name_template) {
  // open with O_EXCL on names of our own rather than mkstemp, so that the
  // file gets the permissions the umask gives any new file (mkstemp's are
  // private) without touching the process-wide umask.
  static const char kDigits[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  const std::size_t length = std::strlen(name_template);
  if (length < 6) {
    errno = EINVAL;
    return nullptr;
  }
  char *x = name_template + length - 6;
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    unsigned long long v = static_cast<unsigned long long>(now.tv_nsec) * 2654435761u ^
                           static_cast<unsigned long long>(getpid()) << 20 ^ counter++ * 40503u;
    for (int i = 0; i < 6; ++i, v /= 36) x[i] = kDigits[v % 36];
    const int fd = open(name_template, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      return nullptr;
    }
    std::FILE *stream = fdopen(fd, "wb");
    if (stream == nullptr) {
      const int error = errno;
      close(fd);
      unlink(name_template);
      errno = error;
    }
    return stream;
  }
  errno = EEXIST;
  return nullptr;
}

int rename_file(const char *from, const char *to) {
  return std::rename(from, to) == 0 ? 0 : errno;
}

int remove_regular_file(const char *path) {
  struct stat st{};
  if (lstat(path, &st) != 0) return errno;
  if (!S_ISREG(st.st_mode)) return EPERM;
  return unlink(path) == 0 ? 0 : errno;
}

std::FILE *create_file(const char *path, CreatedFile *file) {
  *file = CreatedFile{};
  constexpr int kWrite = O_WRONLY | O_CLOEXEC;
  int fd = open(path, kWrite | O_CREAT | O_EXCL, 0666);
  const bool created = fd >= 0;
  if (fd < 0 && errno == EEXIST) fd = open(path, kWrite | O_CREAT | O_TRUNC, 0666);
  if (fd < 0) return nullptr;
  struct stat st{};
  if (created && fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    file->created = true;
    file->device = static_cast<std::uint64_t>(st.st_dev);
    file->inode = static_cast<std::uint64_t>(st.st_ino);
  }
  std::FILE *stream = fdopen(fd, "wb");
  if (stream == nullptr) {
    const int error = errno;
    close(fd);
    remove_created_file(path, *file);
    errno = error;
  }
  return stream;
}

int remove_created_file(const char *path, const CreatedFile &file) {
  struct stat st{};
  if (!file.created || path == nullptr) return EPERM;
  if (lstat(path, &st) != 0) return errno;
  if (!S_ISREG(st.st_mode) || static_cast<std::uint64_t>(st.st_dev) != file.device ||
      static_cast<std::uint64_t>(st.st_ino) != file.inode)
    return EPERM;
  return unlink(path) == 0 ? 0 : errno;
}

std::FILE *open_command(const char *command, const char *mode) {
  std::fflush(nullptr);  // output buffered so far goes before the command's
  return popen(command, mode);
}

int close_command(std::FILE *stream) {
  const int status = pclose(stream);
  return status == 0 ? 0 : -1;
}

const char *get_env(const char *name) { return std::getenv(name); }

int put_env(char *assignment) { return putenv(assignment); }

void show_fatal_message(const char *, const char *) {}

}  // namespace orx::platform
