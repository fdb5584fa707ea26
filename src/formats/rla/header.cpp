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

// A field's place as a type, so that the code reading or writing it can check
// at compile time that the value it pairs with the field has the field's size.
template <FieldSpan F>
struct At {};

// The fields every layout shares, paired with their values: offsets 0 to 611
// (the revision aside: it is read, but always written as -2) and the storage
// codes at 660 and 664, which the validity rules look at in any layout.  One
// list serves decoding and encoding, so the two cannot drift apart.
template <class H, class Visit>
void shared_fields(H &h, Visit &&visit) {
  using namespace layout;
  visit(At<kWindowLeft>{}, h.window.left);
  visit(At<kWindowRight>{}, h.window.right);
  visit(At<kWindowBottom>{}, h.window.bottom);
  visit(At<kWindowTop>{}, h.window.top);
  visit(At<kActiveLeft>{}, h.active.left);
  visit(At<kActiveRight>{}, h.active.right);
  visit(At<kActiveBottom>{}, h.active.bottom);
  visit(At<kActiveTop>{}, h.active.top);
  visit(At<kFrame>{}, h.frame);
  visit(At<kStorage>{}, h.image.storage);
  visit(At<kImageChannels>{}, h.image.count);
  visit(At<kMatteChannels>{}, h.matte.count);
  visit(At<kAuxChannels>{}, h.aux.count);
  visit(At<kGamma>{}, h.gamma);
  visit(At<kRedPrimary>{}, h.red);
  visit(At<kGreenPrimary>{}, h.green);
  visit(At<kBluePrimary>{}, h.blue);
  visit(At<kWhitePoint>{}, h.white);
  visit(At<kJob>{}, h.job);
  visit(At<kName>{}, h.name);
  visit(At<kDesc>{}, h.desc);
  visit(At<kProgram>{}, h.program);
  visit(At<kMachine>{}, h.machine);
  visit(At<kUser>{}, h.user);
  visit(At<kDate>{}, h.date);
  visit(At<kAspect>{}, h.aspect);
  visit(At<kAspectRatio>{}, h.aspect_ratio);
  visit(At<kChannelDesc>{}, h.channel_desc);
  visit(At<kMatteStorage>{}, h.matte.storage);
  visit(At<kAuxStorage>{}, h.aux.storage);
}

// The fields trusted only in the current layout.
template <class H, class Visit>
void current_fields(H &h, Visit &&visit) {
  using namespace layout;
  visit(At<kField>{}, h.field);
  visit(At<kTime>{}, h.time);
  visit(At<kFilter>{}, h.filter);
  visit(At<kImageBits>{}, h.image.bits);
  visit(At<kMatteBits>{}, h.matte.bits);
  visit(At<kAuxBits>{}, h.aux.bits);
  visit(At<kAuxDesc>{}, h.aux_desc);
  visit(At<kNext>{}, h.next);
}

// Reads fields out of the header bytes.  A text is read up to its first NUL
// and the rest of the array zeroed, so equal texts compare equal as arrays.
struct FieldReader {
  const HeaderBytes &bytes;

  template <FieldSpan F>
  void operator()(At<F>, std::int16_t &v) const {
    static_assert(F.size == 2);
    v = static_cast<std::int16_t>(load_be16(bytes + F.offset));
  }
  template <FieldSpan F, class Word>
  void operator()(At<F>, Word &v) const {
    static_assert(F.size == 4 && sizeof(Word) == 4);
    v = static_cast<Word>(load_be32(bytes + F.offset));
  }
  template <FieldSpan F, std::size_t N>
  void operator()(At<F>, std::array<char, N> &text) const {
    static_assert(N == F.size + 1);
    const std::uint8_t *begin = bytes + F.offset;
    const std::uint8_t *end = std::find(begin, begin + F.size, std::uint8_t{0});
    text.fill('\0');
    std::memcpy(text.data(), begin, static_cast<std::size_t>(end - begin));
  }
};

// Writes fields into zeroed header bytes.  A text keeps at most the field
// width less one character, so its last byte is always NUL.
struct FieldWriter {
  HeaderBytes &bytes;

  template <FieldSpan F>
  void operator()(At<F>, std::int16_t v) const {
    static_assert(F.size == 2);
    store_be16(bytes + F.offset, static_cast<std::uint16_t>(v));
  }
  template <FieldSpan F, class Word>
  void operator()(At<F>, Word v) const {
    static_assert(F.size == 4 && sizeof(Word) == 4);
    store_be32(bytes + F.offset, static_cast<std::uint32_t>(v));
  }
  template <FieldSpan F, std::size_t N>
  void operator()(At<F>, const std::array<char, N> &text) const {
    static_assert(N == F.size + 1);
    const char *end = std::find(text.data(), text.data() + (F.size - 1), '\0');
    std::memcpy(bytes + F.offset, text.data(), static_cast<std::size_t>(end - text.data()));
  }
};

template <std::size_t N>
void set_text(std::array<char, N> &out, const char *text) {
  out.fill('\0');
  std::memcpy(out.data(), text, std::min(std::strlen(text), N - 1));
}

// Revision -2: everything from offset 612 on is read as stored.
void decode_current(const HeaderBytes &bytes, bool, Header *h) {
  current_fields(*h, FieldReader{bytes});
  for (ChannelGroup *group : {&h->image, &h->matte, &h->aux}) {
    group->type = channel_type(group->storage);
  }
}

// Any other revision: the fields from offset 612 on predate the current
// layout and are replaced by fixed values.  Deliberately, the field code is
// still taken from offset 612 when the file is read as "rlb": that variant
// differs from "rla" in nothing else.
void decode_older(const HeaderBytes &bytes, bool rlb, Header *h) {
  h->field = 0;
  if (rlb) FieldReader{bytes}(At<layout::kField>{}, h->field);
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
  FieldReader read{bytes};
  shared_fields(*out, read);
  read(At<layout::kRevision>{}, out->revision);
  revision_of(out->revision).decode(bytes, rlb, out);
}

void encode_header(const Header &h, HeaderBytes &bytes) {
  std::memset(bytes, 0, kHeaderSize);
  FieldWriter write{bytes};
  shared_fields(h, write);
  current_fields(h, write);
  write(At<layout::kRevision>{}, kCurrentRevision);
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
