#pragma once
// Variables of the environment as the system has them, put back at the end of a scope.
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>

namespace qeltest {

class EnvironmentScope {
 public:
  // Puts these back, too, whoever changes them.
  explicit EnvironmentScope(std::initializer_list<const char*> names = {}) {
    for (const char* name : names) m_before.emplace(name, current(name));
  }
  ~EnvironmentScope() {
    for (const auto& [name, value] : m_before) put(name, value);
  }
  EnvironmentScope(const EnvironmentScope&) = delete;
  EnvironmentScope& operator=(const EnvironmentScope&) = delete;

  // Without a value the variable is taken away.
  void set(const std::string& name, const std::optional<std::string>& value) {
    m_before.try_emplace(name, current(name));
    put(name, value);
  }
  static std::string get(const std::string& name) { return current(name).value_or("unset"); }

 private:
  static std::optional<std::string> current(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
  }
  static void put(const std::string& name, const std::optional<std::string>& value) {
    value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
  }

  std::map<std::string, std::optional<std::string>> m_before;
};

}  // namespace qeltest
