// The attribute list of a record against a small model: a map from (image,
// lower-case name) to (type, bytes), driven by one table of operations.
#include <cctype>
#include <cstring>
#include <map>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "orx/attributes.h"
#include "orx/err.h"
#include "support/fixtures.hpp"

namespace {

using Model = std::map<std::pair<int32_t, std::string>, std::pair<int32_t, std::string>>;

std::string lower(std::string s) {
  for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::size_t value_bytes(int32_t type, int32_t count, const void *data) {
  if (type == ORX_ATTR_STRING) return std::strlen(static_cast<const char *>(data)) + 1;
  return static_cast<std::size_t>(count) * (type == ORX_ATTR_DOUBLE ? 8 : type == ORX_ATTR_BYTES ? 1 : 4);
}

const int32_t kInts[] = {1, -2, 3, 4};
const float kFloats[] = {0.3127f, 0.329f};
const double kDouble = 1.0 / 3.0;
const unsigned char kBytes[] = {0, 1, 255, 0, 7};

struct Op {
  int32_t image;
  const char *name;
  int32_t type;   // 0: remove
  int32_t count;
  const void *data;
  int status;     // of the set, or what remove returns
};

const Op kOps[] = {
    {0, "ImageDescription", ORX_ATTR_STRING, 1, "first", 0},
    {0, "openexr:displayWindow", ORX_ATTR_INT, 4, kInts, 0},
    {0, "chromaticities", ORX_ATTR_FLOAT, 2, kFloats, 0},
    {1, "oiio:Gamma", ORX_ATTR_DOUBLE, 1, &kDouble, 0},
    {1, "ICCProfile", ORX_ATTR_BYTES, 5, kBytes, 0},
    {0, "IMAGEDESCRIPTION", ORX_ATTR_STRING, 1, "second", 0},  // replaces, any case
    {1, "ImageDescription", ORX_ATTR_INT, 1, kInts, 0},        // another image: its own
    {0, "chromaticities", 0, 0, nullptr, 1},                   // removed
    {0, "chromaticities", 0, 0, nullptr, 0},                   // already gone
    {0, "bad", ORX_ATTR_STRING, 2, "x", ORX_E_BAD_SCANLINE},   // a string is one value
    {0, "bad", 9, 1, kInts, ORX_E_BAD_SCANLINE},               // no such type
    {-1, "bad", ORX_ATTR_INT, 1, kInts, ORX_E_BAD_SCANLINE},   // no such image
    {0, "bad", ORX_ATTR_INT, 0, kInts, ORX_E_BAD_SCANLINE},
    {0, "bad", ORX_ATTR_INT, 1, nullptr, ORX_E_BAD_SCANLINE},
};

// Applies the table to info and model.
void apply(ORX_INFO &info, Model &model) {
  for (const Op &op : kOps) {
    const auto key = std::pair{op.image, lower(op.name)};
    if (op.type == 0) {
      EXPECT_EQ(ORX_attr_remove(&info, op.image, op.name), op.status) << op.name;
      model.erase(key);
      continue;
    }
    EXPECT_EQ(ORX_attr_set(&info, op.image, op.name, op.type, op.count, op.data), op.status)
        << op.name;
    if (op.status == 0)
      model[key] = {op.type, std::string(static_cast<const char *>(op.data),
                                         value_bytes(op.type, op.count, op.data))};
  }
}

// Everything the list holds equals the model, by lookup and by listing.
void expect_equal(const ORX_INFO &info, const Model &model) {
  EXPECT_EQ(ORX_attr_count(&info, ORX_ATTR_ANY_IMAGE), static_cast<int32_t>(model.size()));
  for (const auto &[key, value] : model) {
    const ORX_ATTR *a = ORX_attr_find(&info, key.first, key.second.c_str());
    ASSERT_NE(a, nullptr) << key.second;
    EXPECT_EQ(a->type, value.first);
    EXPECT_EQ(std::string(static_cast<const char *>(a->data),
                          value_bytes(a->type, a->count, a->data)),
              value.second);
  }
  int32_t listed = 0;
  for (int32_t image : {0, 1})
    for (int32_t i = 0; const ORX_ATTR *a = ORX_attr_at(&info, image, i); ++i, ++listed)
      EXPECT_EQ(model.count({image, lower(a->name)}), 1u) << a->name;
  EXPECT_EQ(listed, static_cast<int32_t>(model.size()));
  EXPECT_EQ(ORX_attr_find(&info, 2, "ImageDescription"), nullptr);
}

TEST(Attributes, ListFollowsTheModel) {
  ORX_INFO info;
  ORX_info_init(&info);
  Model model;
  apply(info, model);
  expect_equal(info, model);

  // Typed getters: the order of replacement kept, conversions as documented.
  EXPECT_STREQ(ORX_attr_at(&info, 0, 0)->name, "IMAGEDESCRIPTION");
  EXPECT_STREQ(ORX_attr_get_string(&info, 0, "imagedescription"), "second");
  EXPECT_EQ(ORX_attr_get_string(&info, 1, "ImageDescription"), nullptr);  // an int there
  int32_t i = 0;
  float f = 0;
  double d = 0;
  EXPECT_EQ(ORX_attr_get_int(&info, 1, "oiio:Gamma", &i), 0);
  EXPECT_EQ(ORX_attr_get_float(&info, 1, "oiio:Gamma", &f), 1);
  EXPECT_FLOAT_EQ(f, 1.0f / 3.0f);
  EXPECT_EQ(ORX_attr_get_double(&info, 1, "ImageDescription", &d), 1);
  EXPECT_EQ(d, 1.0);
  EXPECT_EQ(ORX_attr_get_int(&info, 0, "missing", &i), 0);

  // A copy of every image, then of one image onto another.
  ORX_INFO copy;
  ORX_info_init(&copy);
  ASSERT_EQ(ORX_attr_copy(&copy, 0, &info, ORX_ATTR_ANY_IMAGE), 0);
  expect_equal(copy, model);
  ASSERT_EQ(ORX_attr_copy(&copy, 3, &info, 1), 0);
  EXPECT_EQ(ORX_attr_count(&copy, 3), ORX_attr_count(&info, 1));

  // Keeping names and namespaces: the library's own "orx:" ones always stay.
  ASSERT_EQ(ORX_attr_set_string(&copy, 0, "orx:narrowed", "x"), 0);
  const char *const kept[] = {"imagedescription", "OPENEXR:", nullptr};
  EXPECT_EQ(ORX_attr_keep(&copy, kept), 4);  // two per image of 1 and 3
  EXPECT_EQ(ORX_attr_count(&copy, ORX_ATTR_ANY_IMAGE), 5);
  EXPECT_NE(ORX_attr_find(&copy, 0, "openexr:displayWindow"), nullptr);
  EXPECT_NE(ORX_attr_find(&copy, 0, "orx:narrowed"), nullptr);
  EXPECT_EQ(ORX_attr_find(&copy, 1, "oiio:Gamma"), nullptr);

  ORX_info_cleanup(&copy, 1);
  ORX_attr_clear(&info);
  EXPECT_EQ(ORX_attr_count(&info, ORX_ATTR_ANY_IMAGE), 0);
  EXPECT_EQ(info.reserved[0], 0u);
  ORX_info_cleanup(&info, 1);
  // A record that is not initialised has no list, whatever its reserved word holds.
  info.reserved[0] = 7;
  EXPECT_EQ(ORX_attr_find(&info, 0, "x"), nullptr);
  EXPECT_EQ(ORX_attr_set_int(&info, 0, "x", 1), ORX_E_BAD_SCANLINE);
}

TEST(Attributes, EveryAllocationFailureLeavesTheListWhole) {
  orx::test::for_each_allocation_failure([] {
    ORX_INFO info;
    ORX_info_init(&info);
    Model model;
    bool all = true;
    for (const Op &op : kOps) {
      if (op.type == 0 || op.status != 0) continue;
      const int status = ORX_attr_set(&info, op.image, op.name, op.type, op.count, op.data);
      if (status == 0)
        model[{op.image, lower(op.name)}] = {
            op.type, std::string(static_cast<const char *>(op.data),
                                 value_bytes(op.type, op.count, op.data))};
      EXPECT_TRUE(status == 0 || (status == ORX_E_NO_MEMORY && orx__err == ORX_E_NO_MEMORY));
      all = all && status == 0;
    }
    expect_equal(info, model);  // the failed sets changed nothing
    ORX_info_cleanup(&info, 1);
    return all;
  });
}

}  // namespace
