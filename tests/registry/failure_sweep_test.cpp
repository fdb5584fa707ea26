// Every allocation a host can reach through the core, failed in turn: each
// failure gives "No more internal memory", -10, no leak (under LeakSanitizer)
// and no file left behind.
#include <filesystem>
#include <string>
#include <vector>

#include "orx/region.h"
#include "registry/registry_fixture.hpp"
#include "support/images.hpp"

namespace {

using namespace orx::test;
using FailureSweep = RegistryTest;

constexpr int32_t kWidth = 6;
constexpr int32_t kHeight = 5;

ORX_IFD image() { return rgba(kWidth, kHeight, ORX_C_INTEGER, 8); }

// The first failing status of a run of calls.
struct FirstFailure {
  int status = 0;
  int operator()(int s) {
    if (status == 0) status = s;
    return s;
  }
};

// Writes the pattern through rows of the test's own (not the library's) memory.
int write_all(ORX_INFO &info) {
  ORX_OBJECT *object = ORX_open(&info, "w");
  if (object == nullptr) return orx__err;
  return write_lines(object, pattern8);
}

// How read_all goes through an image: a stream reads its lines once, upwards.
enum class Access { kStream, kRandom };

// Opens and reads every line; unless the image is a stream, seeks back (a
// reopen for formats that read in order) and reads a region; then closes.
int read_all(const char *type, const std::string &handle, Access access) {
  const bool stream = access == Access::kStream;
  ORX_OBJECT *object = open_image(handle, type);
  if (object == nullptr) return orx__err;
  FirstFailure first;
  for (int32_t i = 0; i < kHeight && first.status == 0; ++i) {
    const int32_t y = stream ? i : kHeight - 1 - i;
    void **rows = nullptr;
    if (first(ORX_scan_read(object, y, &rows)) == 0 &&
        static_cast<uint8_t *>(rows[1])[2] != static_cast<uint8_t>(pattern(2, y, 1)))
      first(-1000);
  }
  if (!stream && first.status == 0 && first(ORX_seek(&object, kHeight - 1)) != 0 &&
      object == nullptr)
    return first.status;
  std::vector<uint8_t> region(static_cast<std::size_t>(kWidth * kHeight * 4));
  if (!stream && first.status == 0)
    first(ORX_get_region(&object, 0, kWidth - 1, 0, kHeight - 1, region.data(), -1,
                         ORX_REGION_RGBA8));
  if (object != nullptr) first(ORX_close(object));
  return first.status;
}

TEST_F(FailureSweep, RlaWrittenAndReadThroughOpenScanSeekRegionAndClose) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  TempDir dir;
  const std::string path = dir.file("sweep.rla");
  Request request(nullptr, path, image());
  const auto no_file = [&] { return !std::filesystem::exists(path); };
  EXPECT_GT(for_each_reported_allocation_failure([&] { return write_all(request.info); }, no_file),
            3);
  EXPECT_GT(for_each_reported_allocation_failure([&] { return read_all(nullptr, path, Access::kRandom); }),
            10);
}

TEST_F(FailureSweep, PipeAndMemFormats) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  TempDir dir;
  const std::string path = dir.file("sweep.pipe");
  Request pipe("pipe", path, image());
  const auto no_file = [&] { return !std::filesystem::exists(path); };
  for_each_reported_allocation_failure([&] { return write_all(pipe.info); }, no_file);
  for_each_reported_allocation_failure([&] { return read_all("pipe", path, Access::kStream); });

  Request mem("mem", "sweep", image());
  for_each_reported_allocation_failure([&] { return write_all(mem.info); });
  for_each_reported_allocation_failure([&] { return read_all("mem", "sweep", Access::kRandom); });
}

TEST_F(FailureSweep, FileTypeAndOpenStartingTheRegistry) {
  TempDir dir;
  const std::string path = dir.file("type.rla");
  {
    Request request("rla", path, image());
    ASSERT_EQ(write_all(request.info), 0);
  }
  // The registry comes up lazily inside the call, so its allocations fail too.
  const long type_allocations = for_each_reported_allocation_failure([&] {
    ORX_exit();
    int32_t known = 0;
    const char *key = ORX_get_file_type(path.c_str(), nullptr, &known);
    if (key == nullptr) return orx__err;
    return std::string(key) == "rla" ? 0 : -1000;
  });
  EXPECT_GT(type_allocations, 5);
  for_each_reported_allocation_failure([&] {
    ORX_exit();
    return read_all(nullptr, path, Access::kRandom);
  });
}

}  // namespace
