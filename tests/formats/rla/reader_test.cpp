#include <functional>
#include <random>
#include <tuple>

#include "formats/rla/header.hpp"
#include "formats/rla/rla_files.hpp"
#include "orx/fmt.h"

namespace {

using namespace orx::test;
using orx::rla::store_be16;
using orx::rla::store_be32;
using Bytes = std::vector<uint8_t>;
using RlaReader = RlaTest;

// A one-row file of width 4 and one image channel of `bits` whose only
// chunk is `chunk`, assembled by hand; `length` replaces the chunk's length
// word when given.
Bytes one_chunk_file(int bits, const Bytes &chunk, int field = 0, int length = -1) {
  orx::rla::Header h;
  h.window = {0, 3, 0, 0};
  h.active = h.window;
  h.image = {1, 0, static_cast<int16_t>(bits), 0};
  h.field = static_cast<int16_t>(field);
  std::strcpy(h.aspect.data(), "x");
  Bytes bytes(orx::rla::kHeaderSize + 4);
  orx::rla::HeaderBytes header;
  orx::rla::encode_header(h, header);
  std::memcpy(bytes.data(), header, orx::rla::kHeaderSize);
  store_be32(bytes.data() + orx::rla::kHeaderSize,
             static_cast<uint32_t>(orx::rla::kHeaderSize + 4));
  const auto word = static_cast<unsigned>(length < 0 ? static_cast<int>(chunk.size()) : length);
  bytes.push_back(static_cast<uint8_t>(word >> 8));
  bytes.push_back(static_cast<uint8_t>(word));
  bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  return bytes;
}

// Where the second header of a file starts, as the first one's link says.
uint32_t second(const Bytes &b) { return be32(b, 736); }

// One damage to a valid file of two 10 x 6 images and what the reader makes
// of it: the quick test's answer, the open's status and its report.
struct Damage {
  const char *what;
  std::function<void(Bytes &)> patch;
  int is_file;
  int status;  // 0: the open succeeds
  Msg message;
};

const Damage kDamages[] = {
    {"none", [](Bytes &) {}, 1, 0, {}},
    {"cut short", [](Bytes &b) { b.resize(100); }, 0, ORX_E_NOT_OUR_FILE, Msg::kNotOurFile},
    {"four image channels", [](Bytes &b) { b[21] = 4; }, 0, ORX_E_NOT_OUR_FILE, Msg::kNotOurFile},
    {"active left below window left", [](Bytes &b) { b[8] = b[9] = 0xff; }, 0, ORX_E_NOT_OUR_FILE,
     Msg::kNotOurFile},
    // The quick test looks at the windows, counts and aspect only.
    {"gamma not a number", [](Bytes &b) { std::memcpy(&b[28], "xy", 3); }, 1, ORX_E_NOT_OUR_FILE,
     Msg::kNotOurFile},
    {"neither aspect nor aspect ratio", [](Bytes &b) { b[548] = b[572] = 0; }, 0,
     ORX_E_NOT_OUR_FILE, Msg::kNotOurFile},
    {"aspect ratio alone", [](Bytes &b) { b[548] = 0; }, 1, 0, {}},
    {"unknown image storage code", [](Bytes &b) { b[19] = 7; }, 1, ORX_E_UNSUPPORTED,
     Msg::kImageType},
    {"40-bit auxiliary integers", [](Bytes &b) { b[25] = 1, b[666] = 0, b[667] = 40; }, 1,
     ORX_E_UNSUPPORTED, Msg::kAuxWidth},
    // The second header's link pointing back at itself would loop for ever.
    {"second header linked to itself",
     [](Bytes &b) { store_be32(&b[second(b) + 736], second(b)); }, 1, ORX_E_NOT_OUR_FILE,
     Msg::kNotOurFile},
    {"link past the end", [](Bytes &b) { store_be32(&b[736], 0x7fffffff); }, 1,
     ORX_E_NOT_OUR_FILE, Msg::kNotOurFile},
};

TEST_F(RlaReader, DamagedHeadersAreRefusedWithTheirStatusAndReport) {
  const std::string good = dir.file("good.rla"), path = dir.file("bad.rla");
  write_file(good, {ImageShape{}, ImageShape{}});
  const Bytes bytes = load(good);
  ErrorCapture errors;
  for (const Damage &d : kDamages) {
    SCOPED_TRACE(d.what);
    Bytes bad = bytes;
    d.patch(bad);
    save_bytes(path, bad);
    EXPECT_EQ(ORX_rla_is_file(path.c_str(), nullptr), d.is_file);
    errors.clear();
    ORX_OBJECT *object = reader_object(path);
    EXPECT_EQ(ORX_rla_r_open(object), d.status == 0 ? 1 : 0);
    if (d.status == 0) {
      expect_pattern(object);
      EXPECT_EQ(object->close(object, 0), 0);
      continue;
    }
    EXPECT_EQ(object->info.image_count, 0);  // a failed open leaves no image
    orx__free_obj(object);
    EXPECT_TRUE(errors.failed_with(d.status, d.message));
  }
  // The quick test rewinds a stream it is given.
  std::FILE *stream = std::fopen(good.c_str(), "rb");
  std::fgetc(stream);
  EXPECT_EQ(ORX_rla_is_file(nullptr, stream), 1);
  std::fclose(stream);

  // Standard input is refused without a report; a missing file is reported.
  errors.clear();
  ORX_OBJECT *stdin_object = reader_object("/dev/stdin");
  EXPECT_EQ(ORX_rla_r_open(stdin_object), 0);
  orx__free_obj(stdin_object);
  EXPECT_EQ(errors.size(), 0u);
  EXPECT_EQ(open_or_free(dir.file("missing.rla")), nullptr);
  EXPECT_TRUE(errors.failed_with(ORX_E_FIELD_MISSING, Msg::kCannotOpen));
  EXPECT_EQ(ORX_rla_is_file(dir.file("missing.rla").c_str(), nullptr), 0);
}

// Whatever an older layout holds after its common fields, its channels read as
// 8-bit integers, its time and filter as "unknown", and it has no next image.
TEST_F(RlaReader, OlderLayoutsKeepTheirFieldCodeOnlyWhenTheFileIsRlb) {
  Bytes bytes = one_chunk_file(16, {3, 9}, 2);
  store_be16(bytes.data() + 26, 0);  // revision 0: an older layout
  store_be32(bytes.data() + 736, 1000);  // a link past the end, not read
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
    EXPECT_EQ(object->info.images[0].image.bits, 8);
    EXPECT_STREQ(object->info.time, "unknown");
    EXPECT_STREQ(object->info.filter, "unknown");
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

TEST_F(RlaReader, RowFailuresLeaveTheObjectUsable) {
  const std::string path = dir.file("rows.rla");
  write_file(path, {{.image = {1, ORX_C_INTEGER, 8}}});
  Bytes bytes = load(path);
  store_be16(&bytes[be32(bytes, 740 + 4)], 0x7fff);  // row 1 longer than the decode buffer
  save_bytes(path, bytes);

  ErrorCapture errors;
  ORX_OBJECT *object = open_or_free(path);
  ASSERT_NE(object, nullptr);
  void **rows = nullptr;
  for (const auto &[y, status] : {std::pair{6, ORX_E_BAD_SCANLINE}, {-1, ORX_E_BAD_SCANLINE},
                                  {1, ORX_E_READ}, {2, 0}, {0, 0}}) {
    ASSERT_EQ(object->scan(object->private_cell[0], y, &rows), status) << y;
    EXPECT_TRUE(status != 0 || holds_pattern(object->info.images[0], rows, y)) << y;
  }
  EXPECT_TRUE(errors.has(Msg::kCannotRead, "1"));
  EXPECT_EQ(object->close(object, 0), 0);
}

// Each row is read twice: a failed row is read from its start again.
TEST_F(RlaReader, EightBitChunksMustBeExactWiderOnesMayCarryTrailingBytes) {
  ErrorCapture errors;
  const struct {
    int bits;
    Bytes chunk;
    int length;  // the length word, when not the chunk's
    int status;
    uint32_t sample;  // of the row's run of four when it decodes
  } cases[] = {
      {8, {3, 9}, -1, 0, 9},
      {8, {3, 9, 0}, -1, ORX_E_UNDECODABLE, 0},
      {16, {3, 0x12, 3, 0x34, 0, 0}, -1, 0, 0x1234},
      {16, {3, 0x12}, -1, ORX_E_UNDECODABLE, 0},  // second plane missing
      // Beyond the decode buffer, followed by bytes that would form a valid
      // chunk if read from where the failed attempt left the stream.
      {8, {0, 2, 3, 9}, 0x7f00, ORX_E_READ, 0},
  };
  for (const auto &c : cases) {
    save_bytes(dir.file("c.rla"), one_chunk_file(c.bits, c.chunk, 0, c.length));
    ORX_OBJECT *object = open_or_free(dir.file("c.rla"));
    ASSERT_NE(object, nullptr);
    for (int attempt = 0; attempt < 2; ++attempt) {
      void **rows = nullptr;
      ASSERT_EQ(object->scan(object->private_cell[0], 0, &rows), c.status) << c.chunk.size();
      if (c.status != 0) continue;
      for (int x = 0; x < 4; ++x)
        EXPECT_EQ(get(object->info.images[0].image, rows[0], x), c.sample) << x;
    }
    object->close(object, 0);
  }
  EXPECT_TRUE(errors.has(Msg::kCannotDecode, "0"));
}

// Files several times the size of the block rows are read through: rows
// asked for downwards, upwards, in random order and alternately from two
// images come as written, and a file cut inside a row fails with that row
// and every row after it, and with no row before.
TEST_F(RlaReader, RowsOfFilesLargerThanTheReadBlockComeInAnyOrder) {
  const std::string path = dir.file("large.rla");
  const ImageShape wide{.window = {0, 2999, 0, 99}, .active = {0, 2999, 0, 99},
                        .image = {3, ORX_C_FLOAT, 32}};
  write_file(path, {wide, {.window = {0, 1999, 0, 149}, .active = {5, 1990, 2, 140}}});
  std::vector<std::pair<int, int>> order;  // (image, row)
  for (int y = 99; y >= 0; --y) order.emplace_back(0, y);
  for (int y = 0; y < 100; ++y) order.emplace_back(0, y);
  std::mt19937 random(7);
  for (int k = 0; k < 300; ++k)
    order.emplace_back(k % 2, static_cast<int>(random() % (k % 2 ? 150 : 100)));
  ORX_OBJECT *object = open_or_free(path);
  ASSERT_NE(object, nullptr);
  for (const auto &[image, y] : order) {
    void **rows = nullptr;
    ASSERT_EQ(object->scan(object->private_cell[image], y, &rows), 0) << image << " " << y;
    ASSERT_TRUE(holds_pattern(object->info.images[image], rows, y)) << image;
  }
  EXPECT_EQ(object->close(object, 0), 0);

  write_file(path, {wide});  // one image: a second one's header would be cut off
  Bytes bytes = load(path);
  const int cut_row = 37;
  bytes.resize(be32(bytes, orx::rla::kHeaderSize + 4 * cut_row) + 5000);
  save_bytes(path, bytes);
  ErrorCapture errors;
  object = open_or_free(path);
  ASSERT_NE(object, nullptr);
  for (int pass = 0; pass < 2; ++pass)
    for (int y = 99; y >= 0; --y) {
      void **rows = nullptr;
      ASSERT_EQ(object->scan(object->private_cell[0], y, &rows), y >= cut_row ? ORX_E_READ : 0)
          << y;
      if (y < cut_row) {
        ASSERT_TRUE(holds_pattern(object->info.images[0], rows, y)) << y;
      }
    }
  EXPECT_TRUE(errors.has(Msg::kCannotRead, "37"));
  object->close(object, 0);
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

}  // namespace
