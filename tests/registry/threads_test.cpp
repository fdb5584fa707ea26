#include <string>
#include <thread>
#include <vector>

#include "registry/registry_fixture.hpp"

namespace {

using namespace orx::test;
using Threads = RegistryTest;

constexpr int32_t kSide = 8;

std::string handle_of(int n) { return "thread" + std::to_string(n) + ".mem"; }

// Writes an image whose every sample of line y is y + n.
bool write(int n) {
  ORX_INFO info;
  ORX_info_init(&info);
  const std::string handle = handle_of(n);
  info.handle = const_cast<char *>(handle.c_str());
  describe(&info, kSide, kSide, ORX_C_INTEGER, 8);
  ORX_OBJECT *object = ORX_open(&info, "w");
  info.handle = nullptr;
  ORX_info_cleanup(&info, 1);
  if (object == nullptr) return false;
  void **rows = orx__chan_alloc(&object->info.images[0], kSide, "test");
  bool ok = true;
  for (int32_t y = 0; y < kSide; ++y) {
    for (int c = 0; c < 4; ++c)
      for (int x = 0; x < kSide; ++x)
        static_cast<uint8_t *>(rows[c])[x] = static_cast<uint8_t>(y + n);
    ok = ok && ORX_scan_write(object, y, rows) == 0;
  }
  ORX_chan_free(rows);
  return ORX_close(object) == 0 && ok;
}

bool read(int n) {
  ORX_INFO info;
  ORX_info_init(&info);
  const std::string handle = handle_of(n);
  info.handle = const_cast<char *>(handle.c_str());
  ORX_OBJECT *object = ORX_open(&info, "r");
  if (object == nullptr) return false;
  bool ok = true;
  for (int32_t y = kSide - 1; y >= 0; --y) {
    void **rows = nullptr;
    ok = ok && ORX_scan_read(object, y, &rows) == 0 &&
         static_cast<uint8_t *>(rows[2])[kSide - 1] == static_cast<uint8_t>(y + n);
  }
  return ORX_close(object) == 0 && ok;
}

TEST_F(Threads, ObjectsOnDifferentThreadsReadWhileOthersOpenAndClose) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  constexpr int kReaders = 4;
  for (int n = 0; n < kReaders; ++n) ASSERT_TRUE(write(n));
  std::vector<std::thread> threads;
  std::vector<int> failures(kReaders + 1, 0);
  for (int n = 0; n < kReaders; ++n)
    threads.emplace_back([n, &failures] {
      for (int round = 0; round < 30; ++round) failures[n] += read(n) ? 0 : 1;
    });
  // One more thread keeps replacing an image of its own.
  threads.emplace_back([&failures] {
    for (int round = 0; round < 30; ++round)
      failures[kReaders] += write(kReaders) && read(kReaders) ? 0 : 1;
  });
  for (std::thread &t : threads) t.join();
  for (int f : failures) EXPECT_EQ(f, 0);
}

}  // namespace
