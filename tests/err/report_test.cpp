#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "orx/err.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using orx::test::CleanErrors;
using orx::test::ErrorCapture;

using ErrReport = CleanErrors;

ERR_RECORD make_record(int severity, const char *name, const char *format) {
  ERR_RECORD r{};
  r.severity = static_cast<unsigned char>(severity);
  r.name = name;
  r.format = format;
  return r;
}

// The masks, counters and ring of recent reports against a model, over a
// random run of reports (plain ones, printf's and the catalogue's, and
// records) and of masking and unmasking everything, one severity (in range
// or not) or one record.  A report under any mask reaches no handler and
// stays off the ring; a record still counts, in its severity's counter and
// its own, a plain report does not.  DEBUG starts masked.  The ring keeps
// the newest sixteen; plain reports of one kind share one record.
TEST_F(ErrReport, MasksCountersAndTheRingFollowAModel) {
  ErrorCapture cap;
  std::mt19937 rng(17);
  std::vector<ERR_RECORD> records = {make_record(ERR_DEBUG, "TEST_debug", "trace %d"),
                                     make_record(ERR_WARNING, "TEST_warning", "w"),
                                     make_record(ERR_ERROR, "TEST_error", "e %d")};
  bool global = false;
  bool severity[5] = {true, false, false, false, false};
  std::vector<bool> record_masked(records.size(), false);
  std::vector<uint32_t> record_count(records.size(), 0);
  uint32_t counters[5] = {};
  std::size_t delivered = 0;
  std::vector<const ERR_RECORD *> ring;  // newest first
  const ERR_RECORD *plain[2] = {};       // learnt from the ring at their first use
  const auto masked = [&](int s) { return global || (s >= 0 && s < 5 && severity[s]); };
  for (int step = 0; step < 600; ++step) {
    const int what = int(rng() % 8), s = int(rng() % 8) - 1;  // severities -1 to 6
    const std::size_t r = rng() % records.size();
    SCOPED_TRACE(testing::Message() << "step " << step << " op " << what << " severity " << s);
    if (what <= 1) {
      const int level = s < 0 || s > ERR_ERROR ? ERR_WARNING : s;  // FATAL would abort
      if (what == 0) {
        ERR_printf(level, "plain %d", step);
      } else {
        ERR_report_cat(orx__msg_cat, 902, 1, level, "plain %d", step);
      }
      if (!masked(level)) {
        ++counters[level];
        ++delivered;
        if (plain[what] == nullptr) plain[what] = ERR_last(0);
        ring.insert(ring.begin(), plain[what]);
        EXPECT_EQ(cap.last(), "plain " + std::to_string(step));
      }
    } else if (what <= 3) {
      ERR_report(&records[r], step);
      ++counters[records[r].severity];
      ++record_count[r];
      if (!masked(records[r].severity) && !record_masked[r]) {
        ++delivered;
        ring.insert(ring.begin(), &records[r]);
      }
    } else if (what == 4) {
      const bool mask = rng() % 2 != 0;
      EXPECT_EQ(mask ? ERR_mask(nullptr) : ERR_unmask(nullptr), int(global));
      global = mask;
    } else if (what == 5 || what == 6) {
      const bool valid = s >= 0 && s < 5;
      const int was = valid && severity[s];
      const bool mask = what == 5;
      EXPECT_EQ(mask ? ERR_mask_s(s) : ERR_unmask_s(s), was);
      if (valid) severity[s] = mask;
    } else {
      const bool mask = rng() % 2 != 0;
      EXPECT_EQ(mask ? ERR_mask(&records[r]) : ERR_unmask(&records[r]), int(record_masked[r]));
      record_masked[r] = mask;
    }
    ASSERT_EQ(cap.size(), delivered);
    uint32_t sum = 0;
    for (int level = 0; level < 5; ++level) {
      EXPECT_EQ(ERR_stats(level), counters[level]);
      sum += counters[level];
    }
    EXPECT_EQ(ERR_stats(-1), sum);
    EXPECT_EQ(ERR_stats(5), 0u);
    EXPECT_EQ(ERR_stats(-2), 0u);
    for (std::size_t i = 0; i < records.size(); ++i) EXPECT_EQ(records[i].count, record_count[i]);
    for (std::size_t n = 0; n < 16; ++n)
      ASSERT_EQ(ERR_last(int(n)), n < ring.size() ? ring[n] : nullptr) << n;
    EXPECT_EQ(ERR_last(16), nullptr);
    EXPECT_EQ(ERR_last(-1), nullptr);
  }
  // The plain record describes the newest plain report.
  ERR_unmask(nullptr);
  ERR_unmask_s(ERR_ERROR);
  ERR_printf(ERR_ERROR, "second %d", 2);
  ASSERT_NE(ERR_last(0), nullptr);
  EXPECT_STREQ(ERR_last(0)->format, "second 2");
  EXPECT_STREQ(ERR_last(0)->name, "second %d");
}

struct Order {
  std::vector<std::string> calls;
};

// A handler that records its tag in the Order it is given and returns result.
template <const char *Tag, int Result>
int recorder(const char *, int, const char *, ERR_RECORD *, intptr_t data) {
  reinterpret_cast<Order *>(data)->calls.push_back(Tag);
  return Result;
}
constexpr char kA[] = "a", kB[] = "b", kStop[] = "stop";
constexpr auto handler_a = recorder<kA, 1>, handler_b = recorder<kB, 1>,
               handler_stop = recorder<kStop, 0>;
Order *g_own_order = nullptr;
int own_handler(const char *, int, const char *, ERR_RECORD *, intptr_t data) {
  EXPECT_EQ(data, 0);
  g_own_order->calls.push_back("own");
  return 1;
}

TEST_F(ErrReport, HandlersRunRecordChainOwnThenGlobalNewestFirst) {
  Order order;
  g_own_order = &order;
  ErrorCapture cap;  // the oldest global handler: stops the chain last
  ERR_RECORD rec = make_record(ERR_WARNING, "TEST_chain", "msg");
  rec.handler = own_handler;
  auto data = reinterpret_cast<intptr_t>(&order);
  ERR_dcl_handler(nullptr, handler_a, data);
  ERR_dcl_handler(nullptr, handler_b, data);
  ERR_dcl_handler(&rec, handler_a, data);
  ERR_report(&rec);
  EXPECT_EQ(order.calls, (std::vector<std::string>{"a", "own", "b", "a"}));
  EXPECT_EQ(cap.size(), 1u);

  // A handler returning 0 stops the report there.
  order.calls.clear();
  ERR_dcl_handler(&rec, handler_stop, data);
  ERR_report(&rec);
  EXPECT_EQ(order.calls, (std::vector<std::string>{"stop"}));
  EXPECT_EQ(cap.size(), 1u);

  EXPECT_EQ(ERR_can_handler(&rec), handler_stop);
  EXPECT_EQ(ERR_can_handler(&rec), handler_a);
  EXPECT_EQ(ERR_can_handler(&rec), nullptr);
  EXPECT_EQ(ERR_can_handler(nullptr), handler_b);
  EXPECT_EQ(ERR_can_handler(nullptr), handler_a);
}

TEST_F(ErrReport, MiniFormatQuirks) {
  ErrorCapture cap;
  ERR_RECORD rec = make_record(ERR_ERROR, "TEST_fmt", "a%cb %d %f %s %x 100%% end%");
  ERR_report(&rec, 42, 1.5, "str");
  EXPECT_EQ(cap.last(), "ab 42 1.500000 str %x 100% end%");

  char buf[128];
  std::memset(buf, 'Z', sizeof buf);
  ERR_RECORD empty = make_record(ERR_ERROR, "TEST_empty", "");
  EXPECT_STREQ(ERR_format(buf, &empty), "");
  EXPECT_STREQ(ERR_format(buf, &rec, 7, 2.0, "s"), "ab 7 2.000000 s %x 100% end%");

  // A masked record leaves the buffer untouched, not even terminated.
  std::memset(buf, 'Z', sizeof buf);
  ERR_mask(&rec);
  ERR_format(buf, &rec, 7, 2.0, "s");
  EXPECT_EQ(buf[0], 'Z');

  // Long messages are cut, not overflowed.
  std::string big(1000, 'x');
  ERR_RECORD longrec = make_record(ERR_ERROR, "TEST_long", "%s");
  ERR_report(&longrec, big.c_str());
  EXPECT_EQ(cap.last().size(), 255u);
}

TEST_F(ErrReport, FormatFillNamesConversions) {
  char buf[256];
  ERR_RECORD rec = make_record(ERR_ERROR, "TEST_fill", "%s at %d (%f) %c %q 5%%");
  EXPECT_STREQ(ERR_format_fill(&rec, buf),
               "<string> at <integer> (<real>) <character> <unknown type> 5%");
  const char *names[] = {"file", "line", nullptr};
  rec.arg_names = names;
  EXPECT_STREQ(ERR_format_fill(&rec, buf),
               "<file> at <line> (<real>) <character> <unknown type> 5%");
  ERR_mask(nullptr);  // masks are not consulted
  EXPECT_STREQ(ERR_format_fill(&rec, buf),
               "<file> at <line> (<real>) <character> <unknown type> 5%");
}

TEST_F(ErrReport, CompareSkipsPrefixAndTreatsShortNameAsPrefix) {
  ERR_RECORD rec = make_record(ERR_ERROR, "ORX__open_failed", "");
  EXPECT_EQ(ERR_compare("ORX__open_failed", &rec, 0), 0);
  EXPECT_EQ(ERR_compare("ORX__open", &rec, 0), 0);  // shorter: prefix compare
  EXPECT_EQ(ERR_compare("open_failed", &rec, 1), 0);
  EXPECT_EQ(ERR_compare("open", &rec, 1), 0);
  EXPECT_EQ(ERR_compare("open_failed_more", &rec, 1), 1);
  EXPECT_EQ(ERR_compare("aaa", &rec, 1), -1);
  EXPECT_EQ(ERR_compare("zzz", &rec, 1), 1);
  ERR_RECORD high = make_record(ERR_ERROR, "\xe9t\xe9", "");
  EXPECT_EQ(ERR_compare("a\xe9\xe9", &high, 0), -1);  // unsigned characters
}

TEST_F(ErrReport, ErrnoReportsAndMultiProcessGate) {
  ErrorCapture cap;
  EXPECT_EQ(ERR_report_errno(0, "x"), 0);
  EXPECT_EQ(cap.size(), 0u);
  ERR_report_errno(ENOENT, "open");
  EXPECT_EQ(cap.last(), std::string("open: ") + std::strerror(ENOENT));
  EXPECT_EQ(cap.reports().back().severity, ERR_ERROR);
  ERR_report_errno(ENOENT, "");
  EXPECT_EQ(cap.last(), std::strerror(ENOENT));
  ERR_report_errno(-3, "x");
  EXPECT_EQ(cap.last(), "x: error -3");
  ERR_report_errno(-3, nullptr);
  EXPECT_EQ(cap.last(), "error -3");

  EXPECT_EQ(ERR_report_mp(12, 0), 1);
  EXPECT_EQ(ERR_report_mp(12, 1), 0);
}

TEST_F(ErrReport, QueryCopiesFieldsOut) {
  ERR_RECORD rec = make_record(ERR_WARNING, "TEST_q", "fmt");
  rec.info1 = 11;
  rec.info2 = 22;
  ERR_mask(&rec);
  ERR_report(&rec);
  int sev = -1, masked = -1;
  uint32_t count = 0;
  const char *name = nullptr, *format = nullptr;
  intptr_t i1 = 0, i2 = 0;
  ERR_query(&rec, &sev, &masked, &count, &name, &format, &i1, &i2);
  EXPECT_EQ(std::tie(sev, masked, count, name, format, i1, i2),
            std::tuple(ERR_WARNING, 1, 1u, rec.name, rec.format, 11, 22));
  ERR_query(&rec, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_STREQ(ERR_type(9), "UNKNOWN");
}

// Threads failing on their own images report at the same moment: every
// report reaches the handler whole, with its own text.
TEST_F(ErrReport, ConcurrentReportsArriveWholeOneAtATime) {
  struct Tally {
    int delivered = 0, shared = 0, garbled = 0;
  } tally;
  ERR_dcl_handler(
      nullptr,
      [](const char *name, int, const char *message, ERR_RECORD *, intptr_t data) {
        auto *t = reinterpret_cast<Tally *>(data);
        ++t->delivered;  // one report at a time: no lock needed here
        if (std::strcmp(name, "TEST_threads") == 0) {
          t->shared += std::strncmp(message, "shared ", 7) == 0;
          return 0;
        }
        int thread = -1, n = -1;
        char tail[16] = "";
        if (std::sscanf(message, "thread %d report %d %15s", &thread, &n, tail) != 3 ||
            std::strcmp(tail, std::string(static_cast<std::size_t>(thread) + 1, 'x').c_str()) != 0)
          ++t->garbled;
        return 0;
      },
      reinterpret_cast<intptr_t>(&tally));
  constexpr int kThreads = 4, kReports = 2000;
  ERR_RECORD shared = make_record(ERR_WARNING, "TEST_threads", "shared %d");
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([t, &shared] {
      const std::string tail(static_cast<std::size_t>(t) + 1, 'x');
      for (int i = 0; i < kReports; ++i) {
        ERR_printf(ERR_WARNING, "thread %d report %d %s", t, i, tail.c_str());
        if (i % 100 == 0) ERR_report(&shared, i);
      }
    });
  for (auto &t : threads) t.join();
  ERR_can_handler(nullptr);
  EXPECT_EQ(tally.garbled, 0);
  EXPECT_EQ(tally.delivered, kThreads * kReports + kThreads * (kReports / 100));
  EXPECT_EQ(tally.shared, kThreads * (kReports / 100));
  EXPECT_EQ(shared.count, static_cast<uint32_t>(kThreads * (kReports / 100)));
}

TEST_F(ErrReport, AllocationFailuresAreReportedAndTheOldBlockKept) {
  ErrorCapture cap;
  void *p = ERR_malloc(8);
  ASSERT_NE(p, nullptr);
  std::memcpy(p, "1234567", 8);
  {
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(ERR_realloc(p, 64), nullptr);
  }
  EXPECT_TRUE(cap.has_at(orx::Msg::kNoMemory, ERR_ERROR));
  EXPECT_STREQ(static_cast<char *>(p), "1234567");
  {
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(ERR_malloc(4), nullptr);
    void *empty = ERR_malloc(0);  // a zero-size block is still a block
    EXPECT_NE(empty, nullptr);
    ERR_free(empty);
  }
  EXPECT_EQ(ERR_free(p), 1);
  EXPECT_EQ(ERR_free(nullptr), 1);
  EXPECT_EQ(orx__err, 0);  // the wrappers leave the status to their callers

  // The node of a new handler.
  cap.clear();
  orx::test::FailNthAllocation fail(1);
  EXPECT_EQ(ERR_dcl_handler(nullptr, handler_a, 0), 0);
  EXPECT_TRUE(cap.has_at(orx::Msg::kNoMemory, ERR_ERROR));
}

using ErrReportDeathTest = CleanErrors;

TEST_F(ErrReportDeathTest, FatalReportPrintsAndAborts) {
  EXPECT_DEATH(ERR_printf(ERR_FATAL, "the end %d", 1), "FATAL, the end 1");
  ERR_RECORD rec = make_record(ERR_FATAL, "TEST_fatal", "record %s");
  EXPECT_DEATH(ERR_report(&rec, "fatal"), "FATAL, record fatal");
}

}  // namespace
