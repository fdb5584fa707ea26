// Decoding and encoding of the RLA image header, the revision rule, the
// validity rules and the storage codes.
#include "formats/rla/header.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "orx/orx.h"
#include "platform/platform.hpp"

namespace orx::rla {
namespace {

// Every field in offset order; they must tile the header without gap or
// overlap, which the compiler checks below.
constexpr FieldSpan kAllFields[] = {
    layout::kWindowLeft,   layout::kWindowRight,  layout::kWindowBottom,  layout::kWindowTop,
    layout::kActiveLeft,   layout::kActiveRight,  layout::kActiveBottom,  layout::kActiveTop,
    layout::kFrame,        layout::kStorage,      layout::kImageChannels, layout::kMatteChannels,
    layout::kAuxChannels,  layout::kRevision,     layout::kGamma,         layout::kRedPrimary,
    layout::kGreenPrimary, layout::kBluePrimary,  layout::kWhitePoint,    layout::kJob,
    layout::kName,         layout::kDesc,         layout::kProgram,       layout::kMachine,
    layout::kUser,         layout::kDate,         layout::kAspect,        layout::kAspectRatio,
    layout::kChannelDesc,  layout::kField,        layout::kTime,          layout::kFilter,
    layout::kImageBits,    layout::kMatteStorage, layout::kMatteBits,     layout::kAuxStorage,
    layout::kAuxBits,      layout::kAuxDesc,      layout::kReserved,      layout::kNext,
};

constexpr bool fields_tile_header() {
  std::size_t at = 0;
  for (const FieldSpan &f : kAllFields) {
    if (f.offset != at) return false;
    at += f.size;
  }
  return at == kHeaderSize;
}
static_assert(fields_tile_header(), "RLA header fields must tile the 740 bytes exactly");

constexpr char kUnknown[] = "unknown";

template <FieldSpan F>
std::int16_t get16(const HeaderBytes &bytes) {
  static_assert(F.size == 2);
  return static_cast<std::int16_t>(load_be16(bytes + F.offset));
}

template <FieldSpan F>
void put16(HeaderBytes &bytes, std::int16_t value) {
  static_assert(F.size == 2);
  store_be16(bytes + F.offset, static_cast<std::uint16_t>(value));
}

// Reads a text field up to its first NUL; the rest of the array is zeroed so
// that equal texts compare equal as arrays.
template <FieldSpan F>
void get_text(const HeaderBytes &bytes, Text<F.size> &out) {
  const std::uint8_t *begin = bytes + F.offset;
  const std::uint8_t *end = std::find(begin, begin + F.size, std::uint8_t{0});
  out.fill('\0');
  std::memcpy(out.data(), begin, static_cast<std::size_t>(end - begin));
}

// Writes at most the field width less one character, so the last byte is
// always NUL; the bytes after the text stay zero.
template <FieldSpan F>
void put_text(HeaderBytes &bytes, const Text<F.size> &text) {
  const char *end = std::find(text.data(), text.data() + (F.size - 1), '\0');
  std::memcpy(bytes + F.offset, text.data(), static_cast<std::size_t>(end - text.data()));
}

template <std::size_t N>
void set_text(std::array<char, N> &out, const char *text) {
  out.fill('\0');
  std::memcpy(out.data(), text, std::min(std::strlen(text), N - 1));
}

template <FieldSpan Left, FieldSpan Right, FieldSpan Bottom, FieldSpan Top>
Window get_window(const HeaderBytes &bytes) {
  return Window{get16<Left>(bytes), get16<Right>(bytes), get16<Bottom>(bytes), get16<Top>(bytes)};
}

template <FieldSpan Left, FieldSpan Right, FieldSpan Bottom, FieldSpan Top>
void put_window(HeaderBytes &bytes, const Window &w) {
  put16<Left>(bytes, w.left);
  put16<Right>(bytes, w.right);
  put16<Bottom>(bytes, w.bottom);
  put16<Top>(bytes, w.top);
}

// The fields every layout shares (offsets 0 to 611), and the raw storage
// codes wherever they sit: the validity rules look at them in any layout.
void decode_shared(const HeaderBytes &bytes, Header *h) {
  using namespace layout;
  h->window = get_window<kWindowLeft, kWindowRight, kWindowBottom, kWindowTop>(bytes);
  h->active = get_window<kActiveLeft, kActiveRight, kActiveBottom, kActiveTop>(bytes);
  h->frame = get16<kFrame>(bytes);
  h->image.count = get16<kImageChannels>(bytes);
  h->matte.count = get16<kMatteChannels>(bytes);
  h->aux.count = get16<kAuxChannels>(bytes);
  h->image.storage = get16<kStorage>(bytes);
  h->matte.storage = get16<kMatteStorage>(bytes);
  h->aux.storage = get16<kAuxStorage>(bytes);
  h->revision = get16<kRevision>(bytes);
  get_text<kGamma>(bytes, h->gamma);
  get_text<kRedPrimary>(bytes, h->red);
  get_text<kGreenPrimary>(bytes, h->green);
  get_text<kBluePrimary>(bytes, h->blue);
  get_text<kWhitePoint>(bytes, h->white);
  h->job = static_cast<std::int32_t>(load_be32(bytes + kJob.offset));
  get_text<kName>(bytes, h->name);
  get_text<kDesc>(bytes, h->desc);
  get_text<kProgram>(bytes, h->program);
  get_text<kMachine>(bytes, h->machine);
  get_text<kUser>(bytes, h->user);
  get_text<kDate>(bytes, h->date);
  get_text<kAspect>(bytes, h->aspect);
  get_text<kAspectRatio>(bytes, h->aspect_ratio);
  get_text<kChannelDesc>(bytes, h->channel_desc);
}

// Revision -2: everything from offset 612 on is read as stored.
void decode_current(const HeaderBytes &bytes, bool, Header *h) {
  using namespace layout;
  h->field = get16<kField>(bytes);
  get_text<kTime>(bytes, h->time);
  get_text<kFilter>(bytes, h->filter);
  h->image.type = channel_type(h->image.storage);
  h->matte.type = channel_type(h->matte.storage);
  h->aux.type = channel_type(h->aux.storage);
  h->image.bits = get16<kImageBits>(bytes);
  h->matte.bits = get16<kMatteBits>(bytes);
  h->aux.bits = get16<kAuxBits>(bytes);
  get_text<kAuxDesc>(bytes, h->aux_desc);
  h->next = load_be32(bytes + kNext.offset);
}

// Any other revision: the fields from offset 612 on predate the current
// layout.  Deliberately, the field code is still honoured for "rlb" files,
// whose writers stored it there before the layout grew.
void decode_older(const HeaderBytes &bytes, bool rlb, Header *h) {
  h->field = rlb ? get16<layout::kField>(bytes) : std::int16_t{0};
  set_text(h->time, kUnknown);
  set_text(h->filter, kUnknown);
  for (ChannelGroup *group : {&h->image, &h->matte, &h->aux}) {
    group->type = ORX_C_INTEGER;
    group->bits = 8;
  }
  h->aux_desc.fill('\0');
  h->next = 0;
}

// Known revisions, each with the decoder of its layout.  Searched from the
// last entry down to the second; a revision not found falls to the first.
struct Revision {
  std::int16_t value;
  void (*decode)(const HeaderBytes &bytes, bool rlb, Header *h);
};
constexpr Revision kRevisions[] = {{0, decode_older}, {kCurrentRevision, decode_current}};

const Revision &revision_of(std::int16_t value) {
  for (std::size_t i = std::size(kRevisions) - 1; i >= 1; --i) {
    if (kRevisions[i].value == value) return kRevisions[i];
  }
  return kRevisions[0];
}

bool window_ordered(const Window &w) {
  return w.left >= 0 && w.right >= 0 && w.bottom >= 0 && w.top >= 0 && w.left <= w.right &&
         w.bottom <= w.top;
}

}  // namespace

void decode_header(const HeaderBytes &bytes, bool rlb, Header *out) {
  *out = Header{};
  decode_shared(bytes, out);
  revision_of(out->revision).decode(bytes, rlb, out);
}

void encode_header(const Header &h, HeaderBytes &bytes) {
  using namespace layout;
  std::memset(bytes, 0, kHeaderSize);
  put_window<kWindowLeft, kWindowRight, kWindowBottom, kWindowTop>(bytes, h.window);
  put_window<kActiveLeft, kActiveRight, kActiveBottom, kActiveTop>(bytes, h.active);
  put16<kFrame>(bytes, h.frame);
  put16<kStorage>(bytes, h.image.storage);
  put16<kImageChannels>(bytes, h.image.count);
  put16<kMatteChannels>(bytes, h.matte.count);
  put16<kAuxChannels>(bytes, h.aux.count);
  put16<kRevision>(bytes, kCurrentRevision);
  put_text<kGamma>(bytes, h.gamma);
  put_text<kRedPrimary>(bytes, h.red);
  put_text<kGreenPrimary>(bytes, h.green);
  put_text<kBluePrimary>(bytes, h.blue);
  put_text<kWhitePoint>(bytes, h.white);
  store_be32(bytes + kJob.offset, static_cast<std::uint32_t>(h.job));
  put_text<kName>(bytes, h.name);
  put_text<kDesc>(bytes, h.desc);
  put_text<kProgram>(bytes, h.program);
  put_text<kMachine>(bytes, h.machine);
  put_text<kUser>(bytes, h.user);
  put_text<kDate>(bytes, h.date);
  put_text<kAspect>(bytes, h.aspect);
  put_text<kAspectRatio>(bytes, h.aspect_ratio);
  put_text<kChannelDesc>(bytes, h.channel_desc);
  put16<kField>(bytes, h.field);
  put_text<kTime>(bytes, h.time);
  put_text<kFilter>(bytes, h.filter);
  put16<kImageBits>(bytes, h.image.bits);
  put16<kMatteStorage>(bytes, h.matte.storage);
  put16<kMatteBits>(bytes, h.matte.bits);
  put16<kAuxStorage>(bytes, h.aux.storage);
  put16<kAuxBits>(bytes, h.aux.bits);
  put_text<kAuxDesc>(bytes, h.aux_desc);
  store_be32(bytes + kNext.offset, h.next);
}

std::int32_t channel_type(std::int16_t storage) {
  switch (storage) {
    case 0:
      return ORX_C_INTEGER;
    case 4:
      return ORX_C_FLOAT;
    case 5:
      return ORX_C_DOUBLE;
    default:
      return kNoType;
  }
}

std::int16_t storage_code(std::int32_t type) {
  switch (type) {
    case ORX_C_FLOAT:
      return 4;
    case ORX_C_DOUBLE:
      return 5;
    default:
      return 0;
  }
}

bool header_valid(const Header &h, MatteStorageRule matte_storage) {
  const Window &w = h.window;
  const Window &a = h.active;
  if (!window_ordered(w) || !window_ordered(a)) return false;
  if (a.left < w.left || a.right > w.right || a.bottom < w.bottom || a.top > w.top) return false;
  if (h.aspect[0] == '\0' && h.aspect_ratio[0] == '\0') return false;
  if (static_cast<std::uint16_t>(h.image.count) > 3 || h.matte.count < 0) return false;
  if (h.image.storage < 0) return false;
  return matte_storage == MatteStorageRule::kSkip || h.matte.storage >= 0;
}

bool expand_date(const char *date, char (&out)[kDateTextSize]) {
  unsigned seconds = 0;
  if (date == nullptr || date[0] != '{' || std::sscanf(date, "{%u}", &seconds) != 1) return false;
  char text[kDateTextSize];
  if (platform::format_local_time(seconds, "%c", text, sizeof text) == 0) return false;
  std::memcpy(out, text, sizeof text);
  return true;
}

}  // namespace orx::rla
