#include <random>
#include <tuple>

#include "formats/rla/header.hpp"
#include "formats/rla/rla_files.hpp"
#include "orx/fmt.h"

namespace {

using namespace orx::test;
using RlaReader = RlaTest;

// A one-row file of width 4 and one image channel of `bits` whose only
// chunk is `chunk`, assembled by hand.
std::vector<uint8_t> one_chunk_file(int bits, const std::vector<uint8_t> &chunk, int field = 0) {
  orx::rla::Header h;
  h.window = {0, 3, 0, 0};
  h.active = h.window;
  h.image = {1, 0, static_cast<int16_t>(bits), 0};
  h.field = static_cast<int16_t>(field);
  std::strcpy(h.aspect.data(), "x");
  std::vector<uint8_t> bytes(orx::rla::kHeaderSize + 4);
  orx::rla::HeaderBytes header;
  orx::rla::encode_header(h, header);
  std::memcpy(bytes.data(), header, orx::rla::kHeaderSize);
  orx::rla::store_be32(bytes.data() + orx::rla::kHeaderSize,
                       static_cast<uint32_t>(orx::rla::kHeaderSize + 4));
  bytes.push_back(static_cast<uint8_t>(chunk.size() >> 8));
  bytes.push_back(static_cast<uint8_t>(chunk.size()));
  bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  return bytes;
}

TEST_F(RlaReader, RefusesStdinSilentlyAndReportsMissingAndShortFiles) {
  ErrorCapture errors;
  ORX_OBJECT *stdin_object = reader_object("/dev/stdin");
  EXPECT_EQ(ORX_rla_r_open(stdin_object), 0);
  EXPECT_EQ(stdin_object->info.image_count, 0);  // a failed open leaves no image
  orx__free_obj(stdin_object);
  EXPECT_EQ(errors.size(), 0u);

  EXPECT_EQ(open_or_free(dir.file("missing.rla")), nullptr);
  EXPECT_EQ(orx__err, ORX_E_FIELD_MISSING);
  EXPECT_TRUE(errors.has(Msg::kCannotOpen, dir.file("missing.rla")));

  save_bytes(dir.file("short.rla"), std::vector<uint8_t>(100, 0));
  EXPECT_EQ(open_or_free(dir.file("short.rla")), nullptr);
  EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE);
  EXPECT_TRUE(errors.has(Msg::kNotOurFile, "short.rla"));
  EXPECT_EQ(ORX_rla_is_file(dir.file("short.rla").c_str(), nullptr), 0);
  EXPECT_EQ(ORX_rla_is_file(dir.file("missing.rla").c_str(), nullptr), 0);
}

TEST_F(RlaReader, OlderLayoutsKeepTheirFieldCodeOnlyWhenTheFileIsRlb) {
  std::vector<uint8_t> bytes = one_chunk_file(8, {3, 9}, 2);
  orx::rla::store_be16(bytes.data() + 26, 0);  // revision 0: an older layout
  for (const auto &[name, type, field] : {std::tuple{"old.rlb", "", 2}, {"old.rlb", "rla", 2},
                                          {"old.rla", "", 0}, {"old.rla", "rlb", 2}}) {
    const std::string path = dir.file(name);
    save_bytes(path, bytes);
    ORX_OBJECT *object = reader_object(path);
    ASSERT_NE(object, nullptr);
    if (type[0] != '\0') object->info.type = STR_save(type);
    ASSERT_EQ(ORX_rla_r_open(object), 1) << name;
    EXPECT_EQ(object->info.images[0].field, field) << name << " as \"" << type << '"';
    EXPECT_EQ(object->info.images[0].aux.name, nullptr);  // no auxiliary description
    EXPECT_EQ(object->close(object, 0), 0);
  }
}

TEST_F(RlaReader, NameWithoutExtensionIsCompletedAndSearchedInTheImageDirectory) {
  write_file(dir.file("pic.rla"), {ImageShape{}});
  ScopedEnv env("KV_IMG_DIR", dir.path());
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  object->info.handle = STR_save("pic");
  ASSERT_EQ(ORX_rla_r_open(object), 1);
  expect_pattern(object);
  EXPECT_EQ(object->close(object, 0), 0);
}

TEST_F(RlaReader, HeadersBreakingTheValidityRulesAreNotRla) {
  const std::string good = dir.file("good.rla");
  write_file(good, {ImageShape{}});
  const std::vector<uint8_t> bytes = load(good);
  EXPECT_EQ(ORX_rla_is_file(good.c_str(), nullptr), 1);
  std::FILE *stream = std::fopen(good.c_str(), "rb");
  std::fgetc(stream);
  EXPECT_EQ(ORX_rla_is_file(nullptr, stream), 1);  // rewinds first
  std::fclose(stream);

  // Each patch breaks one rule, which the open applies; the quick test looks
  // at the windows, counts and aspect only.
  const struct {
    std::vector<std::pair<std::size_t, uint8_t>> bytes;
    int is_file;
  } patches[] = {
      {{{21, 4}}, 0},                        // four image channels
      {{{8, 0xff}, {9, 0xff}}, 0},           // active left below window left
      {{{28, 'x'}, {29, 'y'}, {30, 0}}, 1},  // gamma not a number
      {{{548, 0}, {572, 0}}, 0},             // neither aspect nor aspect ratio
  };
  const std::string path = dir.file("bad.rla");
  ErrorCapture errors;
  std::vector<uint8_t> bad;
  for (const auto &patch : patches) {
    bad = bytes;
    for (const auto &[at, value] : patch.bytes) bad[at] = value;
    save_bytes(path, bad);
    EXPECT_EQ(ORX_rla_is_file(path.c_str(), nullptr), patch.is_file) << patch.bytes[0].first;
    EXPECT_EQ(open_or_free(path), nullptr) << patch.bytes[0].first;
    EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE);
  }
  bad[572] = '1';  // one of the two suffices
  save_bytes(path, bad);
  EXPECT_EQ(ORX_rla_is_file(path.c_str(), nullptr), 1);
}

TEST_F(RlaReader, RowFailuresLeaveTheObjectUsable) {
  const std::string path = dir.file("rows.rla");
  write_file(path, {{.image = {1, ORX_C_INTEGER, 8}}});
  std::vector<uint8_t> bytes = load(path);
  const uint32_t row1 = be32(bytes, 740 + 4);
  bytes[row1] = 0x7f;  // chunk length 32767+: longer than the decode buffer
  bytes[row1 + 1] = 0xff;
  save_bytes(path, bytes);

  ErrorCapture errors;
  ORX_OBJECT *object = open_or_free(path);
  ASSERT_NE(object, nullptr);
  void **rows = nullptr;
  EXPECT_EQ(object->scan(object->private_cell[0], 6, &rows), ORX_E_BAD_SCANLINE);
  EXPECT_EQ(object->scan(object->private_cell[0], -1, &rows), ORX_E_BAD_SCANLINE);
  EXPECT_EQ(object->scan(object->private_cell[0], 1, &rows), ORX_E_READ);
  EXPECT_EQ(orx__err, ORX_E_READ);
  EXPECT_TRUE(errors.has(Msg::kCannotRead, "1"));
  ASSERT_EQ(object->scan(object->private_cell[0], 2, &rows), 0);  // seeks past the damage
  EXPECT_TRUE(holds_pattern(object->info.images[0], rows, 2));
  ASSERT_EQ(object->scan(object->private_cell[0], 0, &rows), 0);
  EXPECT_TRUE(holds_pattern(object->info.images[0], rows, 0));
  EXPECT_EQ(object->close(object, 0), 0);
}

TEST_F(RlaReader, EightBitChunksMustBeExactWiderOnesMayCarryTrailingBytes) {
  ErrorCapture errors;
  const struct {
    int bits;
    std::vector<uint8_t> chunk;
    int status;
    uint32_t sample2, sample3;  // the row's samples 2 and 3 when it decodes
  } cases[] = {
      {8, {3, 9}, 0, 9, 9},
      {8, {3, 9, 0}, ORX_E_UNDECODABLE, 0, 0},
      {16, {3, 0x12, 3, 0x34, 0, 0}, 0, 0x1234, 0x1234},
      {16, {3, 0x12}, ORX_E_UNDECODABLE, 0, 0},  // second plane missing
  };
  for (const auto &c : cases) {
    save_bytes(dir.file("c.rla"), one_chunk_file(c.bits, c.chunk));
    ORX_OBJECT *object = open_or_free(dir.file("c.rla"));
    ASSERT_NE(object, nullptr);
    void **rows = nullptr;
    ASSERT_EQ(object->scan(object->private_cell[0], 0, &rows), c.status) << c.chunk.size();
    if (c.status == 0) {
      const auto at = [&](int x) -> uint32_t {
        return c.bits == 8 ? static_cast<uint8_t *>(rows[0])[x] : static_cast<uint16_t *>(rows[0])[x];
      };
      EXPECT_EQ(at(2), c.sample2);
      EXPECT_EQ(at(3), c.sample3);
    }
    object->close(object, 0);
  }
  EXPECT_TRUE(errors.has(Msg::kCannotDecode, "0"));
}

TEST_F(RlaReader, RetryingAFailedRowReadsItFromItsStartAgain) {
  // A length beyond the decode buffer, followed by bytes that would form a
  // valid chunk if read from where the failed attempt left the stream.
  save_bytes(dir.file("retry.rla"), one_chunk_file(8, {0, 2, 3, 9}));
  std::vector<uint8_t> bytes = load(dir.file("retry.rla"));
  bytes[744] = 0x7f;
  bytes[745] = 0x00;
  save_bytes(dir.file("retry.rla"), bytes);
  ErrorCapture errors;
  ORX_OBJECT *object = open_or_free(dir.file("retry.rla"));
  ASSERT_NE(object, nullptr);
  void **rows = nullptr;
  EXPECT_EQ(object->scan(object->private_cell[0], 0, &rows), ORX_E_READ);
  EXPECT_EQ(object->scan(object->private_cell[0], 0, &rows), ORX_E_READ);
  object->close(object, 0);
}

TEST_F(RlaReader, UnsupportedChannelsAndBrokenLinksFailTheOpen) {
  const std::string path = dir.file("types.rla");
  write_file(path, {ImageShape{}, ImageShape{}});
  const std::vector<uint8_t> bytes = load(path);
  ErrorCapture errors;

  std::vector<uint8_t> bad = bytes;
  bad[19] = 7;  // unknown storage code of the image channels
  save_bytes(path, bad);
  EXPECT_EQ(open_or_free(path), nullptr);
  EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);

  bad = bytes;
  bad[666] = 0;
  bad[667] = 40;  // 40-bit auxiliary integers, with one auxiliary channel
  bad[25] = 1;
  save_bytes(path, bad);
  EXPECT_EQ(open_or_free(path), nullptr);
  EXPECT_TRUE(errors.has(Msg::kAuxWidth, "rla"));

  // The second header's link pointing back at itself would loop for ever.
  bad = bytes;
  const uint32_t second = be32(bad, 736);
  orx::rla::store_be32(bad.data() + second + 736, second);
  save_bytes(path, bad);
  EXPECT_EQ(open_or_free(path), nullptr);
  EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE);
  // A link past the end of the file.
  orx::rla::store_be32(bad.data() + 736, 0x7fffffff);
  save_bytes(path, bad);
  EXPECT_EQ(open_or_free(path), nullptr);
}

TEST_F(RlaReader, OutOfMemoryAnywhereInTheOpenLeaksNothing) {
  const std::string path = dir.file("oom.rla");
  const ImageShape shape{.matte = {1, ORX_C_INTEGER, 16}};
  write_file(path, {shape, shape});
  ErrorCapture errors;
  // The format database is built on its first query; build it now so that
  // only the open's own allocations are failed.
  ASSERT_EQ(FMT_init(nullptr), 0);
  long needed = for_each_allocation_failure([&] {
    ORX_OBJECT *object = reader_object(path);
    if (object == nullptr) return false;
    bool ok = ORX_rla_r_open(object) == 1;
    if (ok) {
      object->close(object, 0);
    } else {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
      orx__free_obj(object);
    }
    return ok;
  });
  EXPECT_GT(needed, 5);
}

TEST_F(RlaReader, RandomlyDamagedFilesNeverCrashOrLeak) {
  const std::string good = dir.file("good.rla");
  const ImageShape a{.window = {0, 40, 0, 7}, .active = {3, 30, 1, 6},
                    .matte = {1, ORX_C_INTEGER, 16}, .aux = {1, ORX_C_FLOAT, 32}};
  write_file(good, {a, {.image = {1, ORX_C_INTEGER, 32}}});
  const std::vector<uint8_t> bytes = load(good);
  std::mt19937 random(1234);
  ErrorCapture errors;
  const std::string path = dir.file("damaged.rla");
  for (int trial = 0; trial < 400; ++trial) {
    std::vector<uint8_t> bad = bytes;
    const int changes = 1 + static_cast<int>(random() % 8);
    for (int k = 0; k < changes; ++k) {
      std::size_t at = random() % bad.size();
      if (random() % 2 == 0) at = random() % 800;  // favour the first header and table
      bad[at] = static_cast<uint8_t>(random());
    }
    if (random() % 8 == 0) bad.resize(random() % bad.size());
    save_bytes(path, bad);
    ORX_OBJECT *object = open_or_free(path);
    if (object == nullptr) continue;
    for (int i = 0; i < object->info.image_count; ++i) {
      const ORX_IFD &ifd = object->info.images[i];
      const int last = std::min(ifd.window.top, ifd.window.bottom + 40);
      for (int y = ifd.window.bottom - 1; y <= last + 1; ++y) {
        void **rows = nullptr;
        object->scan(object->private_cell[i], y, &rows);
      }
    }
    object->close(object, 0);
  }
}

// The writer stores the descriptor's aspect ratio, else the window's shape;
// the reader takes the resolution and the ratio from the format database when
// it knows the aspect name, else from the window and the stored ratio.
TEST_F(RlaReader, AspectRatioStoredFromTheDescriptorOrTheWindowAndReadDatabaseFirst) {
  ScopedEnv home("HOME", dir.path());
  FMT_exit();
  const std::string path = dir.file("aspect.rla");
  ORX_OBJECT *writer = writer_object(path, {ImageShape{}, {}});  // 10 x 6 windows
  writer->info.images[0].aspect_ratio = 1.5f;
  ASSERT_EQ(ORX_rla_w_open(writer), 1);
  write_all_rows_and_close(writer);
  auto bytes = load(path);
  EXPECT_STREQ(reinterpret_cast<const char *>(&bytes[572]), "1.500");
  const uint32_t second = be32(bytes, 736);
  ASSERT_LT(second + 580, bytes.size());
  EXPECT_STREQ(reinterpret_cast<const char *>(&bytes[second + 572]), "1.667");
  // The ratio and the resolution read back, with the compression name.
  auto expect_read = [&](float ratio, int x, int y) {
    ORX_OBJECT *object = open_or_free(path);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->info.images[0].aspect_ratio, ratio);
    EXPECT_EQ(object->info.images[0].x_resolution, x);
    EXPECT_EQ(object->info.images[0].y_resolution, y);
    EXPECT_STREQ(object->info.compression, "run length encoded");
    object->close(object, 0);
  };
  expect_read(1.33f, 640, 486);  // "ntsc_640" is a built-in format
  std::memcpy(&bytes[548], "custom\0", 7);
  save_bytes(path, bytes);
  expect_read(1.5f, 10, 6);
  std::memcpy(&bytes[572], "0.000\0\0", 7);  // not positive: the window's shape
  save_bytes(path, bytes);
  expect_read(10.0f / 6.0f, 10, 6);
  FMT_exit();
}

}  // namespace
