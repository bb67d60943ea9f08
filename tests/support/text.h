// Small text checks shared by the suites.
#pragma once

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

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

// The lines of a text, without their line feeds.
inline std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// The blank-separated words of a text.
inline std::vector<std::string> words(const std::string &text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// The bytes of a made-up file: 0, 7, 14, ... modulo 253.
inline std::string pattern(std::size_t length)
{
    std::string bytes(length, '\0');
    for (std::size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<char>(i * 7 % 253);
    return bytes;
}

}  // namespace krt_test
