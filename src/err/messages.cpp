#include "err/messages.hpp"

#include <algorithm>
#include <array>

#include "err/report_internal.hpp"
#include "orx/err.h"

namespace orx {
namespace {

struct Entry {
  Msg id;
  int severity;
  const char *text;
};

// Kept sorted by id for the binary search below.
constexpr std::array kCatalogue = {
    Entry{Msg::kInitDatabase, 0, "%s, initializing database for %s request"},
    Entry{Msg::kAccessUnknown, 3, "\"%s\" access not recognized"},
    Entry{Msg::kProcessTypeInvalid, 3, "Invalid image process type %s"},
    Entry{Msg::kSwatchDimension, 3, "Swatch dimension incompatible with image dimension"},
    Entry{Msg::kCannotHandleAction, 3, "%s cannot handle the requested action"},
    Entry{Msg::kMipmapMismatch, 3,
          "Mismatch between texture type and texture request, %s (the pre-filtered mipmap "
          "texture's type does not match the requested type)"},
    Entry{Msg::kMipmapLoading, 1, "Mipmap loading image"},
    Entry{Msg::kMipmapBumpSlope, 1, "Mipmap calculating bump slope"},
    Entry{Msg::kMipmapLevel, 1, "Mipmap calculating level %d"},
    Entry{Msg::kMipmapFiltering, 1, "Mipmap filtering %s texture"},
    Entry{Msg::kOpenModeUnknown, 3,
          "File open mode (\"%s\") not recognized; expecting \"r\" or \"w\""},
    Entry{Msg::kInvalidType, 3,
          "Invalid type %s (either the output file format type or the channel type stored "
          "in the file is incorrect)"},
    Entry{Msg::kCannotOpen, 3, "Cannot open file %s; %s"},
    Entry{Msg::kBadScanline, 3,
          "Bad scanline: %d (out of range, or not in sequence if a sequential file)"},
    Entry{Msg::kCannotRead, 3, "Cannot read scanline %d; %s"},
    Entry{Msg::kCannotWriteTo, 3, "Cannot write to %s; %s"},
    Entry{Msg::kCannotWriteScanline, 3, "Cannot write scanline %d; %s"},
    Entry{Msg::kCannotDecode, 3, "Cannot decode scanline %d"},
    Entry{Msg::kNoMultipleImages, 3, "%s cannot store multiple images"},
    Entry{Msg::kAuxType, 3, "%s cannot handle auxiliary channel type"},
    Entry{Msg::kAuxWidth, 3, "%s cannot handle auxiliary channel width"},
    Entry{Msg::kImageType, 3, "%s cannot handle image channel type"},
    Entry{Msg::kImageWidth, 3, "%s cannot handle image channel width"},
    Entry{Msg::kMatteType, 3, "%s cannot handle matte channel type"},
    Entry{Msg::kMatteWidth, 3, "%s cannot handle matte channel width"},
    Entry{Msg::kCurveReduced, 2,
          "Color response curve reduced to %d bits of precision (limit is 14 bits)"},
    Entry{Msg::kCannotHandleRequest, 3, "%s cannot handle the requested action"},
    Entry{Msg::kFieldMissing, 3, "Required field, %s, uninitialized"},
    Entry{Msg::kCapabilityCode, 2,
          "Unknown type-specific capability code (%d) specified when trying to open image "
          "file"},
    Entry{Msg::kNoMemory, 3, "No more internal memory"},
    Entry{Msg::kMustBeDefined, 3, "%s: %s must be defined"},
    Entry{Msg::kIndexType, 3, "%s cannot handle color index channel type"},
    Entry{Msg::kIndexWidth, 3, "%s cannot handle color index channel width"},
    Entry{Msg::kPlaybackParams, 3,
          "%s: cannot set the playback parameters for this %s file; (it is not a multiframe "
          "file, or this function is unsupported for this file type)"},
    Entry{Msg::kNotOurFile, 3, "%s: This does not appear to be a Korvantel file"},
    // The getter shares the setter's wording on purpose.
    Entry{Msg::kSetFrame, 3,
          "%s: cannot set the current frame for this %s file; (it is not a multiframe file, "
          "or this function is unsupported for this file type)"},
    Entry{Msg::kCapabilityName, 2,
          "%s: no name field was found for capability %d of this image driver"},
    Entry{Msg::kCapabilityListName, 2,
          "%s: no name field was found for capability %d's list entry number %d of this "
          "image driver"},
    Entry{Msg::kVersionProtocol, 3,
          "%s: the version protocol of this plug-in (\"%s\") is not supported; expecting "
          "version \"%s\" but found \"%s\""},
    Entry{Msg::kPlaybackBind, 3,
          "%s: cannot bind the playback window for this %s file; (it is not a multiframe "
          "file, or this function is unsupported for this file type)"},
    // No semicolon here, as in the texts hosts already match against.
    Entry{Msg::kPlaybackGoto, 3,
          "%s: cannot set the playback frame for this %s file (it is not a multiframe file, "
          "or this function is unsupported for this file type)"},
    Entry{Msg::kPlaybackPlay, 2,
          "%s: cannot start playback for this %s file; (it is not a multiframe file, or this "
          "function is unsupported for this file type)"},
    Entry{Msg::kPlaybackStop, 3,
          "%s: cannot stop playback for this %s file; (it is not a multiframe file, or this "
          "function is unsupported for this file type)"},
    Entry{Msg::kCurveType, 3,
          "Invalid curve type %d found: must be of type ORX_C_INTEGER or ORX_C_FLOAT"},
    Entry{Msg::kCurveDepth, 3, "Invalid curve depth %d found: must be in the range %d to %d"},
    Entry{Msg::kCurveChannelCounts, 3,
          "Incompatible response curve channel counts (channel counts must be the same for "
          "composited response curves)"},
    Entry{Msg::kCurveChannelType, 3,
          "Incompatible response curve channel type (channel must be of type ORX_C_INTEGER for "
          "composited response curve)"},
    Entry{Msg::kCurveElementCounts, 3, "Incompatible response curve channel element counts"},
    // A file refused before the library allocates what its header asks for.
    Entry{Msg::kLimitExceeded, 3,
          "%s: the image needs %llu %s, more than the limit of %llu (raise it with "
          "ORX_set_limit or %s)"},
    Entry{Msg::kResNotResource, 3, "%s is not a resource file (%s)"},
    Entry{Msg::kResBadName, 3, "Invalid resource type \"%s\" or name \"%s\""},
    Entry{Msg::kResDuplicate, 3, "Duplicate resource %s \"%s\""},
    Entry{Msg::kResSyntax, 3, "%s, line %d: %s"},
    Entry{Msg::kResRead, 3, "Cannot read resource %s \"%s\" of %s; %s"},
    Entry{Msg::kCatEntryDropped, 2, "%s: catalogue message \"%s\" dropped (%s)"},
    Entry{Msg::kFieldPrimaries, 3, "Field frames have different color primaries"},
    Entry{Msg::kFieldGammas, 3, "Field frames have different gammas"},
    Entry{Msg::kFieldImageChannels, 3, "Field frames have different image channel properties"},
    Entry{Msg::kFieldMatteChannels, 3, "Field frames have different matte channel properties"},
    Entry{Msg::kSingularMatrix, 3, "Singular matrix cannot be inverted"},
    Entry{Msg::kDegenerateChromaticities, 3,
          "Degenerate chromaticities (a primary or the white point with y = 0, or primaries on "
          "one line)"},
    Entry{Msg::kFieldAspect, 3, "Field frames have different aspect types"},
    Entry{Msg::kFieldWindow, 3, "Field frames have different image window sizes"},
    Entry{Msg::kLockedSubImage, 3,
          "Cannot access sub image (attempted to access a locked sub image)"},
    Entry{Msg::kUnknownKey, 3,
          "Unknown file type key (\"%s\") was specified; Ensure that the plug-in for this "
          "type is defined"},
    Entry{Msg::kConfigSyntax, 3, "%s: Invalid configuration file syntax, line %d"},
    Entry{Msg::kConfigInitDatabase, 0, "%s, initializing database for %s request"},
    Entry{Msg::kConfigNoMemory, 3, "No more internal memory"},
};

static_assert(std::is_sorted(kCatalogue.begin(), kCatalogue.end(),
                             [](const Entry &a, const Entry &b) { return a.id < b.id; }));

const Entry *find(Msg m) {
  auto it = std::lower_bound(kCatalogue.begin(), kCatalogue.end(), m,
                             [](const Entry &e, Msg id) { return e.id < id; });
  return (it != kCatalogue.end() && it->id == m) ? &*it : nullptr;
}

int vreport_at(int severity, Msg m, va_list args) {
  const Entry *e = find(m);
  return err::vreport_cat(orx__msg_cat, msg_set(m), msg_number(m), severity,
                          e ? e->text : "", args);
}

}  // namespace

const char *msg_text(Msg m) {
  const Entry *e = find(m);
  return e ? e->text : nullptr;
}

int msg_severity(Msg m) {
  const Entry *e = find(m);
  return e ? e->severity : ERR_ERROR;
}

std::size_t msg_count() { return kCatalogue.size(); }
Msg msg_at(std::size_t i) { return kCatalogue[i].id; }

int vreport(Msg m, va_list args) { return vreport_at(msg_severity(m), m, args); }

int report(Msg m, ...) {
  va_list args;
  va_start(args, m);
  int r = vreport(m, args);
  va_end(args);
  return r;
}

int report_at(int severity, Msg m, ...) {
  va_list args;
  va_start(args, m);
  int r = vreport_at(severity, m, args);
  va_end(args);
  return r;
}

int fail(int status, Msg m, ...) {
  orx__err = status;
  va_list args;
  va_start(args, m);
  vreport(m, args);
  va_end(args);
  return status;
}

}  // namespace orx
