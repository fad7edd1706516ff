// Shape tests for elements of loaded documents. Each tests the type before
// any member access, so that no malformed value makes jsoncpp throw.
#ifndef NUVIK_JSON_FIELDS_H_
#define NUVIK_JSON_FIELDS_H_

#include <string>

#include <json/value.h>

namespace NuvikPrediction {

inline bool IsNonEmptyObject(const Json::Value& value) { return value.isObject() && !value.empty(); }

inline bool IsNonEmptyArray(const Json::Value& value) { return value.isArray() && !value.empty(); }

// `object` must be an object.
inline bool HasUnsignedMember(const Json::Value& object, const std::string& key) {
  return object.isMember(key) && object[key].isUInt64();
}

// `object` must be an object.
inline bool HasStringMember(const Json::Value& object, const std::string& key) {
  return object.isMember(key) && object[key].isString();
}

// True when `value` is a non-empty object whose members `keys` are all
// unsigned integers.
template <typename... Keys>
bool HasUnsignedMembers(const Json::Value& value, const Keys&... keys) {
  return IsNonEmptyObject(value) && (HasUnsignedMember(value, keys) && ...);
}

}  // namespace NuvikPrediction

#endif  // NUVIK_JSON_FIELDS_H_
