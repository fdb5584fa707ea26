// The 740-byte RLA image header: where every field sits, how it decodes into
// a Header and encodes back, the header validity rules, the storage codes of
// the channel types, and the scanline offset table that follows each header.
// This is the only place that knows byte offsets inside a header; the reader
// and the writer work on Header values.
//
// All integers in a header are big-endian: 2-byte fields are signed 16-bit,
// 4-byte fields 32-bit.  Text fields are fixed-width and NUL-padded.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace orx::rla {

inline constexpr std::size_t kHeaderSize = 740;
using HeaderBytes = std::uint8_t[kHeaderSize];

// Place of one field inside the header.
struct FieldSpan {
  std::size_t offset;
  std::size_t size;
};

namespace layout {
inline constexpr FieldSpan kWindowLeft{0, 2};
inline constexpr FieldSpan kWindowRight{2, 2};
inline constexpr FieldSpan kWindowBottom{4, 2};
inline constexpr FieldSpan kWindowTop{6, 2};
inline constexpr FieldSpan kActiveLeft{8, 2};
inline constexpr FieldSpan kActiveRight{10, 2};
inline constexpr FieldSpan kActiveBottom{12, 2};
inline constexpr FieldSpan kActiveTop{14, 2};
inline constexpr FieldSpan kFrame{16, 2};
inline constexpr FieldSpan kStorage{18, 2};  // storage code of the image channels
inline constexpr FieldSpan kImageChannels{20, 2};
inline constexpr FieldSpan kMatteChannels{22, 2};
inline constexpr FieldSpan kAuxChannels{24, 2};
inline constexpr FieldSpan kRevision{26, 2};
inline constexpr FieldSpan kGamma{28, 16};
inline constexpr FieldSpan kRedPrimary{44, 24};
inline constexpr FieldSpan kGreenPrimary{68, 24};
inline constexpr FieldSpan kBluePrimary{92, 24};
inline constexpr FieldSpan kWhitePoint{116, 24};
inline constexpr FieldSpan kJob{140, 4};
inline constexpr FieldSpan kName{144, 128};
inline constexpr FieldSpan kDesc{272, 128};
inline constexpr FieldSpan kProgram{400, 64};
inline constexpr FieldSpan kMachine{464, 32};
inline constexpr FieldSpan kUser{496, 32};
inline constexpr FieldSpan kDate{528, 20};
inline constexpr FieldSpan kAspect{548, 24};
inline constexpr FieldSpan kAspectRatio{572, 8};
inline constexpr FieldSpan kChannelDesc{580, 32};
// From here on the fields are trusted only in the current layout (revision -2).
inline constexpr FieldSpan kField{612, 2};
inline constexpr FieldSpan kTime{614, 12};
inline constexpr FieldSpan kFilter{626, 32};
inline constexpr FieldSpan kImageBits{658, 2};
inline constexpr FieldSpan kMatteStorage{660, 2};
inline constexpr FieldSpan kMatteBits{662, 2};
inline constexpr FieldSpan kAuxStorage{664, 2};
inline constexpr FieldSpan kAuxBits{666, 2};
inline constexpr FieldSpan kAuxDesc{668, 32};
inline constexpr FieldSpan kReserved{700, 36};
inline constexpr FieldSpan kNext{736, 4};
}  // namespace layout

// Revision of the current layout, the one every writer produces.
inline constexpr std::int16_t kCurrentRevision = -2;
// Channel type of a storage code the library does not know.
inline constexpr std::int32_t kNoType = 0;

// A fixed-width text field of `Width` bytes on disk, held with room for a
// terminating NUL even when the file filled the whole field.
template <std::size_t Width>
using Text = std::array<char, Width + 1>;

// Left, right, bottom, top, inclusive.
struct Window {
  std::int16_t left = 0;
  std::int16_t right = 0;
  std::int16_t bottom = 0;
  std::int16_t top = 0;
  friend bool operator==(const Window &, const Window &) = default;
};

// One channel group (image, matte or auxiliary channels).
struct ChannelGroup {
  std::int16_t count = 0;    // number of channels
  std::int16_t storage = 0;  // storage code as it stands in the header (0, 4, 5, ...);
                             // encode_header writes it, decode_header keeps it raw
  std::int16_t bits = 0;     // bits per sample (8 in an older layout)
  std::int32_t type = 0;     // channel type decoded from `storage` (ORX_C_INTEGER, ORX_C_FLOAT,
                             // ORX_C_DOUBLE, or kNoType); ORX_C_INTEGER in an older layout.
                             // Filled by decode_header only; encode_header ignores it.
  friend bool operator==(const ChannelGroup &, const ChannelGroup &) = default;
};

// Every field of one header, decoded.  Texts are NUL-terminated.
struct Header {
  Window window;  // the full image
  Window active;  // the part that holds data
  std::int16_t frame = 0;
  ChannelGroup image;                        // storage at offset 18, bits at 658
  ChannelGroup matte;                        // storage at 660, bits at 662
  ChannelGroup aux;                          // storage at 664, bits at 666
  std::int16_t revision = kCurrentRevision;  // as read; encode_header always writes -2
  Text<layout::kGamma.size> gamma{};         // "%7.4f"
  Text<layout::kRedPrimary.size> red{};      // "%7.4f %7.4f", x then y
  Text<layout::kGreenPrimary.size> green{};
  Text<layout::kBluePrimary.size> blue{};
  Text<layout::kWhitePoint.size> white{};
  std::int32_t job = 0;
  Text<layout::kName.size> name{};
  Text<layout::kDesc.size> desc{};
  Text<layout::kProgram.size> program{};
  Text<layout::kMachine.size> machine{};
  Text<layout::kUser.size> user{};
  Text<layout::kDate.size> date{};  // may hold "{seconds}"; see expand_date
  Text<layout::kAspect.size> aspect{};
  Text<layout::kAspectRatio.size> aspect_ratio{};  // "%5.3f"
  Text<layout::kChannelDesc.size> channel_desc{};
  std::int16_t field = 0;           // interlace code, passed through
  Text<layout::kTime.size> time{};  // "%02d:%02d:%02d" elapsed writing time
  Text<layout::kFilter.size> filter{};
  Text<layout::kAuxDesc.size> aux_desc{};
  std::uint32_t next = 0;  // file offset of the next image's header; 0 in the last image
  friend bool operator==(const Header &, const Header &) = default;
};

// Decodes the 740 bytes into *out.  The revision field chooses the layout:
// revision -2 is the current layout, in which every field is read as stored.
// Any other revision is an older layout whose fields from offset 612 on are
// not trusted: image, matte and auxiliary channels become 8-bit integers,
// time and filter read "unknown", the auxiliary description is empty, next is
// 0 (a single image), and the field code is kept only when `rlb` is true (the
// file is read through the "rlb" key or has the ".rlb" extension), else 0.
// The raw storage codes are kept in every layout (the validity rules look at
// them).  Decoding cannot fail; header_valid says whether the result is usable.
void decode_header(const HeaderBytes &bytes, bool rlb, Header *out);

// Encodes `header` into 740 bytes in the current layout: revision -2, the
// reserved bytes zero, each text copied up to its width less one character
// and NUL-padded.  Storage codes are written from ChannelGroup::storage, so
// set them with storage_code().
void encode_header(const Header &header, HeaderBytes &bytes);

// Channel type of a storage code: 0 integer, 4 float, 5 double, anything else
// kNoType (which the reader rejects).
std::int32_t channel_type(std::int16_t storage);
// Storage code of a channel type: integer 0, float 4, double 5, anything else 0.
std::int16_t storage_code(std::int32_t type);

// Whether the reader's variant of the validity rules skips the matte storage
// code (the file test applies all six rules; the reader does not test it).
enum class MatteStorageRule { kApply, kSkip };

// The header validity rules, on the decoded values:
//  1. all eight window and active-window coordinates are 0 or more;
//  2. left <= right and bottom <= top in both windows;
//  3. the active window lies inside the window;
//  4. the aspect text or the aspect-ratio text is non-empty;
//  5. the image-channel count taken unsigned is at most 3, and the matte
//     count is 0 or more;
//  6. the image storage code is 0 or more, and so is the matte storage code
//     unless `matte_storage` is kSkip.
bool header_valid(const Header &header, MatteStorageRule matte_storage = MatteStorageRule::kApply);

// Size of the buffer expand_date writes into, terminator included.
inline constexpr std::size_t kDateTextSize = 256;

// A date text of the form "{seconds}" (seconds since the epoch, read with
// "{%u}") is the moment it names, written in local time with "%c" into out
// (kDateTextSize bytes, always terminated); returns true.  Any other text,
// or a brace form whose number does not parse, leaves out untouched and
// returns false.
bool expand_date(const char *date, char (&out)[kDateTextSize]);

// Big-endian integers as stored in RLA files.
constexpr std::uint16_t load_be16(const std::uint8_t *p) {
  return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}
constexpr std::uint32_t load_be32(const std::uint8_t *p) {
  return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
         std::uint32_t{p[3]};
}
constexpr void store_be16(std::uint8_t *p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 8);
  p[1] = static_cast<std::uint8_t>(v);
}
constexpr void store_be32(std::uint8_t *p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 24);
  p[1] = static_cast<std::uint8_t>(v >> 16);
  p[2] = static_cast<std::uint8_t>(v >> 8);
  p[3] = static_cast<std::uint8_t>(v);
}

// The scanline offset table follows each header directly: one big-endian
// 32-bit absolute file offset per row of the active window, the first for the
// active bottom row.  The table is kept in memory as it stands on disk.

// Rows of the active window, hence entries of the offset table (0 when the
// active window is upside down).
constexpr int active_rows(const Header &header) {
  int rows = header.active.top - header.active.bottom + 1;
  return rows > 0 ? rows : 0;
}
// Byte size of an offset table of `rows` entries.
constexpr std::size_t offset_table_size(int rows) {
  return rows > 0 ? static_cast<std::size_t>(rows) * 4 : 0;
}
// Entry `index` (row minus active bottom) of a table as stored.
constexpr std::uint32_t offset_at(const std::uint8_t *table, int index) {
  return load_be32(table + static_cast<std::size_t>(index) * 4);
}
constexpr void set_offset(std::uint8_t *table, int index, std::uint32_t offset) {
  store_be32(table + static_cast<std::size_t>(index) * 4, offset);
}

}  // namespace orx::rla
