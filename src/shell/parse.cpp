#include <cstring>

#include "shell/shell.h"

int parse(int *count, char **words, int capacity, char *line)
{
    *count = 0;
    const std::size_t length = std::strlen(line);
    std::size_t start = 0;
    std::size_t pos = 0;

    // Stores the word that began at `start`; false once the array is full.
    auto store = [&]() {
        if (*count >= capacity)
            return false;
        words[(*count)++] = line + start;
        return true;
    };

    while (pos < length) {
        const char c = line[pos];
        if (c == '"') {
            const char *closing = std::strchr(line + pos + 1, '"');
            if (closing == nullptr)
                return 0;
            pos = static_cast<std::size_t>(closing - line) + 1;
            if (pos == length) {
                store();
                break;
            }
        } else if (c == ' ' || c == '\t') {
            // A separator always ends a word, even an empty one; only the
            // blanks after it are skipped, so a tab after a blank still
            // yields an empty word.
            line[pos] = '\0';
            if (!store())
                break;
            start = pos + 1;
            while (line[start] == ' ') {
                ++start;
            }
            pos = start;
        } else {
            if (pos + 1 == length && !store())
                break;
            ++pos;
        }
    }
    return 1;
}
