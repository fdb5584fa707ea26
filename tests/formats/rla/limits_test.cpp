// Hostile headers: channel counts, windows and offset tables that a small
// file claims, refused before the reader allocates what they would size;
// the limits' environment variables and setter; rows outside the active
// window zeroed where a layer above may have written over the buffer.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "formats/rla/header.hpp"
#include "formats/rla/rla_files.hpp"
#include "orx/limits.h"

namespace {

using namespace orx::test;

class RlaLimits : public RlaTest {
 protected:
  void TearDown() override {
    ORX_set_limit(ORX_LIMIT_CHANNELS, 0);
    ORX_set_limit(ORX_LIMIT_ROW_MEMORY, 0);
    RlaTest::TearDown();
  }
};

struct Hostile {
  int width;          // window and active width
  int window_rows;    // window height
  int active_rows;    // rows of the active window, at the window's bottom
  int mattes, auxes;  // double-precision matte and auxiliary channels
  std::size_t size;   // bytes of the whole file (header, table, then zeros)
};

// One header as described, its offset table pointing past the end of the
// table, and zeros up to `size`.
std::vector<uint8_t> hostile_file(const Hostile &f) {
  orx::rla::Header h;
  h.window = {0, static_cast<int16_t>(f.width - 1), 0, static_cast<int16_t>(f.window_rows - 1)};
  h.active = {0, static_cast<int16_t>(f.width - 1), 0, static_cast<int16_t>(f.active_rows - 1)};
  h.image = {3, 0, 8, 0};
  h.matte = {static_cast<int16_t>(f.mattes), 5, 64, 0};
  h.aux = {static_cast<int16_t>(f.auxes), 5, 64, 0};
  std::strcpy(h.aspect.data(), "x");
  orx::rla::HeaderBytes header;
  orx::rla::encode_header(h, header);
  std::vector<uint8_t> bytes(header, header + orx::rla::kHeaderSize);
  const auto rows_at =
      static_cast<uint32_t>(bytes.size() + 4u * static_cast<unsigned>(f.active_rows));
  for (int r = 0; r < f.active_rows; ++r) {
    bytes.resize(bytes.size() + 4);
    orx::rla::store_be32(bytes.data() + bytes.size() - 4, rows_at);
  }
  if (bytes.size() < f.size) bytes.resize(f.size, 0);
  return bytes;
}

// Files the unbounded reader took: the channel counts the file size allowed
// when only one length word per channel was asked of it, at the widest window.
const Hostile kReported[] = {
    {32767, 32767, 1, 524, 524, 2100},
    {32767, 32767, 1, 2024, 2024, 8100},
    {32767, 32767, 1, 8024, 8024, 32800},
    {32767, 32767, 1, 32767, 32767, 744},  // every count at its largest, in a tiny file
};

// A file too short for its offset table is not RLA; rows the file lacks
// fail only when they are read, so the channel checks still speak for a
// file of header and table alone.
TEST_F(RlaLimits, ShortTablesAreRefusedMissingRowsFailWhenRead) {
  const std::string path = dir.file("thin.rla");
  ErrorCapture errors;
  for (const Hostile &f : {Hostile{4, 10, 10, 0, 0, 779}, Hostile{4, 32767, 32767, 0, 0, 4096}}) {
    std::vector<uint8_t> cut = hostile_file(f);
    cut.resize(f.size);
    save_bytes(path, cut);
    EXPECT_FALSE(opens(path)) << f.size;
    EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE);
    EXPECT_TRUE(errors.has(Msg::kNotOurFile, "thin.rla"));
  }
  std::vector<uint8_t> bytes = hostile_file({4, 10, 10, 0, 0, 780});
  save_bytes(path, bytes);
  ORX_OBJECT *object = open_or_free(path);
  ASSERT_NE(object, nullptr);
  void **rows = nullptr;
  EXPECT_EQ(object->scan(object->private_cell[0], 0, &rows), ORX_E_READ);
  EXPECT_EQ(object->close(object, 0), 0);
  orx::rla::store_be16(bytes.data() + 18, 3);  // image storage code 3: no type
  save_bytes(path, bytes);
  EXPECT_FALSE(opens(path));
  EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
  EXPECT_EQ(errors.last_id(), int(Msg::kImageType));
}

TEST_F(RlaLimits, RowMemoryIsCountedOverEveryImageOfTheFile) {
  const std::string path = dir.file("rows.rla");
  const ImageShape shape{.window = {0, 999, 0, 0}, .active = {0, 999, 0, 0}};
  write_file(path, {shape, shape});
  // Per image: 3 rows of 1000 bytes, and a decode buffer of 16 bytes a sample.
  const int64_t per_image = 3 * 1000 + 16 * 1000;
  ErrorCapture errors;
  ORX_set_limit(ORX_LIMIT_ROW_MEMORY, 2 * per_image);
  EXPECT_TRUE(opens(path));
  ORX_set_limit(ORX_LIMIT_ROW_MEMORY, 2 * per_image - 1);
  EXPECT_EQ(open_or_free(path), nullptr);
  EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE);
  EXPECT_TRUE(errors.has(Msg::kLimitExceeded, std::to_string(2 * per_image) + " bytes"))
      << errors.last();
  EXPECT_TRUE(errors.has(Msg::kLimitExceeded, std::to_string(2 * per_image - 1))) << errors.last();
}

TEST_F(RlaLimits, EnvironmentGivesTheLimitUnlessAHostSetsOne) {
  struct Case {
    const char *text;
    int64_t channels;
  } cases[] = {
      {nullptr, 1024}, {"", 1024},        {"7", 7},           {"2k", 2048},
      {"3M", 3 << 20}, {"1g", 1 << 30},  {"0", 1024},        {"-5", 1024},
      {"12x", 1024},   {"k", 1024},      {"99999999999999g", 1024},
  };
  for (const Case &c : cases) {
    ScopedEnv env("KV_ORX_MAX_CHANNELS",
                  c.text != nullptr ? std::optional<std::string>(c.text) : std::nullopt);
    EXPECT_EQ(ORX_limit(ORX_LIMIT_CHANNELS), c.channels) << (c.text ? c.text : "unset");
  }
  ScopedEnv env("KV_ORX_MAX_CHANNELS", "2");
  EXPECT_EQ(ORX_limit(ORX_LIMIT_ROW_MEMORY), int64_t{1} << 30);
  const std::string path = dir.file("three.rla");
  write_file(path, {ImageShape{}});
  ErrorCapture errors;
  EXPECT_EQ(open_or_free(path), nullptr);
  EXPECT_TRUE(errors.has(Msg::kLimitExceeded, "needs 3 channels")) << errors.last();
  EXPECT_EQ(ORX_set_limit(ORX_LIMIT_CHANNELS, 3), 2);
  EXPECT_TRUE(opens(path));
  EXPECT_EQ(ORX_set_limit(ORX_LIMIT_CHANNELS, 0), 3);
  EXPECT_EQ(ORX_limit(ORX_LIMIT_CHANNELS), 2);
  EXPECT_EQ(ORX_limit(99), -1);
  EXPECT_EQ(ORX_set_limit(99, 5), -1);
  EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORX_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ORX_SANITIZED 1
#endif
#endif

// In a child process whose address space is capped 192 MiB above what it
// uses now, with a row-memory limit of 64 MiB: every hostile file is refused,
// and a file just inside the limit opens and reads every row, its empty
// window of 32767 rows at no cost per row.
TEST_F(RlaLimits, HostileFilesStayWithinAMemoryCap) {
#ifdef ORX_SANITIZED
  GTEST_SKIP() << "sanitizers reserve address space beyond any cap";
#else
  std::vector<std::string> hostile;
  for (const Hostile &f : kReported) {
    hostile.push_back(dir.file("h" + std::to_string(hostile.size()) + ".rla"));
    save_bytes(hostile.back(), hostile_file(f));
  }
  // 1024 channels of doubles 32767 wide: 268 MB of rows, past the 64 MiB limit.
  hostile.push_back(dir.file("wide.rla"));
  save_bytes(hostile.back(), hostile_file({32767, 32767, 1, 511, 510, 4096}));
  // 7 doubles a pixel, 1000 wide: 56 kB a row over 32767 rows, 1 of them stored.
  const std::string tall = dir.file("tall.rla");
  save_bytes(tall, hostile_file({1000, 32767, 1, 2, 2, 4096}));

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ErrorCapture quiet;
    ORX_set_limit(ORX_LIMIT_ROW_MEMORY, 64 << 20);
    long pages = 0;
    if (FILE *statm = std::fopen("/proc/self/statm", "r")) {
      if (std::fscanf(statm, "%ld", &pages) != 1) pages = 0;
      std::fclose(statm);
    }
    const rlim_t cap = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) +
                       (rlim_t{192} << 20);
    const rlimit limit{cap, cap};
    if (pages == 0 || setrlimit(RLIMIT_AS, &limit) != 0) _exit(90);
    int failures = 0;
    for (const std::string &path : hostile)
      if (opens(path) || orx__err != ORX_E_NOT_OUR_FILE) ++failures;
    ORX_OBJECT *object = open_or_free(tall);
    if (object == nullptr) _exit(91);
    // Rows 32766 down to 1 are empty; row 0's chunks are empty and fail to
    // decode, and row 1 read after it is zeros again.
    for (int y = 32766; y >= -1; --y) {
      void **rows = nullptr;
      const int row = y < 0 ? 1 : y;
      if (object->scan(object->private_cell[0], row, &rows) != (row == 0 ? ORX_E_UNDECODABLE : 0))
        ++failures;
      if (row == 1 || row == 32766)
        for (int c = 0; c < 7; ++c)
          for (std::size_t b = 0; b < (c < 3 ? 1000u : 8000u); ++b)
            if (static_cast<uint8_t *>(rows[c])[b] != 0) ++failures;
    }
    object->close(object, 0);
    _exit(failures > 0 ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "the child died: killed by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
#endif
}

// A layer above the reader that hands its rows on: the reader must then take
// them as written over, which the test does, as a layer transforming in place may.
ORX_SCAN_FN g_reader = nullptr;
int layer(void *data, int32_t y, void *out) { return g_reader(data, y, out); }

TEST_F(RlaLimits, RowsOutsideTheActiveWindowStayZerosUnderALayerThatWritesInPlace) {
  const std::string path = dir.file("layer.rla");
  write_file(path, {{.window = {0, 19, 0, 19}, .active = {5, 14, 5, 14}}});
  ORX_OBJECT *object = open_or_free(path);
  ASSERT_NE(object, nullptr);
  g_reader = object->scan;
  // Without the layer, then with it, then without it again.
  for (int pass = 0; pass < 3; ++pass) {
    object->scan = pass == 1 ? layer : g_reader;
    for (int y : {0, 1, 5, 6, 15, 16, 7, 2, 19}) {
      void **rows = nullptr;
      ASSERT_EQ(object->scan(object->private_cell[0], y, &rows), 0) << y;
      EXPECT_TRUE(holds_pattern(object->info.images[0], rows, y))
          << "pass " << pass << ", row " << y;
      for (int c = 0; c < 3 && pass == 1; ++c) std::memset(rows[c], 0xAA, 20);
    }
  }
  EXPECT_EQ(object->close(object, 0), 0);
}

}  // namespace
