// The library's message catalogue: every message it reports, with its set,
// number, severity and default text, kept in one table so each text is
// written once.  Modules report through report() and fail() below.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace orx {

// A message's identity: set * 1000 + number.
enum class Msg : int32_t {
  // Set 902: core, formats and operators.
  kInitDatabase = 902030,
  kAccessUnknown = 902031,
  kProcessTypeInvalid = 902032,
  kSwatchDimension = 902033,
  kCannotHandleAction = 902034,
  kMipmapMismatch = 902035,
  kMipmapLoading = 902036,
  kMipmapBumpSlope = 902037,
  kMipmapLevel = 902038,
  kMipmapFiltering = 902039,
  kOpenModeUnknown = 902044,
  kInvalidType = 902051,
  kCannotOpen = 902052,
  kBadScanline = 902053,
  kCannotRead = 902055,
  kCannotWriteTo = 902056,
  kCannotWriteScanline = 902057,
  kCannotDecode = 902059,
  kNoMultipleImages = 902061,
  kAuxType = 902070,
  kAuxWidth = 902071,
  kImageType = 902072,
  kImageWidth = 902073,
  kMatteType = 902079,
  kMatteWidth = 902080,
  kCurveReduced = 902083,
  kCannotHandleRequest = 902087,
  kFieldMissing = 902088,
  kCapabilityCode = 902092,
  kNoMemory = 902094,
  kMustBeDefined = 902121,
  kIndexType = 902132,
  kIndexWidth = 902133,
  kPlaybackParams = 902166,
  kNotOurFile = 902167,
  kSetFrame = 902192,
  kCapabilityName = 902194,
  kCapabilityListName = 902195,
  kVersionProtocol = 902196,
  kPlaybackBind = 902204,
  kPlaybackGoto = 902206,
  kPlaybackPlay = 902207,
  kPlaybackStop = 902208,
  kCurveType = 902210,
  kCurveDepth = 902211,
  kCurveChannelCounts = 902212,
  kCurveChannelType = 902213,
  kCurveElementCounts = 902214,
  kLimitExceeded = 902240,
  kResNotResource = 902250,
  kResBadName = 902251,
  kResDuplicate = 902252,
  kResSyntax = 902253,
  kResRead = 902254,
  kCatEntryDropped = 902255,
  kFieldPrimaries = 902256,
  kFieldGammas = 902257,
  kFieldImageChannels = 902258,
  kFieldMatteChannels = 902259,
  kSingularMatrix = 902260,
  kDegenerateChromaticities = 902261,
  kFieldAspect = 902262,
  kFieldWindow = 902263,
  kLockedSubImage = 902264,
  kUnknownKey = 902902,
  // Set 903: configuration.
  kConfigSyntax = 903002,
  kConfigInitDatabase = 903006,
  kConfigNoMemory = 903007,
};

constexpr int msg_set(Msg m) { return static_cast<int>(m) / 1000; }
constexpr int msg_number(Msg m) { return static_cast<int>(m) % 1000; }

// Default printf format and severity of a message (null / 3 when unknown).
const char *msg_text(Msg m);
int msg_severity(Msg m);

// The messages of the table, for listing them: count, and the i-th.
std::size_t msg_count();
Msg msg_at(std::size_t i);

// Report message m through ERR_report_cat(orx__msg_cat, set, number, ...) at
// its own severity.  Returns what the handler chain returned.
int report(Msg m, ...);
int vreport(Msg m, va_list args);
// The same at an explicit severity.
int report_at(int severity, Msg m, ...);

// The failure convention of every module: set orx__err to status, report m
// at its severity, and return status.
int fail(int status, Msg m, ...);

}  // namespace orx
