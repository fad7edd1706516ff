// Names of any bytes in JSON strings, kept exactly.
//
// JSON text holds Unicode, so a byte that is not part of valid UTF-8 cannot be
// written as it is. Such a byte b is written as the escape of the lone
// surrogate U+DC00 + b (b from 0x80 on), as Python's "surrogateescape" does.
// A JSON reader decodes that escape into the three-byte form of the
// surrogate, ED B2 80 to ED B3 BF, which valid UTF-8 never holds: reading
// turns it back into the byte.
#ifndef NUVIK_BYTE_ESCAPE_H_
#define NUVIK_BYTE_ESCAPE_H_

#include <string>
#include <string_view>

namespace NuvikPrediction {

// Appends `value` as a quoted JSON string: '"', '\\' and the controls \b \f
// \n \r \t get their short escapes, other bytes below 0x20 become \u00XX,
// valid UTF-8 stays as it is, and every other byte becomes \udcXX (lowercase
// hex).
void AppendByteEscapedString(std::string& out, std::string_view value);

// Turns, in a string as a JSON reader decoded it, every three-byte form of
// U+DC80 to U+DCFF back into the byte it stands for.
void RestoreEscapedBytes(std::string& decoded);

}  // namespace NuvikPrediction

#endif  // NUVIK_BYTE_ESCAPE_H_
