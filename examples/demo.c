/* A first host of the library: declares a handler, reports through the
 * error service at each severity and shows the counters and recent-report
 * ring that a host can inspect. */
#include <stdio.h>

#include "orx/err.h"

static int to_stdout(const char *name, int severity, const char *message,
                     struct ERR_RECORD *record, intptr_t data) {
  (void)name; (void)record; (void)data;
  printf("handler: [%s] %s\n", ERR_type(severity), message);
  fflush(stdout);
  return severity >= ERR_ERROR; /* errors also reach the default handler */
}

int main(void) {
  static ERR_RECORD record = {0, ERR_WARNING, 0, "DEMO_record", "%s has %d lines (%f%%)%c",
                              0, NULL, NULL, 0, 0, NULL};
  int i;
  ERR_dcl_handler(NULL, to_stdout, 0);
  ERR_printf(ERR_INFORMATION, "liborx demo, %d severities", 5);
  ERR_report(&record, "demo.c", 42, 12.5);
  ERR_printf(ERR_DEBUG, "masked: DEBUG starts silent");
  ERR_unmask_s(ERR_DEBUG);
  ERR_printf(ERR_DEBUG, "unmasked debug note");
  ERR_report_errno(2, "demo");
  for (i = 0; i <= ERR_FATAL; ++i) printf("%-12s %u\n", ERR_type(i), ERR_stats(i));
  printf("all          %u\n", ERR_stats(-1));
  printf("newest report: %s\n", ERR_last(0)->format);
  ERR_can_handler(NULL);
  return 0;
}
