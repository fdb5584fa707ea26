// The message catalogue, pinned once: the set and number, severity and
// default text of every message.  Behaviour tests elsewhere check which
// message a failure reports, never its wording.
#include <cstdio>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "err/messages.hpp"
#include "orx/res.h"
#include "res/catalogue.hpp"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

struct Pinned {
  int id;  // set * 1000 + number
  int severity;
  const char *text;
};

const Pinned kMessages[] = {
    {902030, 0, "%s, initializing database for %s request"},
    {902031, 3, "\"%s\" access not recognized"},
    {902032, 3, "Invalid image process type %s"},
    {902033, 3, "Swatch dimension incompatible with image dimension"},
    {902034, 3, "%s cannot handle the requested action"},
    {902035, 3,
     "Mismatch between texture type and texture request, %s (the pre-filtered mipmap "
     "texture's type does not match the requested type)"},
    {902036, 1, "Mipmap loading image"},
    {902037, 1, "Mipmap calculating bump slope"},
    {902038, 1, "Mipmap calculating level %d"},
    {902039, 1, "Mipmap filtering %s texture"},
    {902044, 3, "File open mode (\"%s\") not recognized; expecting \"r\" or \"w\""},
    {902051, 3,
     "Invalid type %s (either the output file format type or the channel type stored in the "
     "file is incorrect)"},
    {902052, 3, "Cannot open file %s; %s"},
    {902053, 3, "Bad scanline: %d (out of range, or not in sequence if a sequential file)"},
    {902055, 3, "Cannot read scanline %d; %s"},
    {902056, 3, "Cannot write to %s; %s"},
    {902057, 3, "Cannot write scanline %d; %s"},
    {902059, 3, "Cannot decode scanline %d"},
    {902061, 3, "%s cannot store multiple images"},
    {902070, 3, "%s cannot handle auxiliary channel type"},
    {902071, 3, "%s cannot handle auxiliary channel width"},
    {902072, 3, "%s cannot handle image channel type"},
    {902073, 3, "%s cannot handle image channel width"},
    {902079, 3, "%s cannot handle matte channel type"},
    {902080, 3, "%s cannot handle matte channel width"},
    {902083, 2, "Color response curve reduced to %d bits of precision (limit is 14 bits)"},
    {902087, 3, "%s cannot handle the requested action"},
    {902088, 3, "Required field, %s, uninitialized"},
    {902092, 2,
     "Unknown type-specific capability code (%d) specified when trying to open image file"},
    {902094, 3, "No more internal memory"},
    {902121, 3, "%s: %s must be defined"},
    {902132, 3, "%s cannot handle color index channel type"},
    {902133, 3, "%s cannot handle color index channel width"},
    {902166, 3,
     "%s: cannot set the playback parameters for this %s file; (it is not a multiframe "
     "file, or this function is unsupported for this file type)"},
    {902167, 3, "%s: This does not appear to be a Korvantel file"},
    {902192, 3,
     "%s: cannot set the current frame for this %s file; (it is not a multiframe file, or "
     "this function is unsupported for this file type)"},
    {902194, 2, "%s: no name field was found for capability %d of this image driver"},
    {902195, 2,
     "%s: no name field was found for capability %d's list entry number %d of this image "
     "driver"},
    {902196, 3,
     "%s: the version protocol of this plug-in (\"%s\") is not supported; expecting version "
     "\"%s\" but found \"%s\""},
    {902204, 3,
     "%s: cannot bind the playback window for this %s file; (it is not a multiframe file, "
     "or this function is unsupported for this file type)"},
    {902206, 3,
     "%s: cannot set the playback frame for this %s file (it is not a multiframe file, or "
     "this function is unsupported for this file type)"},
    {902207, 2,
     "%s: cannot start playback for this %s file; (it is not a multiframe file, or this "
     "function is unsupported for this file type)"},
    {902208, 3,
     "%s: cannot stop playback for this %s file; (it is not a multiframe file, or this "
     "function is unsupported for this file type)"},
    {902210, 3, "Invalid curve type %d found: must be of type ORX_C_INTEGER or ORX_C_FLOAT"},
    {902211, 3, "Invalid curve depth %d found: must be in the range %d to %d"},
    {902212, 3,
     "Incompatible response curve channel counts (channel counts must be the same for "
     "composited response curves)"},
    {902213, 3,
     "Incompatible response curve channel type (channel must be of type ORX_C_INTEGER for "
     "composited response curve)"},
    {902214, 3, "Incompatible response curve channel element counts"},
    {902240, 3,
     "%s: the image needs %llu %s, more than the limit of %llu (raise it with ORX_set_limit "
     "or %s)"},
    {902250, 3, "%s is not a resource file (%s)"},
    {902251, 3, "Invalid resource type \"%s\" or name \"%s\""},
    {902252, 3, "Duplicate resource %s \"%s\""},
    {902253, 3, "%s, line %d: %s"},
    {902254, 3, "Cannot read resource %s \"%s\" of %s; %s"},
    {902255, 2, "%s: catalogue message \"%s\" dropped (%s)"},
    {902256, 3, "Field frames have different color primaries"},
    {902257, 3, "Field frames have different gammas"},
    {902258, 3, "Field frames have different image channel properties"},
    {902259, 3, "Field frames have different matte channel properties"},
    {902260, 3, "Singular matrix cannot be inverted"},
    {902261, 3,
     "Degenerate chromaticities (a primary or the white point with y = 0, or primaries on "
     "one line)"},
    {902262, 3, "Field frames have different aspect types"},
    {902263, 3, "Field frames have different image window sizes"},
    {902264, 3, "Cannot access sub image (attempted to access a locked sub image)"},
    {902902, 3,
     "Unknown file type key (\"%s\") was specified; Ensure that the plug-in for this type "
     "is defined"},
    {903002, 3, "%s: Invalid configuration file syntax, line %d"},
    {903006, 0, "%s, initializing database for %s request"},
    {903007, 3, "No more internal memory"},
};

using MessageCatalogue = orx::test::CleanErrors;

TEST_F(MessageCatalogue, EveryMessageHasItsSetNumberSeverityAndText) {
  ASSERT_EQ(orx::msg_count(), std::size(kMessages));
  for (std::size_t i = 0; i < std::size(kMessages); ++i) {
    const Pinned &p = kMessages[i];
    const orx::Msg m = orx::msg_at(i);
    SCOPED_TRACE(p.id);
    EXPECT_EQ(orx::msg_set(m), p.id / 1000);
    EXPECT_EQ(orx::msg_number(m), p.id % 1000);
    EXPECT_EQ(orx::msg_severity(m), p.severity);
    EXPECT_STREQ(orx::msg_text(m), p.text);
  }
  const auto unknown = static_cast<orx::Msg>(902001);
  EXPECT_EQ(orx::msg_text(unknown), nullptr);
  EXPECT_EQ(orx::msg_severity(unknown), ERR_ERROR);
}

// The library's own texts written out as a catalogue: every entry is
// accepted and answers for its set and number with the same text.
TEST_F(MessageCatalogue, TheDefaultsMakeACatalogueThatChangesNothing) {
  orx::test::TempDir dir;
  const std::string source = dir.file("en.txt"), path = dir.file("en.res");
  std::FILE *out = std::fopen(source.c_str(), "w");
  ASSERT_EQ(ORX_msg_cat_write_defaults(out), 0);
  std::fclose(out);
  ASSERT_EQ(ORX_res_build_text(source.c_str(), path.c_str()), 0);
  orx::test::ErrorCapture cap;
  void *cat = ORX_msg_cat_open(path.c_str());
  ASSERT_NE(cat, nullptr);
  EXPECT_EQ(cap.size(), 0u);
  for (const Pinned &p : kMessages) {
    const char *text = orx::res::catalogue_text(cat, p.id / 1000, p.id % 1000, p.text);
    EXPECT_NE(text, p.text) << p.id;  // the catalogue's copy, not the default passed in
    EXPECT_STREQ(text, p.text);
  }
  ORX_msg_cat_close(cat);
}

}  // namespace
