// Reports, handler chains, masks, counters and the ring of recent reports.
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "err/heap.hpp"
#include "err/report_internal.hpp"
#include "err/status_word.hpp"
#include "res/catalogue.hpp"
#include "platform/platform.hpp"
#include "util/node_pool.hpp"

extern "C" {
ORX_API void *orx__msg_cat = nullptr;
}

namespace orx::err {
namespace {

constexpr int kSeverities = 5;
constexpr int kRing = 16;
constexpr std::size_t kMessageBuffer = 32768;
constexpr std::size_t kRecordMessage = 256;

constexpr std::array<const char *, kSeverities> kSeverityNames = {
    "DEBUG", "INFORMATION", "WARNING", "ERROR", "FATAL"};

struct State {
  int global_mask = 0;
  // DEBUG starts masked, so traces stay silent until the host asks for them.
  std::array<unsigned char, kSeverities> severity_mask = {1, 0, 0, 0, 0};
  std::array<uint32_t, kSeverities> counters = {};
  ERR_HANDLER_NODE *global_chain = nullptr;
  std::array<ERR_RECORD *, kRing> ring = {};
  int ring_index = kRing - 1;  // the first report lands in slot 0
  util::NodePool nodes;
  int mp_gate = 0;
  int mp_value = 0;
  // ERR_printf and ERR_report_cat each describe their newest report with one
  // static record and one static buffer.
  ERR_RECORD printf_record = {};
  ERR_RECORD cat_record = {};
  char printf_buffer[kMessageBuffer] = {};
  char cat_buffer[kMessageBuffer] = {};
};
State g;

// Reports may come from several threads at once (each thread failing on its
// own image object): one report at a time goes through the shared buffers,
// the ring and the handlers.  Recursive, because a handler may report.
platform::Mutex &report_gate() {
  static platform::Mutex gate(platform::Mutex::kRecursive);
  return gate;
}

bool valid_severity(int s) { return s >= 0 && s < kSeverities; }

bool severity_masked(int s) { return valid_severity(s) && g.severity_mask[s] != 0; }

void count(int s) {
  if (valid_severity(s)) ++g.counters[s];
}

void remember(ERR_RECORD *record) {
  g.ring_index = (g.ring_index + 1) % kRing;
  g.ring[g.ring_index] = record;
}

ERR_HANDLER_NODE **chain_of(ERR_RECORD *record) {
  return record != nullptr ? &record->chain : &g.global_chain;
}

// Runs the record's chain, its own handler, the global chain and finally the
// default handler, stopping at the first handler that returns 0.
int deliver(ERR_RECORD *record, const char *name, int severity, const char *message) {
  int result = 1;
  for (ERR_HANDLER_NODE *n = record->chain; n != nullptr; n = n->next) {
    result = n->handler(name, severity, message, record, n->data);
    if (result == 0) return 0;
  }
  if (record->handler != nullptr) {
    result = record->handler(name, severity, message, record, 0);
    if (result == 0) return 0;
  }
  for (ERR_HANDLER_NODE *n = g.global_chain; n != nullptr; n = n->next) {
    result = n->handler(name, severity, message, record, n->data);
    if (result == 0) return 0;
  }
  return ERR_def_handler(name, severity, message, record, 0);
}

// The common path of ERR_report_cat and ERR_printf.  Handlers get the
// default format as the report's name even when a catalogue supplied the
// text, so a handler that recognises reports by name works in any language.
int report_plain(ERR_RECORD *record, char *buffer, int severity, const char *format,
                 va_list args, const char *text = nullptr) {
  platform::Lock hold(report_gate());
  if (text == nullptr) text = format;
  if (text == nullptr) text = "";
  if (g.global_mask != 0 || severity_masked(severity)) {
    // Masked, a failure still explains itself to its own thread.
    if (severity >= ERR_ERROR) {
      char message[kRecordMessage];
      std::vsnprintf(message, sizeof message, text, args);
      note_report(severity, message);
    }
    return 0;
  }
  count(severity);
  std::vsnprintf(buffer, kMessageBuffer, text, args);
  note_report(severity, buffer);
  record->severity = static_cast<unsigned char>(severity);
  record->name = format;
  record->format = buffer;
  remember(record);
  return deliver(record, format, severity, buffer);
}

}  // namespace

bool record_masked(const ERR_RECORD *record) {
  return g.global_mask != 0 || severity_masked(record->severity) || (record->flags & 1u) != 0;
}

int vreport_cat(void *catalogue, int set, int number, int severity, const char *format,
                va_list args) {
  // An open catalogue may hold the text; the default stands otherwise.
  return report_plain(&g.cat_record, g.cat_buffer, severity, format, args,
                      res::catalogue_text(catalogue, set, number, format));
}

int vreport_global(int severity, const char *format, va_list args) {
  return report_plain(&g.printf_record, g.printf_buffer, severity, format, args);
}

void reset() {
  // Declared global handlers are cancelled.
  while (ERR_can_handler(nullptr) != nullptr) {
  }
  // Pooled nodes are released too, so a reset service allocates afresh.
  while (void *node = g.nodes.free_head) {
    g.nodes.free_head = *static_cast<void **>(node);
    heap::release(node);
  }
  g.global_mask = 0;
  g.severity_mask = {1, 0, 0, 0, 0};
  g.counters = {};
  g.ring = {};
  g.ring_index = kRing - 1;
  g.mp_gate = 0;
  g.mp_value = 0;
  g.printf_record = {};
  g.cat_record = {};
  orx__err = 0;
}

}  // namespace orx::err

using orx::err::g;

extern "C" {

int ERR_report(ERR_RECORD *record, ...) {
  if (record == nullptr) return 0;
  orx::platform::Lock hold(orx::err::report_gate());
  orx::err::count(record->severity);
  ++record->count;
  if (orx::err::record_masked(record)) return 0;
  char message[orx::err::kRecordMessage];
  va_list args;
  va_start(args, record);
  orx::err::mini_format(message, sizeof message, record->format, args);
  va_end(args);
  orx::err::note_report(record->severity, message);
  orx::err::remember(record);
  orx::err::deliver(record, record->name, record->severity, message);
  return 0;
}

int ERR_report_cat(void *catalogue, int set, int number, int severity, const char *format,
                   ...) {
  va_list args;
  va_start(args, format);
  int r = orx::err::vreport_cat(catalogue, set, number, severity, format, args);
  va_end(args);
  return r;
}

int ERR_printf(int severity, const char *format, ...) {
  va_list args;
  va_start(args, format);
  int r = orx::err::report_plain(&g.printf_record, g.printf_buffer, severity, format, args);
  va_end(args);
  return r;
}

int ERR_report_errno(int errnum, const char *prefix) {
  if (errnum == 0) return 0;
  bool has_prefix = prefix != nullptr && prefix[0] != '\0';
  if (errnum > 0) {
    const char *text = std::strerror(errnum);
    return has_prefix ? ERR_printf(ERR_ERROR, "%s: %s", prefix, text)
                      : ERR_printf(ERR_ERROR, "%s", text);
  }
  return has_prefix ? ERR_printf(ERR_ERROR, "%s: error %d", prefix, errnum)
                    : ERR_printf(ERR_ERROR, "error %d", errnum);
}

int ERR_report_mp(int value, int flag) {
  if ((flag != 0 && g.mp_gate == 0) || (flag == 0 && g.mp_gate != 0)) return 0;
  if (g.mp_value != value) g.mp_value = value;
  return 1;
}

int ERR_dcl_handler(ERR_RECORD *record, ERR_HANDLER handler, intptr_t data) {
  auto *node = static_cast<ERR_HANDLER_NODE *>(
      orx::util::pool_take(&g.nodes, sizeof(ERR_HANDLER_NODE)));
  if (node == nullptr) return 0;
  ERR_HANDLER_NODE **head = orx::err::chain_of(record);
  node->next = *head;
  node->handler = handler;
  node->data = data;
  *head = node;
  return 1;
}

ERR_HANDLER ERR_can_handler(ERR_RECORD *record) {
  ERR_HANDLER_NODE **head = orx::err::chain_of(record);
  ERR_HANDLER_NODE *node = *head;
  if (node == nullptr) return nullptr;
  *head = node->next;
  ERR_HANDLER handler = node->handler;
  orx::util::pool_give_back(&g.nodes, node);
  return handler;
}

int ERR_def_handler(const char *, int severity, const char *message, ERR_RECORD *, intptr_t) {
  const char *type = ERR_type(severity);
  std::fprintf(stderr, "%s, %s\n", type, message != nullptr ? message : "");
  std::fflush(stderr);
  if (severity == ERR_FATAL) {
    char text[1024];
    std::snprintf(text, sizeof text, "%s, %s\n", type, message != nullptr ? message : "");
    orx::platform::show_fatal_message("Fatal Error", text);
    std::abort();
  }
  return 0;
}

int ERR_mask(ERR_RECORD *record) {
  if (record == nullptr) {
    int old = g.global_mask;
    g.global_mask = 1;
    return old;
  }
  int old = static_cast<int>(record->flags & 1u);
  record->flags |= 1u;
  return old;
}

int ERR_unmask(ERR_RECORD *record) {
  if (record == nullptr) {
    int old = g.global_mask;
    g.global_mask = 0;
    return old;
  }
  int old = static_cast<int>(record->flags & 1u);
  record->flags &= ~1u;
  return old;
}

int ERR_mask_s(int severity) {
  if (!orx::err::valid_severity(severity)) return 0;
  int old = g.severity_mask[severity];
  g.severity_mask[severity] = 1;
  return old;
}

int ERR_unmask_s(int severity) {
  if (!orx::err::valid_severity(severity)) return 0;
  int old = g.severity_mask[severity];
  g.severity_mask[severity] = 0;
  return old;
}

void ERR_query(const ERR_RECORD *record, int *severity, int *masked, uint32_t *count,
               const char **name, const char **format, intptr_t *info1, intptr_t *info2) {
  if (record == nullptr) return;
  if (severity) *severity = record->severity;
  if (masked) *masked = static_cast<int>(record->flags & 1u);
  if (count) *count = record->count;
  if (name) *name = record->name;
  if (format) *format = record->format;
  if (info1) *info1 = record->info1;
  if (info2) *info2 = record->info2;
}

ERR_RECORD *ERR_last(int n) {
  if (n < 0 || n >= orx::err::kRing) return nullptr;
  int slot = g.ring_index - n;
  if (slot < 0) slot += orx::err::kRing;
  return g.ring[slot];
}

const char *ERR_type(int severity) {
  return orx::err::valid_severity(severity) ? orx::err::kSeverityNames[severity] : "UNKNOWN";
}

uint32_t ERR_stats(int severity) {
  if (severity == -1) {
    uint32_t sum = 0;
    for (uint32_t c : g.counters) sum += c;
    return sum;
  }
  return orx::err::valid_severity(severity) ? g.counters[severity] : 0;
}

int ERR_compare(const char *name, const ERR_RECORD *record, int skip) {
  const char *rn = (record != nullptr && record->name != nullptr) ? record->name : "";
  if (name == nullptr) name = "";
  if (skip != 0) rn += std::strlen(rn) < 5 ? std::strlen(rn) : 5;
  std::size_t len = std::strlen(name);
  int r = len < std::strlen(rn) ? std::strncmp(name, rn, len) : std::strcmp(name, rn);
  return (r > 0) - (r < 0);
}

}  // extern "C"
