#include "ByteEscape.h"

#include <cstddef>

namespace NuvikPrediction {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
// The first bytes of the three-byte forms of U+DC80 to U+DCFF.
constexpr unsigned char kSurrogateLead = 0xED;
constexpr unsigned char kSurrogateLowHalf = 0xB2;
constexpr unsigned char kSurrogateHighHalf = 0xB3;

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Length of the valid UTF-8 sequence that starts with `first` (0x80 or
// above) at `position`, or 0: no overlong form, no surrogate, nothing above
// U+10FFFF.
std::size_t ValidSequenceLength(const unsigned char* position, const unsigned char* end) {
  const unsigned char first = *position;
  std::size_t length;
  unsigned char low = 0x80;   // bounds of the second byte
  unsigned char high = 0xBF;
  if (first >= 0xC2 && first <= 0xDF) {
    length = 2;
  } else if (first >= 0xE0 && first <= 0xEF) {
    length = 3;
    if (first == 0xE0) low = 0xA0;
    if (first == kSurrogateLead) high = 0x9F;
  } else if (first >= 0xF0 && first <= 0xF4) {
    length = 4;
    if (first == 0xF0) low = 0x90;
    if (first == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (static_cast<std::size_t>(end - position) < length) return 0;
  if (position[1] < low || position[1] > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!IsContinuation(position[i])) return 0;
  }
  return length;
}

void AppendEscape(std::string& out, const char* hexPrefix, unsigned char byte) {
  out += hexPrefix;
  out += kHexDigits[byte >> 4];
  out += kHexDigits[byte & 0xF];
}

}  // namespace

void AppendByteEscapedString(std::string& out, std::string_view value) {
  const auto* position = reinterpret_cast<const unsigned char*>(value.data());
  const auto* end = position + value.size();
  out += '"';
  while (position != end) {
    const unsigned char byte = *position;
    switch (byte) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (byte < 0x20) {
          AppendEscape(out, "\\u00", byte);
        } else if (byte < 0x80) {
          out += static_cast<char>(byte);
        } else if (const std::size_t length = ValidSequenceLength(position, end)) {
          out.append(reinterpret_cast<const char*>(position), length);
          position += length;
          continue;
        } else {
          AppendEscape(out, "\\udc", byte);
        }
    }
    ++position;
  }
  out += '"';
}

void RestoreEscapedBytes(std::string& decoded) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < decoded.size(); ++i) {
    const auto byte = static_cast<unsigned char>(decoded[i]);
    if (byte == kSurrogateLead && decoded.size() - i >= 3) {
      const auto half = static_cast<unsigned char>(decoded[i + 1]);
      const auto last = static_cast<unsigned char>(decoded[i + 2]);
      if ((half == kSurrogateLowHalf || half == kSurrogateHighHalf) && IsContinuation(last)) {
        // U+DC00 + b has the low bit of `half` as bit 6 of b and `last` as its low six bits.
        decoded[kept++] = static_cast<char>(0x80 | ((half & 1) << 6) | (last & 0x3F));
        i += 2;
        continue;
      }
    }
    decoded[kept++] = decoded[i];
  }
  decoded.resize(kept);
}

}  // namespace NuvikPrediction
