#include "Utf.h"

namespace nuvik_jni {
namespace {

constexpr std::uint16_t kReplacement = 0xFFFD;

bool IsHighSurrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }
bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

void AppendCodePoint(std::uint32_t code, std::string& out) {
  if (code < 0x80) {
    out.push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (code >> 6)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else if (code < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (code >> 12)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (code >> 18)));
    out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
  }
}

// Length of the well-formed sequence starting at bytes[i] and its code point;
// 0 when there is none.
std::size_t DecodeSequence(const std::string& bytes, std::size_t i, std::uint32_t& code) {
  const auto at = [&bytes](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
  const unsigned char lead = at(i);
  std::size_t length;
  std::uint32_t minimum;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, minimum = 0x80, code = lead & 0x1Fu;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, minimum = 0x800, code = lead & 0x0Fu;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, minimum = 0x10000, code = lead & 0x07u;
  } else {
    return 0;
  }
  if (bytes.size() - i < length) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    if (!IsContinuation(at(i + k))) return 0;
    code = (code << 6) | (at(i + k) & 0x3Fu);
  }
  if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  return length;
}

}  // namespace

void AppendUtf8(const std::uint16_t* units, std::size_t count, std::string& out) {
  out.reserve(out.size() + count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t unit = units[i];
    if (unit < 0x80) {
      out.push_back(static_cast<char>(unit));
    } else if (IsHighSurrogate(unit) && i + 1 < count && IsLowSurrogate(units[i + 1])) {
      AppendCodePoint(0x10000 + ((unit - 0xD800) << 10) + (units[i + 1] - 0xDC00u), out);
      ++i;
    } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
      AppendCodePoint(kReplacement, out);
    } else {
      AppendCodePoint(unit, out);
    }
  }
}

void DecodeUtf8(const std::string& bytes, std::vector<std::uint16_t>& out) {
  out.clear();
  out.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size();) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if (byte < 0x80) {
      out.push_back(byte);
      ++i;
      continue;
    }
    std::uint32_t code = 0;
    const std::size_t length = DecodeSequence(bytes, i, code);
    if (length == 0) {
      out.push_back(kReplacement);
      ++i;
    } else if (code < 0x10000) {
      out.push_back(static_cast<std::uint16_t>(code));
      i += length;
    } else {
      out.push_back(static_cast<std::uint16_t>(0xD800 + ((code - 0x10000) >> 10)));
      out.push_back(static_cast<std::uint16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
      i += length;
    }
  }
}

}  // namespace nuvik_jni
