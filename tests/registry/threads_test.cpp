#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "orx/naming.h"
#include "registry/registry_fixture.hpp"

namespace {

using namespace orx::test;
using ThreadStress = RegistryTest;

constexpr int kReaders = 3;
constexpr int kRounds = 12;
constexpr int32_t kSide = 16;

// Writes a kSide-square image whose samples of line y are y + n, in the
// format of the handle's extension.
void write(const std::string &handle, int n) {
  write_image(handle, rgba(kSide, kSide, ORX_C_INTEGER, 8),
              [n](int, int32_t, int32_t y) { return static_cast<uint8_t>(y + n); }, nullptr);
}

// Reads every line top down, seeks back to the top (a reopen for RLA) and
// reads it again, then closes; true when every sample of line y is y + n.
bool read(const std::string &handle, int32_t side, int n) {
  ORX_OBJECT *object = open_image(handle, nullptr);
  if (object == nullptr) return false;
  bool ok = true;
  void **rows = nullptr;
  for (int32_t y = side - 1; y >= 0; --y)
    ok = ok && ORX_scan_read(object, y, &rows) == 0 &&
         static_cast<uint8_t *>(rows[2])[side - 1] == static_cast<uint8_t>(y + n);
  ok = ok && ORX_seek(&object, side - 1) == 0 && object != nullptr &&
       ORX_scan_read(object, side - 1, &rows) == 0 &&
       static_cast<uint8_t *>(rows[0])[0] == static_cast<uint8_t>(side - 1 + n);
  return object != nullptr && ORX_close(object) == 0 && ok;
}

// Readers each open, read, seek and close their own RLA, "mem" and plug-in
// images while a writer replaces an RLA and a "mem" image of its own, reads
// them back and asks for file types; the library lock and the objects' locks
// keep them apart.  Run under ThreadSanitizer by the tsan preset.
TEST_F(ThreadStress, ReadersAndAWriterOnEveryKindOfImage) {
  PluginSet plugins({"plugin_good"});
  ASSERT_EQ(plugins.init(), 0);
  TempDir dir;
  std::vector<std::string> files, mems;
  for (int n = 0; n <= kReaders; ++n) {
    files.push_back(dir.file("stress" + std::to_string(n) + ".rla"));
    mems.push_back("thread" + std::to_string(n) + ".mem");
    write(files.back(), n);
    write(mems.back(), n);
  }
  std::vector<int> failures(kReaders + 1, 0);
  std::vector<std::thread> threads;
  for (int n = 0; n < kReaders; ++n)
    threads.emplace_back([n, &files, &mems, &failures] {
      const auto i = static_cast<std::size_t>(n);
      for (int round = 0; round < kRounds; ++round) {
        failures[i] += read(files[i], kSide, n) ? 0 : 1;
        failures[i] += read(mems[i], kSide, n) ? 0 : 1;
        // The test plug-in's 4 x 4 image: line y holds y + 1.
        failures[i] += read("stress" + std::to_string(n) + ".tgd", 4, 1) ? 0 : 1;
      }
    });
  threads.emplace_back([&files, &mems, &failures] {
    int &failed = failures[kReaders];
    for (int round = 0; round < kRounds; ++round) {
      write(files[kReaders], round);
      failed += read(files[kReaders], kSide, round) ? 0 : 1;
      write(mems[kReaders], round);
      failed += read(mems[kReaders], kSide, round) ? 0 : 1;
      int32_t known = 0;
      const char *type = ORX_get_file_type(files[static_cast<std::size_t>(round % kReaders)].c_str(),
                                           nullptr, &known);
      failed += type != nullptr && std::string(type) == "rla" ? 0 : 1;
    }
  });
  for (std::thread &t : threads) t.join();
  for (int f : failures) EXPECT_EQ(f, 0);
}

// Threads failing in different ways at once each find their own failure in
// ORX_last_status and ORX_last_message, and a thread that succeeds finds 0
// and "", whatever the others left in orx__err meanwhile.
TEST_F(ThreadStress, EachThreadSeesItsOwnStatus) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  TempDir dir;
  const std::string good = dir.file("good.rla"), damaged = dir.file("damaged.rla");
  write(good, 0);
  std::filesystem::copy_file(good, damaged);
  std::filesystem::resize_file(damaged, std::filesystem::file_size(good) - 40);
  struct Case {
    std::string path;
    const char *type;
    int32_t status;       // what the failing call leaves
    const char *message;  // part of its message
  };
  const Case cases[] = {
      {dir.file("missing.rla"), "rla", ORX_E_FIELD_MISSING, "missing.rla"},
      {good, "no-such-type", ORX_E_INVALID_TYPE, "no-such-type"},
      {damaged, "rla", ORX_E_READ, "Cannot read scanline"},
      {good, "rla", 0, ""},
  };
  std::vector<std::string> wrong(std::size(cases));
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < std::size(cases); ++i)
    threads.emplace_back([&c = cases[i], &why = wrong[i]] {
      for (int round = 0; round < 40 && why.empty(); ++round) {
        ORX_OBJECT *object = open_image(c.path, c.type);
        void **rows = nullptr;
        for (int32_t y = kSide - 1; object != nullptr && y >= 0; --y)
          if (ORX_scan_read(object, y, &rows) != 0) break;
        const int32_t status = ORX_last_status();
        const std::string message = ORX_last_message();
        if (object != nullptr) ORX_close(object);
        if (status != c.status || message.find(c.message) == std::string::npos ||
            (c.status == 0) != message.empty())
          why = std::to_string(status) + " " + message;
      }
    });
  for (std::thread &t : threads) t.join();
  for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(wrong[i], "") << cases[i].path;

  // Masked, a failure still has its message; a failure without a report of
  // its own is described by its status, not by an earlier message.
  ERR_mask(nullptr);
  ASSERT_EQ(open_image(cases[0].path), nullptr);
  ERR_unmask(nullptr);
  EXPECT_NE(std::string(ORX_last_message()).find("missing.rla"), std::string::npos);
  EXPECT_EQ(ORX_name_syntax_verify(""), 0);
  EXPECT_EQ(ORX_last_status(), ORX_E_EMPTY_SYNTAX);
  EXPECT_STREQ(ORX_last_message(), ORX_strerror(ORX_E_EMPTY_SYNTAX));
}

}  // namespace
