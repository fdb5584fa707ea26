#include "sequence.hpp"

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "array_slice.hpp"
#include "tool.hpp"

namespace orx::tool {
namespace {

// A list of a million frames is a typing slip, not a sequence.
constexpr std::size_t kMaxFrames = 1000000;

enum class Outcome : unsigned char { kPending, kWritten, kSkipped, kFailed };

int cores() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
  const unsigned n = std::thread::hardware_concurrency();
  return n > 0 ? static_cast<int>(n) : 1;
}

// Reads a decimal integer (with an optional sign) at *at; false when there
// is none or it does not fit an int.
bool read_int(const std::string &text, std::size_t *at, long *value) {
  const char *start = text.c_str() + *at;
  char *end = nullptr;
  if (*start == '\0' || *start == ' ' || *start == '+') return false;
  *value = std::strtol(start, &end, 10);
  if (end == start || *value < -2147483647L || *value > 2147483647L) return false;
  *at += static_cast<std::size_t>(end - start);
  return true;
}

// "1, 2, 5-9, 12": runs of three or more consecutive frames as A-B.
std::string frame_list_text(const std::vector<int> &frames) {
  std::string text;
  for (std::size_t i = 0; i < frames.size();) {
    std::size_t j = i;
    while (j + 1 < frames.size() && frames[j + 1] == frames[j] + 1) ++j;
    if (!text.empty()) text += ", ";
    if (j >= i + 2) {
      text += std::to_string(frames[i]) + "-" + std::to_string(frames[j]);
      i = j + 1;
    } else {
      text += std::to_string(frames[i]);
      ++i;
    }
  }
  return text;
}

bool names_a_file(const std::string &path) { return !path.empty() && path != "-" && path[0] != '|'; }

// True when path holds a complete image: every line of every image reads.
// A file an interrupted writer left is refused here and written again.
bool reads_back_whole(const std::string &path, const std::string &type) {
  struct stat s;
  if (!names_a_file(path) || stat(path.c_str(), &s) != 0 || !S_ISREG(s.st_mode)) return false;
  Image image;
  bool whole = image.open_read(path, type);
  for (int i = 0; whole && i < image.images(); ++i)
    for (int32_t y = image.ifd(i).window.bottom; whole && y <= image.ifd(i).window.top; ++y) {
      void **rows = nullptr;
      whole = image.read_row(i, y, &rows);
    }
  if (!whole) {
    say(path + " is there but does not read back whole; writing it again");
    forget_error();
  }
  return whole;
}

// Slice k (from 1) of n equal slices of the frames, sizes differing by one
// at most, in order.
bool take_chunk(const std::string &text, std::vector<int> *frames) {
  int k = 0, n = 0;
  char end = 0;
  if (std::sscanf(text.c_str(), "%d/%d%c", &k, &n, &end) != 2 || n < 1 || k < 1 || k > n)
    return false;
  const std::size_t m = frames->size();
  const std::size_t from = m * static_cast<std::size_t>(k - 1) / static_cast<std::size_t>(n);
  const std::size_t to = m * static_cast<std::size_t>(k) / static_cast<std::size_t>(n);
  *frames = std::vector<int>(frames->begin() + static_cast<std::ptrdiff_t>(from),
                             frames->begin() + static_cast<std::ptrdiff_t>(to));
  return true;
}

void show_frames_done(int done, int total) {
  const int width = 40;
  char bar[96];
  std::snprintf(bar, sizeof bar, "[%-*.*s] %d/%d frames", width, width * done / total,
                "########################################", done, total);
  show_status(bar);
}

}  // namespace

void add_sequence_options(CLI::App *command, SequenceOptions *o) {
  command->add_option("--frames", o->frames,
                      "Frames of names with a run of #: A, A-B, A-BxS (step S) or a comma list");
  command->add_option("-j,--jobs", o->jobs, "With --frames: frames at once (default: one per core)")
      ->check(CLI::Range(1, kMaxJobs));
  command->add_flag("--keep-going", o->keep_going,
                    "With --frames: go on past missing and failed frames, then exit 2");
  command->add_flag("--skip-existing", o->skip_existing,
                    "Leave outputs that are there and read back whole");
  command->add_option("--chunk", o->chunk,
                      "With --frames: only the K-th of N equal slices of the frames (K/N), or "
                      "auto: this element's slice of a Slurm or Grid Engine job array");
  command->add_flag("--json", o->json, "With --frames: print the summary as JSON");
}

std::string frame_name(const std::string &pattern, int frame) {
  std::size_t start = pattern.find('#');
  if (start == std::string::npos) return pattern;
  std::size_t end = pattern.find_first_not_of('#', start);
  if (end == std::string::npos) end = pattern.size();
  char digits[32];
  std::snprintf(digits, sizeof digits, "%0*d", static_cast<int>(end - start), frame);
  return pattern.substr(0, start) + digits + pattern.substr(end);
}

bool parse_frame_list(const std::string &text, std::vector<int> *frames, std::string *why) {
  const std::string usage = "expected A, A-B or A-BxS with A <= B and S >= 1, or a comma list of them";
  frames->clear();
  std::vector<int> seen;  // sorted, for dropping repeats
  std::size_t at = 0;
  while (true) {
    long a = 0, b = 0, step = 1;
    if (!read_int(text, &at, &a)) break;
    b = a;
    if (at < text.size() && text[at] == '-') {
      ++at;
      if (!read_int(text, &at, &b)) break;
      if (at < text.size() && text[at] == 'x') {
        ++at;
        if (!read_int(text, &at, &step)) break;
      }
    }
    if (b < a || step < 1) break;
    if (static_cast<unsigned long>((b - a) / step) >= kMaxFrames) {
      *why = "more than " + std::to_string(kMaxFrames) + " frames";
      return false;
    }
    for (long f = a; f <= b; f += step) {
      const auto place = std::lower_bound(seen.begin(), seen.end(), static_cast<int>(f));
      if (place != seen.end() && *place == f) continue;
      seen.insert(place, static_cast<int>(f));
      frames->push_back(static_cast<int>(f));
      if (frames->size() > kMaxFrames) {
        *why = "more than " + std::to_string(kMaxFrames) + " frames";
        return false;
      }
    }
    if (at == text.size()) return true;
    if (text[at] != ',') break;
    ++at;
  }
  *why = usage;
  return false;
}

int run_frames(const SequenceOptions &o, const std::string &in, const std::string &out,
               const std::string &out_type, const FrameJob &job) {
  if (o.frames.empty()) {
    if (o.skip_existing && reads_back_whole(out, out_type)) return kOk;
    return job(in, out);
  }
  std::vector<int> frames;
  std::string why;
  if (!parse_frame_list(o.frames, &frames, &why)) return complain("--frames " + o.frames, why);
  std::string chunk = o.chunk;
  if (chunk == "auto") {
    int k = 0, n = 0;
    if (!array_slice(std::getenv, &k, &n, &why)) return complain("--chunk auto", why);
    chunk = std::to_string(k) + "/" + std::to_string(n);
  }
  if (!chunk.empty() && !take_chunk(chunk, &frames))
    return complain("--chunk " + o.chunk, "expected K/N with 1 <= K <= N, or auto");
  if (frames.size() > 1 && out.find('#') == std::string::npos && names_a_file(out))
    return complain(out, "the output name needs a run of # for the frame number");

  // Missing inputs are named all at once, before anything is written.
  const std::size_t n = frames.size();
  std::vector<Outcome> outcome(n, Outcome::kPending);
  std::vector<int> missing;
  for (std::size_t i = 0; i < n; ++i) {
    const std::string name = frame_name(in, frames[i]);
    if (!names_a_file(name) || access(name.c_str(), F_OK) == 0) continue;
    outcome[i] = Outcome::kFailed;
    missing.push_back(frames[i]);
  }
  if (!missing.empty())
    complain(in, "missing frames " + frame_list_text(missing) +
                     (o.keep_going ? "" : " (--keep-going goes on with the others)"));

  std::atomic<std::size_t> next{0};
  std::atomic<bool> stop{!missing.empty() && !o.keep_going};
  std::atomic<int> done{0};
  const bool bar = isatty(2) == 1 && n > 1;
  auto work = [&] {
    while (!stop.load()) {
      const std::size_t i = next.fetch_add(1);
      if (i >= n) break;
      if (outcome[i] != Outcome::kPending) continue;
      FrameScope scope(frames[i]);
      const std::string target = frame_name(out, frames[i]);
      if (o.skip_existing && reads_back_whole(target, out_type))
        outcome[i] = Outcome::kSkipped;
      else
        outcome[i] = job(frame_name(in, frames[i]), target) == kOk ? Outcome::kWritten
                                                                   : Outcome::kFailed;
      if (outcome[i] == Outcome::kFailed && !o.keep_going) stop.store(true);
      if (bar) show_frames_done(++done, static_cast<int>(n));
    }
  };
  const std::size_t pending = static_cast<std::size_t>(
      std::count(outcome.begin(), outcome.end(), Outcome::kPending));
  const std::size_t jobs = std::min<std::size_t>(
      {static_cast<std::size_t>(o.jobs > 0 ? o.jobs : cores()), pending,
       static_cast<std::size_t>(kMaxJobs)});
  if (jobs <= 1) {
    work();
  } else {
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < jobs; ++t) threads.emplace_back(work);
    for (auto &t : threads) t.join();
  }
  if (bar) show_status("");

  std::vector<int> failed;
  std::size_t written = 0, skipped = 0, unattempted = 0;
  for (std::size_t i = 0; i < n; ++i) {
    written += outcome[i] == Outcome::kWritten;
    skipped += outcome[i] == Outcome::kSkipped;
    unattempted += outcome[i] == Outcome::kPending;
    if (outcome[i] == Outcome::kFailed) failed.push_back(frames[i]);
  }
  if (o.json) {
    std::string list;
    for (int f : failed) list += (list.empty() ? "" : ", ") + std::to_string(f);
    std::printf("{\"frames\": %zu, \"written\": %zu, \"skipped\": %zu, \"failed\": [%s], "
                "\"not_attempted\": %zu}\n",
                n, written, skipped, list.c_str(), unattempted);
  } else {
    std::string summary = std::to_string(written) + " of " + std::to_string(n) + " frames written";
    if (skipped > 0) summary += ", " + std::to_string(skipped) + " already there";
    if (!failed.empty()) summary += "; failed: " + frame_list_text(failed);
    if (unattempted > 0)
      summary += "; " + std::to_string(unattempted) +
                 " not attempted (--keep-going goes on past failures)";
    say(summary);
  }
  return failed.empty() && unattempted == 0 ? kOk : kFailed;
}

}  // namespace orx::tool
