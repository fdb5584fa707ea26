// "--chunk auto": the slice a job array's element takes, from the
// scheduler's variables, and the tool's refusal without them.
#include "array_slice.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "run_tool.hpp"

namespace {

// "NAME=VALUE NAME=VALUE" as an environment; a name in lower case stands
// for Slurm's SLURM_ARRAY_TASK_NAME.
orx::tool::Environment environment(const std::string &text,
                                   std::map<std::string, std::string> *vars) {
  std::istringstream words(text);
  for (std::string w; words >> w;) {
    std::string name = w.substr(0, w.find('='));
    if (std::islower(static_cast<unsigned char>(name[0]))) {
      for (char &c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      name = "SLURM_ARRAY_TASK_" + name;
    }
    (*vars)[name] = w.substr(w.find('=') + 1);
  }
  return [vars](const char *name) -> const char * {
    const auto it = vars->find(name);
    return it == vars->end() ? nullptr : it->second.c_str();
  };
}

TEST(ArraySlice, ElementsInIndexOrderTakeSlicesOneToN) {
  const struct {
    const char *env;
    int k, n;  // 0, 0: refused, and *why holds `says`
    const char *says;
  } cases[] = {
      // sbatch --array=0-7, --array=1-20, --array=10-30:5 and one of its elements alone.
      {"id=0 min=0 max=7 step=1 count=8", 1, 8, ""},
      {"id=20 min=1 max=20 step=1 count=20", 20, 20, ""},
      {"id=25 min=10 max=30 step=5 count=5", 4, 5, ""},
      {"id=3 min=3 max=3 step=1 count=1", 1, 1, ""},
      // One unknown follows from the others; two do not.
      {"id=5 max=7 step=2 count=4", 3, 4, ""},
      {"id=5 min=1 max=7 step=2", 3, 4, ""},
      {"id=5 min=1 max=7 count=4", 3, 4, ""},
      {"id=5 count=8", 0, 0, "too few of the array's variables"},
      {"id=5 min=0 step=1", 0, 0, "too few of the array's variables"},
      // --array=1,3,9: no even spacing, so no slice to guess.
      {"id=3 min=1 max=9 step=1 count=3", 0, 0, "not an evenly spaced range"},
      {"id=4 min=0 max=6 step=3 count=3", 0, 0, "not one of the array's"},
      {"id=9 min=0 step=1 count=8", 0, 0, "not one of the array's"},
      {"id=x1 min=0", 0, 0,
       "SLURM_ARRAY_TASK_ID=x1, SLURM_ARRAY_TASK_MIN=0: expected a whole number"},
      {"id=1 min=0 count=-2", 0, 0, "expected whole numbers"},
      {"id=1 min=0 step=0 count=2", 0, 0, "step must be 1 or more"},
      // Grid Engine (qsub -t 2-10:4), its non-array jobs, and Slurm first when both are set.
      {"SGE_TASK_ID=6 SGE_TASK_FIRST=2 SGE_TASK_LAST=10 SGE_TASK_STEPSIZE=4", 2, 3, ""},
      {"SGE_TASK_ID=undefined SGE_TASK_FIRST=undefined SGE_TASK_LAST=undefined", 0, 0,
       "no job array in the environment"},
      {"SGE_TASK_ID=2 SGE_TASK_FIRST=1 SGE_TASK_LAST=4 SGE_TASK_STEPSIZE=1 "
       "id=0 min=0 count=2 step=1",
       1, 2, ""},
      // Variables of schedulers that do not give the array's extent.
      {"PBS_ARRAY_INDEX=3 LSB_JOBINDEX=3", 0, 0, "no job array in the environment"},
  };
  for (const auto &c : cases) {
    std::map<std::string, std::string> vars;
    int k = 0, n = 0;
    std::string why;
    const bool ok = orx::tool::array_slice(environment(c.env, &vars), &k, &n, &why);
    EXPECT_EQ(ok, c.k != 0) << c.env << "\n" << why;
    EXPECT_EQ(k, c.k) << c.env;
    EXPECT_EQ(n, c.n) << c.env;
    EXPECT_NE(why.find(c.says), std::string::npos) << c.env << "\n" << why;
  }
}

// The tool takes the slice from the environment, and refuses in one line
// (exit 2) when no array is there, whatever the tests themselves run under.
TEST(ArraySlice, ToolTakesItsSliceFromTheEnvironment) {
  orx::test::TempDir dir;
  const std::string clean = "env -u SLURM_ARRAY_TASK_ID -u SGE_TASK_ID ";
  const auto orx = [&](const std::string &env, const std::string &args) {
    return orx::test::shell_in(dir.path(), clean + env + " '" ORX_TOOL "' " + args + " >log 2>&1");
  };
  for (int f = 1; f <= 5; ++f)
    ASSERT_EQ(orx("", "pattern in." + std::to_string(f) + ".rla --size 8x8"), 0);
  for (const auto &[command, out] :
       {std::pair<std::string, std::string>{"copy in.#.rla c.#.rla", "c."},
        {"resize in.#.rla r.#.rla --size 4x4", "r."}, {"maketx in.#.rla t.#.rla", "t."}}) {
    const std::string args = command + " --frames 1-5 --chunk auto";
    // The last of three elements: frames 4 and 5 of the five.
    EXPECT_EQ(orx("SLURM_ARRAY_TASK_ID=12 SLURM_ARRAY_TASK_MIN=10 SLURM_ARRAY_TASK_MAX=12 "
                  "SLURM_ARRAY_TASK_STEP=1 SLURM_ARRAY_TASK_COUNT=3", args + " --json"), 0)
        << command;
    EXPECT_EQ(orx::test::slurp(dir.file("log")).rfind("{\"frames\": 2, \"written\": 2,", 0), 0u)
        << command << "\n" << orx::test::slurp(dir.file("log"));
    for (int f = 1; f <= 5; ++f)
      EXPECT_EQ(std::filesystem::exists(dir.file(out + std::to_string(f) + ".rla")), f >= 4)
          << command << " frame " << f;
    EXPECT_EQ(orx("", args), 2);
    EXPECT_EQ(orx::test::slurp(dir.file("log")),
              "orx: --chunk auto: no job array in the environment (SLURM_ARRAY_TASK_ID or "
              "SGE_TASK_ID); give the slice as K/N\n");
  }
}

}  // namespace
