// Sequences of good and damaged frames through the orx tool on many
// threads: a damaged frame fails on its own, with its reason, and costs no
// good frame its output.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "run_tool.hpp"
#include "support/fixtures.hpp"

namespace {

namespace fs = std::filesystem;
using orx::test::slurp;

#if defined(__SANITIZE_THREAD__)
constexpr int kRepeats = 3;  // every run is checked for races as it goes
#else
constexpr int kRepeats = 20;
#endif

class OrxDamagedFrames : public orx::test::ToolTest {
 protected:
  // Frames 1..count of in.####.EXT: odd frames good, even ones a good file
  // cut to its first half.
  bool make(const std::string &ext, int count, const std::string &size = "40x30") {
    if (run("pattern good." + ext + " --size " + size + " --type int8") != 0) return false;
    const std::string bytes = slurp(dir_.file("good." + ext));
    for (int f = 1; f <= count; ++f) {
      const std::string cut = f % 2 != 0 ? bytes : bytes.substr(0, bytes.size() / 2);
      orx::test::write_text(dir_.file(name("in", f, ext)), cut);
    }
    return true;
  }
  static std::string name(const std::string &prefix, int frame, const std::string &ext) {
    char number[8];
    std::snprintf(number, sizeof number, "%04d", frame);
    return prefix + "." + number + "." + ext;
  }
  // The frames written under prefix, by frame number, with their bytes.
  std::map<std::string, std::string> written(const std::string &prefix) {
    std::map<std::string, std::string> frames;
    for (const auto &e : fs::directory_iterator(dir_.path())) {
      const std::string n = e.path().filename();
      if (n.rfind(prefix + ".", 0) == 0) frames[n.substr(prefix.size())] = slurp(e.path());
    }
    return frames;
  }
  // Runs command (with IN and OUT for the sequence names) over frames
  // 1..count on jobs threads; every failure line names its reason.
  // Textures (several images a file) are written as RLA.
  int frames(std::string command, const std::string &ext, const std::string &out, int count,
             int jobs) {
    const bool texture = command.rfind("maketx", 0) == 0;
    command.replace(command.find("IN"), 2, "in.####." + ext);
    command.replace(command.find("OUT"), 3, out + ".####." + (texture ? "rla" : ext));
    const int status = run(command + " --frames 1-" + std::to_string(count) + " -j " +
                           std::to_string(jobs) + " --keep-going");
    std::istringstream lines(log_);
    for (std::string line; std::getline(lines, line);)
      EXPECT_EQ(line.find(": failed"), std::string::npos) << command << ": " << line;
    return status;
  }
};

// The repeated run of a resize over a 36-frame sequence of EXR frames, half
// of them damaged: every run writes the frames, and the bytes, of one
// thread's run.  Wide, short frames keep the good frames' threads long in
// installing the filter, when a failure on another thread once cost them
// their frame in about one run of three.
TEST_F(OrxDamagedFrames, EightThreadsWriteWhatOneThreadWrites) {
  if (!make("exr", 36, "2000x8")) GTEST_SKIP() << "no EXR plug-in: " << log_;
  const std::string resize = "resize IN OUT --scale 0.5";
  ASSERT_EQ(frames(resize, "exr", "one", 36, 1), 2) << log_;
  const auto one = written("one");
  ASSERT_EQ(one.size(), 18u) << log_;
  for (int r = 0; r < kRepeats; ++r) {
    const std::string out = "many" + std::to_string(r);
    EXPECT_EQ(frames(resize, "exr", out, 36, 8), 2) << log_;
    ASSERT_EQ(written(out), one) << "run " << r << "\n" << log_;
  }
}

// Every frame command over good and damaged frames of every format, on one
// thread and on several (under ThreadSanitizer, a race fails the run).
TEST_F(OrxDamagedFrames, EveryCommandAndFormatOnThreads) {
  for (const std::string ext : {"rla", "png", "tif", "exr"}) {
    if (!make(ext, 8)) {
      ADD_FAILURE() << ext << ": " << log_;
      continue;
    }
    for (const std::string command :
         {"copy IN OUT --depth int16", "resize IN OUT --size 20x11", "maketx IN OUT"}) {
      SCOPED_TRACE(command + " " + ext);
      const bool texture = command.rfind("maketx", 0) == 0;
      // The resampling filter reads past a damaged RLA's missing lines.
      const int status = frames(command, ext, "one", 8, 1);
      EXPECT_EQ(frames(command, ext, "four", 8, 4), status) << log_;
      const auto one = written("one"), four = written("four");
      EXPECT_GE(one.size(), 4u) << log_;
      if (!texture) {
        EXPECT_EQ(one, four);
      } else {  // textures carry the time they were made
        EXPECT_EQ(one.size(), four.size());
        for (const auto &[frame, bytes] : one)
          EXPECT_EQ(run("diff one" + frame + " four" + frame), 0) << log_;
      }
      for (const auto &e : fs::directory_iterator(dir_.path()))
        if (e.path().filename().string().rfind("one.", 0) == 0 ||
            e.path().filename().string().rfind("four.", 0) == 0)
          fs::remove(e.path());
    }
  }
}

}  // namespace
