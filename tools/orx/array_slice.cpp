#include "array_slice.hpp"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace orx::tool {
namespace {

// Where a scheduler keeps the element's index and the array's first and
// last index, step and element count (nullptr: not given).
struct Scheduler {
  const char *id, *first, *last, *step, *count;
};

// In order of preference.  Grid Engine sets its variables to "undefined"
// in jobs that are not arrays.
constexpr Scheduler kSchedulers[] = {
    {"SLURM_ARRAY_TASK_ID", "SLURM_ARRAY_TASK_MIN", "SLURM_ARRAY_TASK_MAX",
     "SLURM_ARRAY_TASK_STEP", "SLURM_ARRAY_TASK_COUNT"},
    {"SGE_TASK_ID", "SGE_TASK_FIRST", "SGE_TASK_LAST", "SGE_TASK_STEPSIZE", nullptr},
};

enum class Read { kUnset, kValue, kBad };

Read read_variable(const Environment &env, const char *name, long *value) {
  const char *text = name != nullptr ? env(name) : nullptr;
  if (text == nullptr || *text == '\0' || std::strcmp(text, "undefined") == 0) return Read::kUnset;
  char *end = nullptr;
  errno = 0;
  *value = std::strtol(text, &end, 10);
  if (errno != 0 || *end != '\0' || *value < 0 || *value > INT_MAX) return Read::kBad;
  return Read::kValue;
}

// Every variable of s that is set, as "NAME=VALUE, ..." for messages.
std::string describe(const Environment &env, const Scheduler &s) {
  std::string text;
  for (const char *name : {s.id, s.first, s.last, s.step, s.count}) {
    const char *value = name != nullptr ? env(name) : nullptr;
    if (value == nullptr) continue;
    text += (text.empty() ? "" : ", ") + std::string(name) + "=" + value;
  }
  return text;
}

// The slice from s's variables; false with *why when they do not pin it.
bool slice_of(const Environment &env, const Scheduler &s, long id, int *k, int *n,
              std::string *why) {
  long first = 0, last = 0, step = 0, count = 0;
  const Read r_first = read_variable(env, s.first, &first);
  const Read r_last = read_variable(env, s.last, &last);
  const Read r_step = read_variable(env, s.step, &step);
  const Read r_count = read_variable(env, s.count, &count);
  const auto refuse = [&](const char *reason) {
    *why = describe(env, s) + ": " + reason + "; give the slice as K/N";
    return false;
  };
  if (r_first == Read::kBad || r_last == Read::kBad || r_step == Read::kBad ||
      r_count == Read::kBad)
    return refuse("expected whole numbers");
  const bool has_first = r_first == Read::kValue, has_last = r_last == Read::kValue;
  const bool has_count = r_count == Read::kValue;
  if (has_count && count < 1) return refuse("an array has one element at least");
  // Any one unknown among first, last, step and count follows from the
  // others; more than one and the extent is not known.
  constexpr const char *kUnknown = "too few of the array's variables to know its indices";
  if (r_step == Read::kUnset) {
    if (!has_first || !has_last || !has_count) return refuse(kUnknown);
    step = count == 1 ? 1 : (last - first) / (count - 1);
  }
  if (step < 1) return refuse("the array's step must be 1 or more");
  if (!has_first) {
    if (!has_last || !has_count) return refuse(kUnknown);
    first = last - (count - 1) * step;
  }
  if (!has_count) {
    if (!has_last || last < first) return refuse(kUnknown);
    count = (last - first) / step + 1;
  }
  if (first < 0 || (has_last && first + (count - 1) * step != last))
    return refuse("the array's indices are not an evenly spaced range");
  if (id < first || (id - first) % step != 0 || (id - first) / step >= count)
    return refuse("the index is not one of the array's");
  *k = static_cast<int>((id - first) / step + 1);
  *n = static_cast<int>(count);
  return true;
}

}  // namespace

bool array_slice(const Environment &env, int *k, int *n, std::string *why) {
  for (const Scheduler &s : kSchedulers) {
    long id = 0;
    switch (read_variable(env, s.id, &id)) {
      case Read::kUnset:
        continue;
      case Read::kBad:
        *why = describe(env, s) + ": expected a whole number";
        return false;
      case Read::kValue:
        return slice_of(env, s, id, k, n, why);
    }
  }
  *why = "no job array in the environment (SLURM_ARRAY_TASK_ID or SGE_TASK_ID); give the slice as K/N";
  return false;
}

}  // namespace orx::tool
