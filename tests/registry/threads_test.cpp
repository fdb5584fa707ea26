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

namespace {

using namespace orx::test;
using ThreadStress = RegistryTest;

constexpr int kReaders = 3;
constexpr int kRounds = 12;
constexpr int32_t kRlaSide = 16;

// Writes a kRlaSide-square image whose samples of line y are y + n.
bool write_rla(const std::string &path, int n) {
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = const_cast<char *>(path.c_str());
  info.full_path = 1;
  describe(&info, kRlaSide, kRlaSide, ORX_C_INTEGER, 8);
  ORX_OBJECT *object = ORX_open(&info, "w");
  info.handle = nullptr;
  ORX_info_cleanup(&info, 1);
  if (object == nullptr) return false;
  std::vector<std::vector<uint8_t>> rows(4, std::vector<uint8_t>(kRlaSide));
  std::vector<void *> pointers{rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data(),
                               nullptr};
  bool ok = true;
  for (int32_t y = 0; y < kRlaSide; ++y) {
    for (auto &row : rows) std::fill(row.begin(), row.end(), static_cast<uint8_t>(y + n));
    ok = ORX_scan_write(object, y, pointers.data()) == 0 && ok;
  }
  return ORX_close(object) == 0 && ok;
}

// Reads every line top down, seeks back to the top (a reopen for RLA) and
// reads it again, then closes; true when every sample is what write_rla put.
bool read_rla(const std::string &path, int n) {
  ORX_OBJECT *object = open_image(path, nullptr);
  if (object == nullptr) return false;
  bool ok = true;
  void **rows = nullptr;
  for (int32_t y = kRlaSide - 1; y >= 0; --y)
    ok = ok && ORX_scan_read(object, y, &rows) == 0 &&
         static_cast<uint8_t *>(rows[3])[kRlaSide - 1] == static_cast<uint8_t>(y + n);
  ok = ok && ORX_seek(&object, kRlaSide - 1) == 0 && object != nullptr &&
       ORX_scan_read(object, kRlaSide - 1, &rows) == 0 &&
       static_cast<uint8_t *>(rows[0])[0] == static_cast<uint8_t>(kRlaSide - 1 + n);
  return object != nullptr && ORX_close(object) == 0 && ok;
}

// The test plug-in's image: line y holds y + 1 in every sample.
bool read_plugin(int n) {
  ORX_OBJECT *object = open_image("stress" + std::to_string(n) + ".tgd", nullptr);
  if (object == nullptr) return false;
  bool ok = true;
  for (int32_t y = 3; y >= 0; --y) {
    void **rows = nullptr;
    ok = ok && ORX_scan_read(object, y, &rows) == 0 &&
         static_cast<uint8_t *>(rows[2])[1] == static_cast<uint8_t>(y + 1);
  }
  return ORX_close(object) == 0 && ok;
}

// Readers each open, read, seek and close their own RLA, "mem" and plug-in
// images while a writer replaces an RLA and a "mem" image of its own and
// asks for file types; the library lock and the objects' locks keep them
// apart.  Run under ThreadSanitizer by the tsan preset.
TEST_F(ThreadStress, ReadersAndAWriterOnEveryKindOfImage) {
  PluginSet plugins({"plugin_good"});
  ASSERT_EQ(plugins.init(), 0);
  TempDir dir;
  std::vector<std::string> files;
  for (int n = 0; n <= kReaders; ++n) {
    files.push_back(dir.file("stress" + std::to_string(n) + ".rla"));
    ASSERT_TRUE(write_rla(files.back(), n));
    ASSERT_TRUE(write(n));
  }
  std::vector<int> failures(kReaders + 1, 0);
  std::vector<std::thread> threads;
  for (int n = 0; n < kReaders; ++n)
    threads.emplace_back([n, &files, &failures] {
      for (int round = 0; round < kRounds; ++round) {
        failures[static_cast<std::size_t>(n)] += read_rla(files[static_cast<std::size_t>(n)], n) ? 0 : 1;
        failures[static_cast<std::size_t>(n)] += read(n) ? 0 : 1;
        failures[static_cast<std::size_t>(n)] += read_plugin(n) ? 0 : 1;
      }
    });
  threads.emplace_back([&files, &failures] {
    int &failed = failures[kReaders];
    for (int round = 0; round < kRounds; ++round) {
      failed += write_rla(files[kReaders], round) && read_rla(files[kReaders], round) ? 0 : 1;
      failed += write(kReaders) ? 0 : 1;
      int32_t known = 0;
      const char *type = ORX_get_file_type(files[static_cast<std::size_t>(round % kReaders)].c_str(),
                                           nullptr, &known);
      failed += type != nullptr && std::string(type) == "rla" ? 0 : 1;
    }
  });
  for (std::thread &t : threads) t.join();
  for (int f : failures) EXPECT_EQ(f, 0);
}

}  // namespace
