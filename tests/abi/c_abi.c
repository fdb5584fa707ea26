/* Proves the public interface from plain C: every public header, through the
 * umbrella header, compiles as strict C99 and the program links against the
 * shared library alone. */
#include <stdio.h>
#include <string.h>

#include "orx/orx_all.h"

static int quiet(const char *name, int severity, const char *message, struct ERR_RECORD *record,
                 intptr_t data) {
  (void)name;
  (void)severity;
  (void)message;
  (void)record;
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
  {
    /* The loaded library is the one these headers describe. */
    int major = -1, minor = -1, patch = -1;
    char expected[32];
    sprintf(expected, "%d.%d.%d", ORX_VERSION_MAJOR, ORX_VERSION_MINOR, ORX_VERSION_PATCH);
    if (strcmp(ORX_version(&major, &minor, &patch), expected) != 0) return 6;
    if (major * 10000 + minor * 100 + patch != ORX_VERSION_NUMBER) return 7;
    if (strcmp(ORX_plugin_protocol(), ORX_PLUGIN_VERSION) != 0) return 8;
  }
  {
    /* A record's attributes from C: typed values, copied in, freed with it. */
    ORX_INFO info;
    const float white[2] = {0.3127f, 0.329f};
    const ORX_ATTR *a;
    int32_t orientation = 0;
    ORX_info_init(&info);
    if (ORX_attr_set_int(&info, 0, "Orientation", 6) != 0 ||
        ORX_attr_set(&info, 0, "white", ORX_ATTR_FLOAT, 2, white) != 0)
      return 9;
    a = ORX_attr_at(&info, 0, 1);
    if (ORX_attr_get_int(&info, 0, "orientation", &orientation) != 1 || orientation != 6 ||
        a == NULL || a->count != 2 || ((const float *)a->data)[1] != white[1])
      return 10;
    ORX_info_cleanup(&info, 1);
  }
  printf("C interface ok\n");
  return 0;
}
