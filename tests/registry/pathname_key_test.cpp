#include <gtest/gtest.h>

#include <string>

#include "orx/naming.h"
#include "registry/registry_fixture.hpp"
#include "support/error_capture.hpp"

namespace {

using PathnameByKey = orx::test::RegistryTest;

std::string take(char *s) {
  std::string out = s != nullptr ? s : "(null)";
  ERR_free(s);
  return out;
}

TEST_F(PathnameByKey, UsesTheFormatsSyntaxAndExtension) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  EXPECT_EQ(take(ORX_pathname_build("rla", "shot", 7)), "shot.0007.rla");
  EXPECT_EQ(take(ORX_pathname_build(".mem", "plate", -12)), "plate.-0012.mem");
  EXPECT_EQ(take(ORX_pathname_build("pipe", "take", 123456)), "take.123456.pipe");

  // Without a name syntax the format string decides; without the
  // add-extension flag no extension is added.
  ORX_FORMAT *rla = ORX_find("rla");
  ASSERT_NE(rla, nullptr);
  char *syntax = rla->name_syntax;
  rla->name_syntax = nullptr;
  rla->add_extension = 0;
  EXPECT_EQ(take(ORX_pathname_build("rla", "shot", 7)), "shot.0007");
  rla->name_syntax = syntax;
  rla->add_extension = 1;

  orx::test::ErrorCapture cap;
  EXPECT_EQ(ORX_pathname_build("nosuch", "a", 1), nullptr);
  EXPECT_TRUE(cap.failed_with(ORX_E_INVALID_TYPE, orx::Msg::kInvalidType));
}

}  // namespace
