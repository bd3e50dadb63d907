// Members of a JSON object from another process, which may lack them, or have others in their place.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace support {

using Json = nlohmann::ordered_json;

/** Null where there is no such member. */
inline const Json& Member(const Json& object, const char* name) {
  static const Json nothing;
  const auto found = object.is_object() ? object.find(name) : object.end();
  return object.is_object() && found != object.end() ? *found : nothing;
}

/** Empty where the member is missing, or no text. */
inline std::string TextOf(const Json& object, const char* name) {
  const Json& member = Member(object, name);
  return member.is_string() ? member.get<std::string>() : "";
}

inline std::optional<double> NumberOf(const Json& object, const char* name) {
  const Json& member = Member(object, name);
  return member.is_number() ? std::optional(member.get<double>()) : std::nullopt;
}

inline bool IsTrue(const Json& object, const char* name) {
  const Json& member = Member(object, name);
  return member.is_boolean() && member.get<bool>();
}

/** An empty list where the member is missing, or no list. */
inline const Json& ListOf(const Json& object, const char* name) {
  static const Json empty = Json::array();
  const Json& member = Member(object, name);
  return member.is_array() ? member : empty;
}

/** The object in a list that has this name; null where there is none. */
inline const Json& Named(const Json& list, const std::string& name) {
  static const Json nothing;
  for (const Json& one : list) {
    if (TextOf(one, "name") == name) return one;
  }
  return nothing;
}

/** As text, whatever bytes its strings have. */
inline std::string ToText(const Json& json, int indent = -1) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

}  // namespace support
