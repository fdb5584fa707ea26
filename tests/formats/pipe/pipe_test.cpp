#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "formats/rla/rla_files.hpp"

namespace {

using namespace orx::test;

class PipeFormat : public ImageTest {
 protected:
  void SetUp() override {
    ImageTest::SetUp();
    ORX_exit();
    // A command that exits early must not end the test process.
    std::signal(SIGPIPE, SIG_IGN);
  }
};

ORX_OBJECT *open_pipe(const std::string &handle, const char *mode, const ImageShape *shape) {
  if (shape == nullptr) {
    Request request("pipe", handle);
    return ORX_open(&request.info, mode);
  }
  Request request("pipe", handle, describe(*shape));
  return ORX_open(&request.info, mode);
}

void expect_rows(ORX_OBJECT *object, int from) {
  const ORX_IFD &ifd = object->info.images[0];
  for (int y = from; y <= ifd.window.top; ++y) {
    void **rows = nullptr;
    ASSERT_EQ(ORX_scan_read(object, y, &rows), 0) << y;
    ASSERT_TRUE(holds_pattern(ifd, rows, y));
  }
}

// Writes the pattern of the shape to handle through the pipe format.
void write_through(const std::string &handle, const ImageShape &shape) {
  ORX_OBJECT *out = open_pipe(handle, "w", &shape);
  ASSERT_NE(out, nullptr) << orx__err;
  EXPECT_TRUE(write_rows(out));
  EXPECT_EQ(ORX_close(out), 0);
}

// Reads handle through the pipe format: the window is the shape's and the
// lines from `from` on hold the pattern.
void expect_read(const std::string &handle, const ImageShape &shape, int from) {
  ORX_OBJECT *in = open_pipe(handle, "r", nullptr);
  ASSERT_NE(in, nullptr) << orx__err;
  EXPECT_EQ(in->info.images[0].window.right, shape.window.right);
  expect_rows(in, from);
  EXPECT_EQ(ORX_close(in), 0);
}

TEST_F(PipeFormat, StandardOutputAndInputCarryImagesBackToBack) {
  ImageShape first{{0, 12, 0, 6}, {2, 10, 1, 5}, {3, ORX_C_INTEGER, 16}, {}, {}};
  ImageShape second{{0, 7, 0, 3}, {0, 7, 0, 3}, {1, ORX_C_INTEGER, 8}, {1, ORX_C_INTEGER, 8}, {}};
  const std::string file = dir_.file("out.rla");
  {
    Redirect to_file(1, ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    for (const ImageShape *shape : {&first, &second}) write_through("-", *shape);
  }
  // Both images go through one pipe, which cannot seek back: whatever the
  // first read fetched beyond its image must still be there for the second.
  const std::string bytes = slurp(file);
  ASSERT_LT(bytes.size(), 65536u);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(ends[1]);
  Redirect from_pipe(0, ends[0]);
  for (const ImageShape *shape : {&first, &second}) {
    SCOPED_TRACE(shape == &first ? "first image" : "second image");
    expect_read("-", *shape, shape->window.bottom);
  }
}

TEST_F(PipeFormat, ReadsFilesOfTheRlaWriterAndSkipsForwardButNotBack) {
  const std::string file = dir_.file("plain.rla");
  ImageShape shape;  // 10 x 6, three 8-bit channels
  write_file(file, {shape});
  ORX_OBJECT *in = open_pipe("|cat '" + file + "'", "r", nullptr);
  ASSERT_NE(in, nullptr);
  expect_rows(in, 3);  // rows 0 to 2 are read past
  ErrorCapture cap;
  void **rows = nullptr;
  EXPECT_EQ(ORX_scan_read(in, 1, &rows), ORX_E_BAD_SCANLINE);
  EXPECT_TRUE(cap.has(Msg::kBadScanline, "1")) << cap.last();
  // Seeking back is refused too, keeping the object (no reopen).
  ORX_OBJECT *kept = in;
  cap.clear();
  EXPECT_EQ(ORX_seek(&in, 2), ORX_E_BAD_SCANLINE);
  EXPECT_EQ(ORX_seek(&in, -1), ORX_E_BAD_SCANLINE);
  EXPECT_EQ(in, kept);
  EXPECT_TRUE(cap.has(Msg::kBadScanline, "2")) << cap.last();
  EXPECT_EQ(cap.size(), 2u);
  EXPECT_EQ(ORX_close(in), 0);

  // Seeking forward reads past the rows in between.
  in = open_pipe("|cat '" + file + "'", "r", nullptr);
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(ORX_seek(&in, -1), 0);
  EXPECT_EQ(ORX_seek(&in, 4), 0);
  expect_rows(in, 4);
  EXPECT_EQ(ORX_close(in), 0);

  // A plain file name is read in stream order too.
  expect_read(file, shape, 0);
}

TEST_F(PipeFormat, FailingCommandsAreReported) {
  ErrorCapture cap;
  EXPECT_EQ(open_pipe("|exit 3", "r", nullptr), nullptr);
  EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE);

  ImageShape shape;
  ORX_OBJECT *out = open_pipe("|cat > '" + dir_.file("no/such/dir/x") + "'", "w", &shape);
  if (out != nullptr) {
    write_rows(out);  // may fail already if the command has gone
    EXPECT_NE(ORX_close(out), 0);
  }
  EXPECT_TRUE(cap.has(Msg::kCannotWriteScanline) || cap.has(Msg::kCannotWriteTo)) << cap.last();
  // A command that fails after giving the whole image is reported at close.
  const std::string file = dir_.file("fine.rla");
  write_file(file, {shape});
  ORX_OBJECT *in = open_pipe("|cat '" + file + "'; exit 3", "r", nullptr);
  ASSERT_NE(in, nullptr);
  expect_rows(in, 0);
  EXPECT_EQ(ORX_close(in), ORX_E_READ);
  EXPECT_TRUE(cap.has(Msg::kCannotRead)) << cap.last();
  EXPECT_EQ(open_pipe(dir_.file("missing.pipe"), "r", nullptr), nullptr);
}

TEST_F(PipeFormat, ExhaustionLeavesNothingBehind) {
  const std::string file = dir_.file("oom.rla");
  ImageShape shape;
  write_file(file, {shape});
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  Request reading("pipe", file);
  ErrorCapture cap;
  for_each_allocation_failure([&] {
    ORX_OBJECT *in = ORX_open(&reading.info, "r");
    if (in == nullptr) return false;
    ORX_close(in);
    return true;
  });

  // Writing through a command: whatever allocation fails, the object and
  // the command are gone afterwards and nothing leaks.
  const std::string out = dir_.file("oom-out.rla");
  Request writing("pipe", "|cat > '" + out + "'", describe(shape));
  for_each_allocation_failure([&] {
    ORX_OBJECT *object = ORX_open(&writing.info, "w");
    if (object == nullptr) return false;
    const bool written = write_rows(object);
    return ORX_close(object) == 0 && written;
  });
  expect_read(out, shape, 0);
}

}  // namespace
