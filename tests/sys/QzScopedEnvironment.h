// QzScopedEnvironment.h: environment variables changed for one test and put
// back, set or unset as they were, when the object goes.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

// Threads: the environment is the process's; use on the test thread only.
class QzScopedEnvironment {
public:
    QzScopedEnvironment() = default;
    QzScopedEnvironment(QzScopedEnvironment const &) = delete;
    QzScopedEnvironment &operator=(QzScopedEnvironment const &) = delete;

    ~QzScopedEnvironment()
    {
        for (auto saved = m_saved.rbegin(); saved != m_saved.rend(); ++saved) {
            if (saved->was_set)
                setenv(saved->name.c_str(), saved->value.c_str(), 1);
            else
                unsetenv(saved->name.c_str());
        }
    }

    // Sets `name` to `value`, or unsets it for a null value.
    void Set(char const *name, char const *value)
    {
        Remember(name);
        if (value != nullptr)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }

private:
    struct Saved {
        std::string name;
        bool was_set;
        std::string value;
    };

    void Remember(char const *name)
    {
        for (Saved const &saved : m_saved) {
            if (saved.name == name)
                return;
        }
        char const *value = std::getenv(name);
        m_saved.push_back({name, value != nullptr, value != nullptr ? value : ""});
    }

    std::vector<Saved> m_saved;
};
