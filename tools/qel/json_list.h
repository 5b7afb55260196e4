#pragma once
// JSON that is printed while it is made.

#include <nlohmann/json.hpp>
#include <string>

#include "session.h"

namespace qel::tool {

// One value as text; bytes that are no UTF-8 become U+FFFD.
inline std::string JsonText(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// An array of any length: the values are not kept.
class JsonList {
 public:
  explicit JsonList(Session& session) : m_session(session) { session.Print("["); }
  // Called before each value that is printed piece by piece.
  void Next() {
    m_session.Print(m_empty ? "\n" : ",\n");
    m_empty = false;
  }
  void Add(const nlohmann::json& value) {
    Next();
    m_session.Print(JsonText(value));
  }
  void Close() { m_session.Print(m_empty ? "]" : "\n]"); }

 private:
  Session& m_session;
  bool m_empty = true;
};

}  // namespace qel::tool
