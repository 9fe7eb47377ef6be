#pragma once
// ScopedEnv: an environment variable set for as long as the object lives, then put back as it was.

#include <cstdlib>
#include <optional>
#include <string>

namespace vpath_test {

class ScopedEnv {
  public:
    ScopedEnv(const char* name, const std::string& value) : m_name(name) {
        if (const char* old = std::getenv(name))
            m_old = old;
        ::setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() {
        if (m_old)
            ::setenv(m_name, m_old->c_str(), 1);
        else
            ::unsetenv(m_name);
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    const char* m_name;
    std::optional<std::string> m_old;
};

}  // namespace vpath_test
