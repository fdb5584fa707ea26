#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "formats/rla/rla_files.hpp"

namespace {

using namespace orx::test;
using RlaWriter = RlaTest;

// Opens a writer for path and closes it without rows; returns the bytes.
std::vector<uint8_t> empty_file(const std::string &path, int frame) {
  ORX_OBJECT *object = writer_object(path, {ImageShape{}});
  object->info.frame = frame;
  EXPECT_EQ(ORX_rla_w_open(object), 1);
  EXPECT_EQ(object->close(object, 0), 0);
  return load(path);
}

TEST_F(RlaWriter, FrameNumbersAreClampedToSixteenBits) {
  const std::string path = dir.file("f.rla");
  for (const auto &[frame, stored] : {std::pair{40000, 0x7fff}, {-1, 0xffff}, {-5, 0}, {321, 321}}) {
    const std::vector<uint8_t> bytes = empty_file(path, frame);
    EXPECT_EQ(bytes[16] * 256 + bytes[17], stored) << frame;
  }
}

// A record whose chromaticities were never set leaves the four fields
// blank, and reads back as such a record again.
TEST_F(RlaWriter, UnknownChromaticitiesStayBlank) {
  const std::string path = dir.file("c.rla");
  const std::vector<uint8_t> bytes = empty_file(path, 1);
  EXPECT_EQ(std::count(bytes.begin() + 44, bytes.begin() + 140, 0), 96);
  ORX_OBJECT *object = reader_object(path);
  ASSERT_EQ(ORX_rla_r_open(object), 1);
  ORX_INFO fresh;
  ORX_info_init(&fresh);
  const float *read[] = {object->info.red, object->info.green, object->info.blue, object->info.white};
  const float *placeholder[] = {fresh.red, fresh.green, fresh.blue, fresh.white};
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(std::vector<float>(read[i], read[i] + 3), std::vector<float>(placeholder[i], placeholder[i] + 3));
  ORX_info_cleanup(&fresh, 0);
  EXPECT_EQ(object->close(object, 0), 0);
}

TEST_F(RlaWriter, WritesExactPacketsPatchesTheTableAndStampsTheTime) {
  const std::string path = dir.file("runs.rla");
  const ImageShape shape{{0, 299, 0, 1}, {0, 299, 0, 1}, {1, ORX_C_INTEGER, 8}};
  ORX_OBJECT *object = writer_object(path, {shape});
  ASSERT_EQ(ORX_rla_w_open(object), 1);
  void **buffer = orx__chan_alloc(&object->info.images[0], 300, "test");
  std::memset(buffer[0], 0x5a, 300);
  ASSERT_EQ(object->scan(object->private_cell[0], 0, buffer), 0);
  for (int x = 0; x < 129; ++x) static_cast<uint8_t *>(buffer[0])[x] = static_cast<uint8_t>(x);
  for (int x = 129; x < 300; ++x) static_cast<uint8_t *>(buffer[0])[x] = 7;
  ASSERT_EQ(object->scan(object->private_cell[0], 1, buffer), 0);
  orx__chan_free(buffer);
  ASSERT_EQ(object->close(object, 0), 0);

  const std::vector<uint8_t> bytes = load(path);
  EXPECT_EQ(be32(bytes, 736), 0u);  // a single image
  EXPECT_STREQ(reinterpret_cast<const char *>(bytes.data() + 614), "00:00:00");
  const uint32_t row0 = be32(bytes, 740);
  const uint32_t row1 = be32(bytes, 744);
  EXPECT_EQ(row0, 748u);
  const std::vector<uint8_t> runs = {0, 6, 127, 0x5a, 127, 0x5a, 43, 0x5a};
  EXPECT_TRUE(std::equal(runs.begin(), runs.end(), bytes.begin() + row0));
  EXPECT_EQ(row1, row0 + runs.size());
  // 129 differing bytes: a full literal of 128, a literal of 1, then the run of 171.
  std::vector<uint8_t> chunk = {0x80};
  for (int x = 0; x < 128; ++x) chunk.push_back(static_cast<uint8_t>(x));
  chunk.insert(chunk.end(), {0xff, 128, 127, 7, 42, 7});
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + row1 + 2, bytes.end()), chunk);
}

TEST_F(RlaWriter, RowsGoStrictlyInOrderFromTheWindowBottom) {
  const ImageShape shape{.window = {0, 3, 2, 6}, .active = {0, 3, 3, 4}};
  ORX_OBJECT *object = writer_object(dir.file("order.rla"), {shape});
  ASSERT_EQ(ORX_rla_w_open(object), 1);
  void **buffer = orx__chan_alloc(&object->info.images[0], 4, "test");
  ErrorCapture errors;
  EXPECT_EQ(object->scan(object->private_cell[0], 0, buffer), ORX_E_BAD_SCANLINE);
  EXPECT_EQ(object->scan(object->private_cell[0], 2, buffer), 0);  // outside the active rows
  EXPECT_EQ(object->scan(object->private_cell[0], 3, buffer), 0);
  EXPECT_EQ(object->scan(object->private_cell[0], 5, buffer), ORX_E_BAD_SCANLINE);
  EXPECT_TRUE(errors.failed_with(ORX_E_BAD_SCANLINE, Msg::kBadScanline));
  EXPECT_EQ(object->scan(object->private_cell[0], 4, buffer), 0);
  orx__chan_free(buffer);
  EXPECT_EQ(object->close(object, 0), 0);
}

TEST_F(RlaWriter, FloatChannelsAreWrittenThirtyTwoBitsWideInHostOrder) {
  const std::string path = dir.file("float.rla");
  const ImageShape shape{
      {0, 1, 0, 0}, {0, 1, 0, 0}, {1, ORX_C_FLOAT, 16}, {}, {1, ORX_C_DOUBLE, 8}};
  ORX_OBJECT *object = writer_object(path, {shape});
  ASSERT_EQ(ORX_rla_w_open(object), 1);
  EXPECT_EQ(object->info.images[0].image.bits, 32);  // the object says what is stored
  EXPECT_EQ(object->info.images[0].aux.bits, 64);
  void **buffer = orx__chan_alloc(&object->info.images[0], 2, "test");
  static_cast<float *>(buffer[0])[0] = 1.5f;
  ASSERT_EQ(object->scan(object->private_cell[0], 0, buffer), 0);
  orx__chan_free(buffer);
  ASSERT_EQ(object->close(object, 0), 0);
  const std::vector<uint8_t> bytes = load(path);
  EXPECT_EQ(bytes[18] * 256 + bytes[19], 4);    // float storage
  EXPECT_EQ(bytes[658] * 256 + bytes[659], 32);  // described as 32 bits
  EXPECT_EQ(bytes[664] * 256 + bytes[665], 5);   // double storage
  EXPECT_EQ(bytes[666] * 256 + bytes[667], 64);
  const uint32_t row = be32(bytes, 740);
  EXPECT_EQ(bytes[row + 1], 8);
  float first = 0;
  std::memcpy(&first, bytes.data() + row + 2, 4);
  EXPECT_EQ(first, 1.5f);
}

// A failed open takes away the file it created and nothing else: not a
// file that was there, a link, or a named pipe (as it would a device node).
// A file that cannot be created is missing; channels the format cannot
// write are reported naming the format by the type that opened it.
TEST_F(RlaWriter, FailedOpensReportAndRemoveOnlyAFileTheyCreated) {
  ErrorCapture errors;
  const std::string before = dir.file("before.rla");
  const std::string target = dir.file("target");
  const std::string link = dir.file("link.rla");
  const std::string fifo = dir.file("fifo.rla");
  save_bytes(before, {1, 2, 3});
  save_bytes(target, {4, 5, 6});
  std::filesystem::create_symlink(target, link);
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  // A reader on the pipe lets the writer's open go through without waiting.
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  const ImageShape bad{.matte = {1, 9, 8}};
  struct Case {
    std::string path;
    bool stays;
    int status;
  } cases[] = {{dir.file("no/such/dir.rla"), false, ORX_E_FIELD_MISSING},
               {dir.file("new.rla"), false, ORX_E_UNSUPPORTED},
               {before, true, ORX_E_UNSUPPORTED},
               {link, true, ORX_E_UNSUPPORTED},
               {fifo, true, ORX_E_UNSUPPORTED}};
  for (const Case &c : cases) {
    ORX_OBJECT *object = writer_object(c.path, {ImageShape{}, bad});
    object->info.type = STR_save("rlb");
    errors.clear();
    EXPECT_EQ(ORX_rla_w_open(object), 0) << c.path;
    EXPECT_EQ(orx__err, c.status);
    const bool type_report = errors.has(Msg::kMatteType, "rlb");
    EXPECT_EQ(type_report, c.status == ORX_E_UNSUPPORTED) << c.path;
    orx__free_obj(object);
    EXPECT_EQ(std::filesystem::exists(std::filesystem::symlink_status(c.path)), c.stays)
        << c.path;
  }
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_TRUE(std::filesystem::exists(target));
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
  close(reader);
}

TEST_F(RlaWriter, OutOfMemoryInTheOpenLeaksNothingAndRemovesTheFile) {
  const std::string path = dir.file("oom.rla");
  const ImageShape shape{.matte = {1, ORX_C_INTEGER, 16}};
  ErrorCapture errors;
  // The object is built outside the injection; only the open's allocations fail.
  for (long n = 1; n < 1000; ++n) {
    ORX_OBJECT *object = writer_object(path, {shape, shape});
    bool ok;
    bool fired;
    {
      FailNthAllocation fail(n);
      ok = ORX_rla_w_open(object) == 1;
      fired = fail.fired();
    }
    if (!fired) {
      ASSERT_TRUE(ok);
      EXPECT_EQ(object->close(object, 0), 0);
      EXPECT_GT(n, 3);
      break;
    }
    EXPECT_FALSE(ok);
    EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
    EXPECT_FALSE(std::filesystem::exists(path)) << n;
    orx__free_obj(object);
  }
}

TEST_F(RlaWriter, StandardOutputKeepsThePlaceholderTable) {
  const std::string path = dir.file("stdout.rla");
  std::fflush(stdout);
  const int saved = dup(1);
  std::FILE *target = std::fopen(path.c_str(), "wb");
  ASSERT_NE(target, nullptr);
  dup2(fileno(target), 1);
  const ImageShape shape{.window = {0, 3, 0, 1}, .active = {0, 3, 0, 1}};
  ORX_OBJECT *object = writer_object("/dev/stdout", {shape});
  ASSERT_EQ(ORX_rla_w_open(object), 1);
  write_all_rows_and_close(object);
  std::fflush(stdout);
  dup2(saved, 1);
  close(saved);
  std::fclose(target);
  const std::vector<uint8_t> bytes = load(path);
  ASSERT_GT(bytes.size(), 748u);
  EXPECT_EQ(be32(bytes, 740), 0u);
  EXPECT_EQ(be32(bytes, 744), 0u);
}

}  // namespace
