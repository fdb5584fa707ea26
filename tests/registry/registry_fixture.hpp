// Shared pieces of the registry tests: the test plug-ins loaded with dlopen
// and handed to ORX_init through an enumerator, and small image helpers.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "orx/err.h"
#include "orx/registry.h"
#include "orx/str.h"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace orx::test {

// Loads test plug-in modules and yields them, in order, to ORX_init.
class PluginSet {
 public:
  explicit PluginSet(std::vector<std::string> names) : names_(std::move(names)) {
    for (const std::string &n : names_) {
      const std::string path = std::string(ORX_TEST_PLUGIN_DIR) + "/" + n + ".so";
      void *h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
      EXPECT_NE(h, nullptr) << dlerror();
      handles_.push_back(h);
    }
  }
  ~PluginSet() {
    ORX_exit();  // the registry calls into the modules until then
    for (void *h : handles_)
      if (h != nullptr) dlclose(h);
  }
  PluginSet(const PluginSet &) = delete;
  PluginSet &operator=(const PluginSet &) = delete;

  int init() {
    current_ = this;
    next_ = 0;
    return ORX_init(nullptr, enumerate);
  }
  void *handle(std::size_t i) const { return handles_[i]; }
  int counter(std::size_t i, const char *name) const {
    auto fn = reinterpret_cast<int (*)()>(dlsym(handles_[i], name));
    return fn != nullptr ? fn() : -1;
  }

 private:
  static uint8_t enumerate(void **module, const char **name) {
    if (next_ >= current_->handles_.size()) return 0;
    *module = current_->handles_[next_];
    *name = current_->names_[next_].c_str();
    ++next_;
    return 1;
  }
  static inline PluginSet *current_ = nullptr;
  static inline std::size_t next_ = 0;
  std::vector<std::string> names_;
  std::vector<void *> handles_;
};

// Every test starts and ends with the registry down.
class RegistryTest : public CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    ORX_exit();
  }
  void TearDown() override {
    ORX_exit();
    CleanErrors::TearDown();
  }
};

// One image of width x height with 3 image channels and a matte, of the
// given sample type and bits.
inline ORX_IFD rgba(int32_t width, int32_t height, int32_t type, int32_t bits) {
  ORX_IFD ifd;
  orx__init_ifd(&ifd);
  ifd.window = {0, width - 1, 0, height - 1};
  ifd.active = ifd.window;
  ifd.image = {nullptr, 3, type, bits, 0};
  ifd.matte = {nullptr, 1, type, bits, 0};
  return ifd;
}

// A request for handle through type (by the name when null), with its
// strings and the description of its one image, when given, in the library's
// memory: made before a failure sweep, it leaves only the call's own
// allocations to fail.
struct Request {
  ORX_INFO info;
  Request(const char *type, const std::string &handle) {
    ORX_info_init(&info);
    info.type = type != nullptr ? STR_save(type) : nullptr;
    info.handle = STR_save(handle.c_str());
    info.full_path = 1;
  }
  Request(const char *type, const std::string &handle, const ORX_IFD &image)
      : Request(type, handle) {
    info.image_count = 1;
    info.images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
    info.images[0] = image;
  }
  ~Request() { ORX_info_cleanup(&info, 1); }
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;
};

// Sample c of pixel x on line y, as the tests write it.
inline uint16_t pattern(int32_t x, int32_t y, int c) {
  return static_cast<uint16_t>(x * 7 + y * 131 + c * 1009);
}

// A w x h image of 8-bit pattern samples (3 colours and a matte) written
// under handle through type (by the name when null).
inline void write_pattern(const char *type, const std::string &handle, int32_t w = 4, int32_t h = 3,
                          int32_t field = 0) {
  ORX_IFD d = rgba(w, h, ORX_C_INTEGER, 8);
  d.field = field;
  write_image(handle, d, [](int c, int32_t x, int32_t y) { return uint8_t(pattern(x, y, c)); }, type);
}

}  // namespace orx::test
