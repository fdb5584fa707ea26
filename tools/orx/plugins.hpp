// Loading format plug-ins for the library: every module in the directories
// of ORX_PLUGIN_PATH (":"-separated) and in lib/orx/plugins beside the
// installed library (found from the tool's own place), handed to ORX_init
// through an enumerator.
#pragma once

namespace orx::tool {

// Loads the modules and initialises the library with them; prints a warning
// for a module that cannot be loaded.  Returns ORX_init's result.
int start_library(bool verbose);
// ORX_exit, then releases the modules.
void stop_library();

}  // namespace orx::tool
