/* liborx: the library's version, at compile time and at run time.
 *
 * The macros give the version of the headers a host was compiled against;
 * ORX_version gives the version of the library actually loaded.  A host
 * built against major version M runs with any library of the same major
 * version (the soname is liborx.so.M); a newer minor version only adds.
 *
 *   int major;
 *   ORX_version(&major, NULL, NULL);
 *   if (major != ORX_VERSION_MAJOR) ... the wrong library was loaded
 *
 * Neither function fails, allocates, reports or touches orx__err, and both
 * may be called before ORX_init.
 */
#ifndef ORX_VERSION_H
#define ORX_VERSION_H

#include "orx/export.h"

ORX_BEGIN_DECLS

/* Version of these headers.  The build reads its version from these lines. */
#define ORX_VERSION_MAJOR 0
#define ORX_VERSION_MINOR 1
#define ORX_VERSION_PATCH 0
/* The same as one number, MAJOR * 10000 + MINOR * 100 + PATCH, for #if. */
#define ORX_VERSION_NUMBER \
  (ORX_VERSION_MAJOR * 10000 + ORX_VERSION_MINOR * 100 + ORX_VERSION_PATCH)

/* The loaded library's version as "MAJOR.MINOR.PATCH", a static string the
 * caller must not free.  Each non-null argument receives one component. */
ORX_API const char *ORX_version(int *major, int *minor, int *patch);

/* The plug-in protocol version the loaded library accepts, a static string:
 * a format plug-in's exported "version" must equal it (ORX_PLUGIN_VERSION,
 * "3.2", in orx/plugin.h) or the plug-in is reported and skipped. */
ORX_API const char *ORX_plugin_protocol(void);

ORX_END_DECLS

#endif /* ORX_VERSION_H */
