// OpenEXR files: half channels read as float of 16 bits (the library's mark
// of half precision), float as float and unsigned integer as 32-bit
// integers; R, G, B (or Y, or the first other channel) are the image
// channels, A the matte and every other channel auxiliary, every name kept in
// the "channelnames" attribute.  The window is the union of the display and
// data windows, the active window the data window, and the display window an
// attribute ("openexr:displayWindow").  Every part of a multi-part file is an
// image, its name and view kept as attributes, and so is every level of a
// mipmapped part.  Luminance/chroma files read as RGB(A), deep scanline files
// flattened front to back.  Writing stores each channel
// at the precision it holds (or half or float, when a setting forces it) and
// the compression chosen by the capability settings.
//
// Reading goes through OpenEXR's C library, which checks every chunk it
// decodes against the file (exr_reader.cpp); writing through its C++
// library (exr_writer.cpp).  This file holds the plug-in's symbols.
#include <cstdio>

#include "exr_plugin.hpp"
#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

extern "C" {

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "exr";
const char *imageExtension = ".exr";
const char *imageName = "OpenEXR";
const char *imageDescription =
    "OpenEXR: half and float channels, data and display windows, multi-part files";
const char *imageNameSyntax = "Name.####.exr";
int imageOrientation = 0;
int imageNumberOfChannels = 3;
int imageBitsPerChannel = -1;
int imageNumberOfMattes = 1;
int imageBitsPerMatte = -1;
int imageNumberOfZChannels = 1;
int imageBitsPerZChannel = -1;
int imageSupportsActiveWindow = 1;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

}  // extern "C"

namespace exr_plugin {

ORX_CAP_LIST_ENTRY compressions[] = {
    {0, const_cast<char *>("none"), 0, nullptr},  {1, const_cast<char *>("rle"), 0, nullptr},
    {2, const_cast<char *>("zips"), 0, nullptr},  {3, const_cast<char *>("zip"), 0, nullptr},
    {4, const_cast<char *>("piz"), 0, nullptr},   {5, const_cast<char *>("pxr24"), 0, nullptr},
    {6, const_cast<char *>("b44"), 0, nullptr},   {7, const_cast<char *>("b44a"), 0, nullptr},
    {8, const_cast<char *>("dwaa"), 0, nullptr},  {9, const_cast<char *>("dwab"), 0, nullptr},
    {0, nullptr, 0, nullptr},
};
ORX_CAP_LIST compression = {3, 0, compressions};  // zip

ORX_CAP_LIST_ENTRY pixel_types[] = {
    {kHalf, const_cast<char *>("half"), 0, nullptr},
    {kFloat, const_cast<char *>("float"), 0, nullptr},
    {kSource, const_cast<char *>("source"), 0, nullptr},
    {0, nullptr, 0, nullptr},
};
ORX_CAP_LIST pixel_type = {kSource, 0, pixel_types};

const char *compression_name(int method) {
  for (const ORX_CAP_LIST_ENTRY *e = compressions; e->name != nullptr; ++e)
    if (e->value == method) return e->name;
  return "unknown";
}

namespace {
ORX_CAP_ENTRY capabilities[] = {
    {kCapCompression, const_cast<char *>("compression"), 0, nullptr, 0, &compression, 0},
    {kCapPixelType, const_cast<char *>("pixel type"), 0, nullptr, 0, &pixel_type, 0},
};
}  // namespace

}  // namespace exr_plugin

// The standard library's strings and vectors throw when memory is short; no
// exception may leave the plug-in.
extern "C" int imageReadOpen(ORX_OBJECT *object) {
  try {
    return exr_plugin::read_open(object);
  } catch (...) {
    return kit_fail(ORX_E_NO_MEMORY, "exr: no memory to open %s", object->info.handle);
  }
}

extern "C" int imageWriteOpen(ORX_OBJECT *object) {
  try {
    return exr_plugin::write_open(object);
  } catch (...) {
    return kit_fail(ORX_E_NO_MEMORY, "exr: no memory to open %s", object->info.handle);
  }
}

extern "C" uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char magic[4];
  return kit_peek(name, stream, magic, 4) == 4 && magic[0] == 0x76 && magic[1] == 0x2f &&
         magic[2] == 0x31 && magic[3] == 0x01;
}

extern "C" void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second,
                                int32_t *count) {
  *table = exr_plugin::capabilities;
  *first = 2;
  *second = 0;
  *count = 2;
}
