// The loaded library's version and the plug-in protocol it accepts, so a
// host can tell which library its loader found, whatever headers it was
// built against.
#include "orx/version.h"

#include "orx/plugin.h"

#define ORX_STRINGIFY_(x) #x
#define ORX_STRINGIFY(x) ORX_STRINGIFY_(x)

extern "C" {

ORX_API const char *ORX_version(int *major, int *minor, int *patch) {
  if (major != nullptr) *major = ORX_VERSION_MAJOR;
  if (minor != nullptr) *minor = ORX_VERSION_MINOR;
  if (patch != nullptr) *patch = ORX_VERSION_PATCH;
  return ORX_STRINGIFY(ORX_VERSION_MAJOR) "." ORX_STRINGIFY(ORX_VERSION_MINOR) "." ORX_STRINGIFY(
      ORX_VERSION_PATCH);
}

ORX_API const char *ORX_plugin_protocol(void) { return ORX_PLUGIN_VERSION; }

}  // extern "C"
