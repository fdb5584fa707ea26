// Frame sequences through the orx tool as processes: frame lists, threads,
// failures, reruns and farm slices.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "run_tool.hpp"
#include "support/fixtures.hpp"

namespace {

namespace fs = std::filesystem;
using orx::test::slurp;

class OrxFrames : public orx::test::ToolTest {
 protected:
  void SetUp() override {
    for (int f = 1; f <= 8; ++f)
      ASSERT_EQ(run("pattern in." + std::to_string(f) + ".rla --size 48x" + std::to_string(20 + f) +
                    " --type int16 --matte"),
                0);
  }
  bool exists(const std::string &name) { return fs::exists(dir_.file(name)); }
  std::set<std::string> outputs(const std::string &prefix) {
    std::set<std::string> names;
    for (const auto &e : fs::directory_iterator(dir_.path()))
      if (e.path().filename().string().rfind(prefix, 0) == 0) names.insert(e.path().filename());
    return names;
  }
};

TEST_F(OrxFrames, ListsStepsAndRefusals) {
  EXPECT_EQ(run("copy in.#.rla a.##.rla --frames 1-8x3,2,4-5,4 -j 1"), 0) << log_;
  EXPECT_EQ(outputs("a."), (std::set<std::string>{"a.01.rla", "a.02.rla", "a.04.rla",
                                                   "a.05.rla", "a.07.rla"}));
  EXPECT_EQ(log_, "orx: 5 of 5 frames written\n");
  script({
      {"copy in.#.rla b.#.rla --frames 4-3", 2, {"expected A, A-B or A-BxS"}},
      {"copy in.#.rla b.#.rla --frames 1-", 2, {"expected A, A-B or A-BxS"}},
      {"copy in.#.rla b.#.rla --frames 1-5x0", 2, {"expected A, A-B or A-BxS"}},
      {"copy in.#.rla b.#.rla --frames 1,,2", 2, {"expected A, A-B or A-BxS"}},
      {"copy in.#.rla b.#.rla --frames 0-2000000000", 2, {"more than 1000000 frames"}},
      {"copy in.#.rla b.#.rla --frames 1-4 --chunk 0/3", 2, {"--chunk 0/3: expected K/N with 1 <= K <= N"}},
      {"copy in.#.rla b.#.rla --frames 1-4 --chunk 4/3", 2, {"expected K/N"}},
      {"copy in.#.rla b.#.rla --frames 1-4 -j 0", 2, {"-j"}},
      {"copy in.#.rla same.rla --frames 1-2", 2, {"the output name needs a run of # for the frame number"}},
  });
  EXPECT_TRUE(outputs("b.").empty() && !exists("same.rla"));
}

TEST_F(OrxFrames, FailuresAreNamedAndTheRestGoOn) {
  fs::remove(dir_.file("in.6.rla"));
  std::ofstream(dir_.file("in.3.rla")) << "not an image";
  script({
      {"copy in.#.rla j.#.rla --frames 1-8 --keep-going --json -j 2 2>/dev/null", 2,
       {"{\"frames\": 8, \"written\": 6, \"skipped\": 0, \"failed\": [3, 6], \"not_attempted\": 0}"}},
      // Without --keep-going a missing frame stops everything before it starts.
      {"copy in.#.rla s.#.rla --frames 1-8", 2, {"(--keep-going goes on with the others)"}},
      {"copy in.#.rla k.#.rla --frames 1-8 -j 3 --keep-going", 2,
       {"orx: in.#.rla: missing frames 6\n", "orx: frame 3: in.3.rla: ",
        "orx: 6 of 8 frames written; failed: 3, 6\n"}},
  });
  std::istringstream lines(log_);
  for (std::string line; std::getline(lines, line);) EXPECT_EQ(line.rfind("orx: ", 0), 0u) << line;
  EXPECT_EQ(outputs("k.").size(), 6u);
  EXPECT_TRUE(outputs("s.").empty());
}

TEST_F(OrxFrames, RerunsDoOnlyWhatIsMissingOrIncomplete) {
  ASSERT_EQ(run("copy in.#.rla r.#.rla --frames 1-8"), 0) << log_;
  std::ofstream(dir_.file("r.8.rla"), std::ios::app) << "";  // untouched
  const std::string whole = slurp(dir_.file("r.5.rla"));
  std::ofstream(dir_.file("r.5.rla"), std::ios::trunc) << whole.substr(0, whole.size() / 2);
  fs::remove(dir_.file("r.2.rla"));
  script({{"copy in.#.rla r.#.rla --frames 1-8 --skip-existing --json -j 2", 0,
            {"{\"frames\": 8, \"written\": 2, \"skipped\": 6,",
             "r.5.rla is there but does not read back whole"}}});
  EXPECT_EQ(slurp(dir_.file("r.5.rla")), whole);
  EXPECT_TRUE(exists("r.2.rla"));
}

// The slices of a farm job array cover the range once between them.
TEST_F(OrxFrames, ChunksCoverTheRangeOnce) {
  std::multiset<std::string> written;
  for (int k = 1; k <= 3; ++k) {
    const std::string prefix = "c" + std::to_string(k) + ".";
    ASSERT_EQ(run("copy in.#.rla " + prefix + "#.rla --frames 1-8 --chunk " + std::to_string(k) + "/3"),
              0)
        << log_;
    const auto mine = outputs(prefix);
    EXPECT_GE(mine.size(), 2u);
    EXPECT_LE(mine.size(), 3u);
    for (const auto &name : mine) written.insert(name.substr(prefix.size()));
  }
  EXPECT_EQ(written, (std::multiset<std::string>{"1.rla", "2.rla", "3.rla", "4.rla", "5.rla",
                                                 "6.rla", "7.rla", "8.rla"}));
  EXPECT_EQ(run("copy in.#.rla e.#.rla --frames 1-2 --chunk 2/5"), 0);  // an empty slice
  EXPECT_EQ(log_, "orx: 0 of 0 frames written\n");
}

}  // namespace
