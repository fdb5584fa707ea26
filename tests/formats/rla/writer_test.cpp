#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "formats/rla/rla_files.hpp"

namespace {

using namespace orx::test;
using RlaWriter = RlaTest;

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
  {
    Redirect to_file(1, ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    ORX_OBJECT *object =
        writer_object("/dev/stdout", {{.window = {0, 3, 0, 1}, .active = {0, 3, 0, 1}}});
    ASSERT_EQ(ORX_rla_w_open(object), 1);
    write_all_rows_and_close(object);
  }
  const std::vector<uint8_t> bytes = load(path);
  ASSERT_GT(bytes.size(), 748u);
  EXPECT_EQ(be32(bytes, 740), 0u);
  EXPECT_EQ(be32(bytes, 744), 0u);
}

}  // namespace
