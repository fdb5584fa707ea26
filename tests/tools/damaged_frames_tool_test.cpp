// Sequences of good and damaged frames through the orx tool on many
// threads: a damaged frame fails on its own, with its reason, and costs no
// good frame its output.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
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
  // in.0001.EXT .. in.COUNT.EXT: odd frames good, even ones cut in half.
  bool make(const std::string &ext, int count, const std::string &size = "40x30",
            const std::string &type = "int8") {
    if (run("pattern good." + ext + " --size " + size + " --type " + type) != 0) return false;
    const std::string bytes = slurp(dir_.file("good." + ext));
    for (int f = 1; f <= count; ++f) {
      char name[32];
      std::snprintf(name, sizeof name, "in.%04d.", f);
      const std::string cut = f % 2 != 0 ? bytes : bytes.substr(0, bytes.size() / 2);
      orx::test::write_text(dir_.file(name + ext), cut);
    }
    return true;
  }
  // Runs command over frames 1..count of in.####.EXT into OUT.####.EXT (RLA
  // for textures) on jobs threads; returns the frames written, by their
  // names after OUT, with their bytes, after checking that no failure line
  // lacks its reason.
  std::map<std::string, std::string> frames(std::string command, const std::string &ext,
                                            const std::string &out, int count, int jobs) {
    const bool texture = command.rfind("maketx", 0) == 0;
    status_ = run(command + " in.####." + ext + " " + out + ".####." + (texture ? "rla" : ext) +
                  " --frames 1-" + std::to_string(count) + " -j " + std::to_string(jobs) +
                  " --keep-going");
    EXPECT_EQ(log_.find(": failed\n"), std::string::npos) << log_;
    std::map<std::string, std::string> written;
    for (const auto &e : fs::directory_iterator(dir_.path())) {
      const std::string n = e.path().filename();
      if (n.rfind(out + ".", 0) == 0) written[n.substr(out.size())] = slurp(e.path());
    }
    return written;
  }
  int status_ = 0;
};

// The same bytes but for the elapsed time that the RLA header records
// ("hh:mm:ss"): a slow build on a busy machine may take a second longer on
// one run than the other.
bool same_but_elapsed_time(const std::string &a, const std::string &b) {
  if (a.size() != b.size()) return false;
  std::size_t first = a.size(), last = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i] != b[i]) first = std::min(first, i), last = i;
  if (first == a.size()) return true;
  if (last - first >= 8) return false;
  for (std::size_t i = first; i <= last; ++i)
    if (!std::isdigit(static_cast<unsigned char>(a[i])) ||
        !std::isdigit(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

// A resize over 36 EXR frames, half of them damaged, repeated on eight
// threads: every run writes the frames, and the bytes, of one thread's run.
// Wide, short frames keep the good frames' threads long in installing the
// filter, where a failure on another thread once cost them their frame in
// about one run of three.
TEST_F(OrxDamagedFrames, EightThreadsWriteWhatOneThreadWrites) {
  if (!make("exr", 36, "2000x8")) GTEST_SKIP() << "no EXR plug-in: " << log_;
  const auto one = frames("resize --scale 0.5", "exr", "one", 36, 1);
  ASSERT_EQ(status_, 2);
  ASSERT_EQ(one.size(), 18u) << log_;
  for (int r = 0; r < kRepeats; ++r)
    ASSERT_EQ(frames("resize --scale 0.5", "exr", "many" + std::to_string(r), 36, 8), one)
        << "run " << r << "\n" << log_;
}

// Every frame command over good and damaged frames of every format writes
// on four threads what it writes on one (under ThreadSanitizer, a race
// fails the run).
TEST_F(OrxDamagedFrames, EveryCommandAndFormatOnThreads) {
  for (const std::string ext : {"rla", "png", "tif", "exr"}) {
    ASSERT_TRUE(make(ext, 8, "40x30", ext == "rla" ? "int16 --matte" : "int8")) << ext << ": " << log_;
    for (const std::string command : {"copy --depth int16", "resize --size 20x11", "maketx"}) {
      SCOPED_TRACE(command + " " + ext);
      const auto one = frames(command, ext, "one" + ext + command[0], 8, 1);
      const int status = status_;
      const auto four = frames(command, ext, "four" + ext + command[0], 8, 4);
      EXPECT_EQ(status_, status);
      EXPECT_GE(one.size(), 4u);  // the filter reads past a damaged RLA's missing lines
      if (command != "maketx") {
        ASSERT_EQ(one.size(), four.size());
        for (const auto &[frame, bytes] : one)
          EXPECT_TRUE(same_but_elapsed_time(bytes, four.at(frame))) << frame;
      } else {  // textures carry the time they were made
        for (const auto &[frame, bytes] : one)
          EXPECT_EQ(run("diff one" + ext + "m" + frame + " four" + ext + "m" + frame), 0) << log_;
      }
    }
  }
}

}  // namespace
