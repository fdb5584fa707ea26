// Frame sequences: the options every command that converts files by frame
// number shares (--frames, -j, --keep-going, --skip-existing, --chunk,
// --json) and the runner that applies one command to every frame, each frame
// on one of N threads with its own image objects.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

namespace orx::tool {

// The most threads -j gives (more than the cores only waits on the disk).
constexpr int kMaxJobs = 64;

struct SequenceOptions {
  std::string frames;          // "" for one file; else A, A-B, A-BxS, comma lists
  int jobs = 0;                // threads; 0: one per core
  bool keep_going = false;     // go on past failed and missing frames
  bool skip_existing = false;  // leave outputs that read back whole
  std::string chunk;           // "K/N": only the K-th of N slices
  bool json = false;           // the summary as JSON on standard output
};

// Declares the options above on a command.
void add_sequence_options(CLI::App *command, SequenceOptions *options);

// The file name of frame f in a name with a run of "#": the run becomes the
// frame number, zero-padded to the run's width.  Names without a run stay.
std::string frame_name(const std::string &pattern, int frame);

// Parses a frame list: comma-separated items A, A-B or A-BxS (every S-th
// frame from A to B), in the order given, each frame once.  False with the
// reason in *why.
bool parse_frame_list(const std::string &text, std::vector<int> *frames, std::string *why);

// Converts one file into another and returns the exit status (kOk or
// kFailed, after saying why).
using FrameJob = std::function<int(const std::string &in, const std::string &out)>;

// Runs job on in and out, or, with frames, on the names of every frame of
// the list (of the chunk, when one is given).  out_type is the output's
// format key ("" to go by its name) for reading outputs back.  Returns the
// exit status: kOk when every frame was written or left as it was.
int run_frames(const SequenceOptions &options, const std::string &in, const std::string &out,
               const std::string &out_type, const FrameJob &job);

}  // namespace orx::tool
