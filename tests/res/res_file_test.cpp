#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "orx/err.h"
#include "orx/res.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using orx::test::ErrorCapture;
using orx::test::load;
using orx::test::save_bytes;
using orx::test::TempDir;
using Bytes = std::vector<unsigned char>;
using Key = std::pair<std::string, std::string>;
using ResFile = orx::test::CleanErrors;

Bytes be32(std::initializer_list<uint32_t> values) {
  Bytes out;
  for (uint32_t v : values)
    for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<unsigned char>(v >> s));
  return out;
}

std::map<Key, Bytes> random_resources(std::mt19937 &rng, int count) {
  const char *types[] = {"TEXT", "INTS", "REAL", "ERRO", "BLOB", "a~Z!"};
  std::map<Key, Bytes> out;
  while (static_cast<int>(out.size()) < count) {
    const std::string type = types[rng() % 6];
    std::string name = std::to_string(rng() % 100000);
    if (rng() % 4 == 0) name += "\"\\ \n\t\x01\xff name";
    Bytes data(rng() % 40 * 4);
    for (auto &b : data) b = static_cast<unsigned char>(rng());
    if (type == "REAL" && !data.empty()) data[0] = 0x7f, data[1] = 0xc0;  // a NaN among them
    if (type == "TEXT") data = Bytes{'h', 'i', '"', '\n', 0, 200};
    out[{type, name}] = data;
  }
  return out;
}

int save_all(const std::map<Key, Bytes> &resources, const std::string &path) {
  ORX_RES_BUILDER *b = ORX_res_builder_new();
  for (const auto &[key, data] : resources)
    EXPECT_EQ(ORX_res_add(b, key.first.c_str(), key.second.c_str(), data.data(),
                          static_cast<uint32_t>(data.size())),
              0);
  const int status = ORX_res_save(b, path.c_str());
  ORX_res_builder_free(b);
  return status;
}

// Written, read back by name and in order, dumped and built again: the same
// bytes, the same file.  The first set is typed resources whose dump reads
// plainly.
TEST_F(ResFile, ResourcesRoundTripThroughTheFileAndTheTextForm) {
  TempDir dir;
  std::mt19937 rng(7);
  const std::map<Key, Bytes> typed = {{{"INTS", "i"}, be32({1, 0xffffffffu, 42})},
                                      {{"REAL", "r"}, be32({0x3fc00000u, 0x3dcccccdu})},
                                      {{"ERRO", "902.1"}, {3, 'n', 'o', ' ', '%', 's'}},
                                      {{"DATA", "d"}, {0, 0xab}}};
  for (int count : {4, 0, 1, 50, 10000}) {
    const auto resources = count == 4 ? typed : random_resources(rng, count);
    const std::string path = dir.file("a.res");
    ASSERT_EQ(save_all(resources, path), 0);
    ORX_RES_FILE *file = ORX_res_open(path.c_str());
    ASSERT_NE(file, nullptr) << count;
    ASSERT_EQ(ORX_res_count(file), count);
    auto it = resources.begin();
    for (const ORX_RES_ENTRY *e = nullptr; (e = ORX_res_next(file, nullptr, e)) != nullptr; ++it) {
      EXPECT_EQ(Key(e->type, e->name), it->first);
      EXPECT_EQ(ORX_res_find(file, e->type, e->name), e);
      auto *bytes = static_cast<unsigned char *>(ORX_res_load(file, e));
      ASSERT_NE(bytes, nullptr);
      EXPECT_EQ(Bytes(bytes, bytes + e->size), it->second);
      ERR_free(bytes);
    }
    EXPECT_EQ(it, resources.end());
    int texts = 0;
    for (const ORX_RES_ENTRY *e = nullptr; (e = ORX_res_next(file, "TEXT", e)) != nullptr;) ++texts;
    EXPECT_EQ(texts, std::count_if(resources.begin(), resources.end(),
                                   [](const auto &r) { return r.first.first == "TEXT"; }));
    EXPECT_EQ(ORX_res_find(file, "TEXT", "no such name"), nullptr);

    const std::string text = dir.file("a.txt");
    std::FILE *out = std::fopen(text.c_str(), "w");
    ASSERT_EQ(ORX_res_dump(file, out), 0);
    std::fclose(out);
    ORX_res_close(file);
    const std::string dump = orx::test::slurp(text);
    for (const char *line : {"resource INTS \"i\"\nint 1 -1 42\n", "real 1.500000 0.100000\n",
                             "message 3 \"no %s\"\n", "hex 00ab\n"})
      EXPECT_TRUE(count != 4 || dump.find(line) != std::string::npos) << line << "\n" << dump;
    ASSERT_EQ(ORX_res_build_text(text.c_str(), dir.file("b.res").c_str()), 0) << count;
    EXPECT_EQ(load(dir.file("b.res")), load(path)) << count;
  }
}

// Every damaged file is refused with -8 (or -5 when it does not open), never
// read outside itself.
TEST_F(ResFile, DamagedFilesAreRefused) {
  TempDir dir;
  const std::string good = dir.file("good.res");
  ASSERT_EQ(save_all({{{"TEXT", "a"}, {'x', 'y'}}, {{"TEXT", "b"}, {'z'}}}, good), 0);
  const Bytes bytes = load(good);  // header 16, data 3, index 32, pool 4 + 4
  ASSERT_EQ(bytes.size(), 59u);
  ErrorCapture errors;
  const auto refused = [&](const Bytes &b, const char *what) {
    save_bytes(dir.file("bad.res"), b);
    ORX_RES_FILE *file = ORX_res_open(dir.file("bad.res").c_str());
    EXPECT_EQ(file, nullptr) << what;
    EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE) << what;
    ORX_res_close(file);
  };
  for (std::size_t n = 0; n < bytes.size(); ++n)
    refused(Bytes(bytes.begin(), bytes.begin() + n), "cut");
  struct Patch {
    std::size_t at;
    Bytes value;
    const char *what;
  } patches[] = {
      {0, {'X'}, "magic"},
      {5, {2}, "version"},
      {8, be32({3}), "count"},
      {8, be32({0xffffffffu}), "huge count"},
      {12, be32({8}), "index before the data"},
      {12, be32({0xfffffff0u}), "index beyond the file"},
      {19, {'T', 'E', 'X', ' '}, "blank in a type"},
      {23, be32({4}), "name outside the pool"},
      {23, be32({1}), "empty name"},
      {27, be32({100}), "size beyond the data"},
      {31, be32({0}), "offset in the header"},
      {39, be32({0}), "duplicate name"},
      {51, be32({3}), "pool shorter than the file"},
  };
  for (const Patch &p : patches) {
    Bytes b = bytes;
    std::copy(p.value.begin(), p.value.end(), b.begin() + static_cast<long>(p.at));
    refused(b, p.what);
  }
  Bytes longer = bytes;
  longer.push_back(0);
  refused(longer, "trailing byte");
  std::mt19937 rng(3);
  for (int i = 0; i < 2000; ++i) {
    Bytes b = bytes;
    b[rng() % b.size()] ^= static_cast<unsigned char>(1u << (rng() % 8));
    save_bytes(dir.file("flip.res"), b);
    ORX_res_close(ORX_res_open(dir.file("flip.res").c_str()));
  }
  EXPECT_EQ(ORX_res_open(dir.file("none.res").c_str()), nullptr);
  EXPECT_EQ(orx__err, ORX_E_FIELD_MISSING);
}

TEST_F(ResFile, BadNamesDuplicatesAndFailedSavesLeaveNothingBehind) {
  TempDir dir;
  ErrorCapture errors;
  ORX_RES_BUILDER *b = ORX_res_builder_new();
  for (const auto &[type, name] : std::vector<Key>{{"TXT", "a"},
                                                   {"TEXTS", "a"},
                                                   {"TE T", "a"},
                                                   {"TEXT", ""},
                                                   {"TEXT", std::string(256, 'n')}})
    EXPECT_EQ(ORX_res_add(b, type.c_str(), name.c_str(), "x", 1), ORX_E_INVALID_TYPE) << type;
  ASSERT_EQ(ORX_res_add(b, "TEXT", "a", "x", 1), 0);
  ASSERT_EQ(ORX_res_add(b, "TEXT", "a", "y", 1), 0);
  const std::string path = dir.file("keep.res");
  save_bytes(path, {'o', 'l', 'd'});
  EXPECT_EQ(ORX_res_save(b, path.c_str()), ORX_E_INVALID_TYPE);
  EXPECT_TRUE(errors.has(orx::Msg::kResDuplicate, "a"));
  ORX_res_builder_free(b);
  b = ORX_res_builder_new();
  ASSERT_EQ(ORX_res_add(b, "TEXT", "a", "x", 1), 0);
  EXPECT_EQ(ORX_res_save(b, dir.file("no/dir/x.res").c_str()), ORX_E_WRITE);
  ORX_res_builder_free(b);
  EXPECT_EQ(load(path), (Bytes{'o', 'l', 'd'}));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST_F(ResFile, TextSyntaxErrorsNameTheLine) {
  TempDir dir;
  ErrorCapture errors;
  const char *bad[] = {"text \"before\"",
                       "resource TEXT name",
                       "resource TEX \"n\"",
                       "resource TEXT \"n\"\ntext \"open",
                       "resource TEXT \"n\"\ntext \"\\q\"",
                       "resource INTS \"n\"\nint 1 2147483648",
                       "resource REAL \"n\"\nreal 1.5x",
                       "resource DATA \"n\"\nhex abc",
                       "resource DATA \"n\"\nbytes 1",
                       "resource ERRO \"n\"\nmessage 256 \"x\""};
  for (const char *text : bad) {
    std::ofstream(dir.file("t.txt")) << "# comment\n" << text << "\n";
    EXPECT_EQ(ORX_res_build_text(dir.file("t.txt").c_str(), dir.file("t.res").c_str()),
              ORX_E_UNDECODABLE)
        << text;
    EXPECT_TRUE(errors.last_is(orx::Msg::kResSyntax)) << errors.last();
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("t.res")));
}

TEST_F(ResFile, OutOfMemoryIsReportedOnceAndLeaksNothing) {
  TempDir dir;
  const std::string text = dir.file("t.txt"), out = dir.file("t.res");
  std::ofstream(text) << "resource TEXT \"a\"\ntext \"x\"\nresource INTS \"b\"\nint 1 2\n";
  orx::test::for_each_reported_allocation_failure(
      [&] { return ORX_res_build_text(text.c_str(), out.c_str()); },
      [&] {
        return !std::filesystem::exists(out) &&
               std::distance(std::filesystem::directory_iterator(dir.path()), {}) == 1;
      });
  orx::test::for_each_reported_allocation_failure([&] {
    ORX_RES_FILE *file = ORX_res_open(out.c_str());
    if (file == nullptr) return orx__err;
    void *bytes = ORX_res_load(file, ORX_res_find(file, "INTS", "b"));
    const int status = bytes != nullptr ? 0 : orx__err;
    ERR_free(bytes);
    ORX_res_close(file);
    return status;
  });
}

}  // namespace
