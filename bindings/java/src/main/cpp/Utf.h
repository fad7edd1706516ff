// Conversions between the UTF-16 of Java strings and the UTF-8 of the library's names.
#ifndef NUVIK_JNI_UTF_H_
#define NUVIK_JNI_UTF_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nuvik_jni {

// Appends the UTF-8 encoding of `count` UTF-16 code units to `out`. A surrogate
// without its partner becomes U+FFFD; U+0000 becomes a single zero byte.
void AppendUtf8(const std::uint16_t* units, std::size_t count, std::string& out);

// Replaces `out` with the UTF-16 decoding of `bytes`. Every byte that does not
// begin a well-formed sequence (overlong forms, surrogates and values above
// U+10FFFF are not well formed) becomes one U+FFFD, and decoding resumes at the
// next byte.
void DecodeUtf8(const std::string& bytes, std::vector<std::uint16_t>& out);

}  // namespace nuvik_jni

#endif  // NUVIK_JNI_UTF_H_
