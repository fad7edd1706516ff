// Shape tests for elements of loaded documents, for Json::Value and DomValue
// alike. Each tests the type before any member access, so that no malformed
// value makes jsoncpp throw.
#ifndef NUVIK_JSON_FIELDS_H_
#define NUVIK_JSON_FIELDS_H_

#include <string>

namespace NuvikPrediction {

template <typename Value>
bool IsNonEmptyObject(const Value& value) {
  return value.isObject() && !value.empty();
}

template <typename Value>
bool IsNonEmptyArray(const Value& value) {
  return value.isArray() && !value.empty();
}

// `object` must be an object; a missing member reads as null.
template <typename Value>
bool HasUnsignedMember(const Value& object, const std::string& key) {
  return object[key].isUInt64();
}

// `object` must be an object; a missing member reads as null.
template <typename Value>
bool HasStringMember(const Value& object, const std::string& key) {
  return object[key].isString();
}

// True when `value` is a non-empty object whose members `keys` are all
// unsigned integers.
template <typename Value, typename... Keys>
bool HasUnsignedMembers(const Value& value, const Keys&... keys) {
  return IsNonEmptyObject(value) && (HasUnsignedMember(value, keys) && ...);
}

}  // namespace NuvikPrediction

#endif  // NUVIK_JSON_FIELDS_H_
