#include "DomDocument.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace NuvikPrediction {

namespace {

constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";
constexpr std::size_t kMinCapacity = 64;
constexpr std::size_t kFewMembers = 8;

bool HasRepeatedKey(simdjson::dom::object object) {
  if (object.size() <= kFewMembers) {
    for (auto first = object.begin(); first != object.end(); ++first) {
      auto second = first;
      for (++second; second != object.end(); ++second) {
        if (first.key() == second.key()) return true;
      }
    }
    return false;
  }
  std::vector<std::string_view> keys;
  for (const simdjson::dom::key_value_pair member : object) keys.push_back(member.key);
  std::sort(keys.begin(), keys.end());
  return std::adjacent_find(keys.begin(), keys.end()) != keys.end();
}

// True when every number below `element` is an integer (jsoncpp reads the
// others through the C library, with its own rounding and range errors) and
// no object repeats a key (jsoncpp keeps the last, simdjson finds the first).
bool ReadsLikeJsoncpp(simdjson::dom::element element) {
  switch (element.type()) {
    case simdjson::dom::element_type::ARRAY: {
      const simdjson::dom::array array = element.get_array().value_unsafe();
      for (const simdjson::dom::element child : array) {
        if (!ReadsLikeJsoncpp(child)) return false;
      }
      return true;
    }
    case simdjson::dom::element_type::OBJECT: {
      const simdjson::dom::object object = element.get_object().value_unsafe();
      if (HasRepeatedKey(object)) return false;
      for (const simdjson::dom::key_value_pair member : object) {
        if (!ReadsLikeJsoncpp(member.value)) return false;
      }
      return true;
    }
    case simdjson::dom::element_type::DOUBLE:
      return false;
    default:
      return true;
  }
}

}  // namespace

bool DomDocument::Parse(const std::string& text) {
  // jsoncpp skips a byte order mark; simdjson would reject it anyway.
  if (std::string_view(text).substr(0, kUtf8Bom.size()) == kUtf8Bom) return false;
  // The depth is fixed by the first allocation, before parse sizes the buffers.
  if (parser_.allocate(std::max(text.size(), kMinCapacity), kMaxDepth) != simdjson::SUCCESS) return false;
  // Copies the text unless its string has kPadding bytes to spare.
  if (parser_.parse(text).get(root_) != simdjson::SUCCESS) return false;
  return ReadsLikeJsoncpp(root_);
}

}  // namespace NuvikPrediction
