/* liborx: every public header in one include.
 *
 *   #include <orx/orx_all.h>
 *
 * Start with orx/registry.h (open, read, write, close) and orx/orx.h (the
 * records that describe an image); orx/err.h says how failures are reported.
 * docs/host-guide.md walks through a complete host.  Including the single
 * headers instead is equivalent and builds faster.
 */
#ifndef ORX_ORX_ALL_H
#define ORX_ORX_ALL_H

#include "orx/export.h"
#include "orx/version.h"

#include "orx/err.h"
#include "orx/str.h"
#include "orx/ptr.h"
#include "orx/byt.h"

#include "orx/orx.h"
#include "orx/attributes.h"
#include "orx/plugin.h"
#include "orx/registry.h"
#include "orx/capability.h"
#include "orx/limits.h"
#include "orx/multiframe.h"
#include "orx/region.h"
#include "orx/rla.h"
#include "orx/naming.h"
#include "orx/field_merge.h"

#include "orx/imp.h"
#include "orx/texture.h"
#include "orx/operators.h"

#include "orx/fmt.h"
#include "orx/clr.h"
#include "orx/matrix.h"
#include "orx/res.h"

#endif /* ORX_ORX_ALL_H */
