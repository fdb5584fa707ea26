// The slice of a frame list that one element of a scheduler's job array
// converts ("--chunk auto"), read from the variables the scheduler puts in
// each element's environment.  Only schedulers that give both the element's
// index and the whole array's extent as plain variables qualify: Slurm
// (SLURM_ARRAY_TASK_ID with _MIN, _MAX, _STEP, _COUNT) and Grid Engine
// (SGE_TASK_ID with SGE_TASK_FIRST, _LAST, _STEPSIZE).  Schedulers that give
// only the index (PBS Pro's PBS_ARRAY_INDEX, LSF's LSB_JOBINDEX) cannot say
// how many slices there are; their jobs give "--chunk K/N" themselves.
#pragma once

#include <functional>
#include <string>

namespace orx::tool {

// Looks up an environment variable: its value, or nullptr when unset.
using Environment = std::function<const char *(const char *name)>;

// Sets *k (from 1) and *n so that the array's elements, in index order, take
// slices 1 to N.  False with a one-line reason in *why when no array
// variables are set, or when they are malformed, contradict each other or
// leave the array's extent unknown (nothing is guessed: a wrong guess would
// convert some frames twice and others never).
bool array_slice(const Environment &env, int *k, int *n, std::string *why);

}  // namespace orx::tool
