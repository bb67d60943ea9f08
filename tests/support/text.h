// Small text checks shared by the suites.
#pragma once

#include <string>

namespace krt_test {

inline bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

inline int occurrences(const std::string &text, const std::string &part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

}  // namespace krt_test
