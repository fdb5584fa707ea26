/* Proves the public interface from plain C: every public header compiles as
 * strict C99 and the program links against the shared library alone. */
#include <stdio.h>
#include <string.h>

#include "orx/byt.h"
#include "orx/capability.h"
#include "orx/clr.h"
#include "orx/err.h"
#include "orx/export.h"
#include "orx/fmt.h"
#include "orx/field_merge.h"
#include "orx/imp.h"
#include "orx/operators.h"
#include "orx/matrix.h"
#include "orx/texture.h"
#include "orx/limits.h"
#include "orx/multiframe.h"
#include "orx/naming.h"
#include "orx/orx.h"
#include "orx/plugin.h"
#include "orx/region.h"
#include "orx/ptr.h"
#include "orx/registry.h"
#include "orx/res.h"
#include "orx/rla.h"
#include "orx/str.h"

static int quiet(const char *name, int severity, const char *message, struct ERR_RECORD *record,
                 intptr_t data) {
  (void)name; (void)severity; (void)message; (void)record;
  ++*(int *)data;
  return 0;
}

int main(void) {
  int seen = 0;
  void *p;
  ERR_dcl_handler(NULL, quiet, (intptr_t)&seen);
  ERR_printf(ERR_ERROR, "from C %d", 7);
  if (seen != 1) return 1;
  p = ERR_malloc(16);
  if (p == NULL) return 2;
  ERR_free(p);
  if (strcmp(ERR_type(ERR_WARNING), "WARNING") != 0) return 3;
  ERR_can_handler(NULL);
  /* Exported data reached from C. */
  if (strcmp(ORX_LITERAL_HARD_FORMAT_TYPE_RAW, "raw") != 0) return 4;
  if (strcmp(ORX_LITERAL_HARD_FORMAT_TYPE_RGB, "rgb") != 0) return 5;
  printf("C interface ok\n");
  return 0;
}
