// The file options of log and spi: how a typed file name is read, and an
// open of the process-wide user file that says why it failed.
#pragma once

#include <string>

// The file name an option value stands for: a value that begins with a
// double quote runs to the next double quote (or to its end); any name is
// kept to at most 1023 characters.
std::string fileOptionName(const char *value);

// Opens the process-wide user file (closing any file open before). A folder
// counts as a file that cannot be opened: reading one would give nothing.
// On failure says "cannot open <name>: <reason>" on standard error. True
// when the file is open.
bool openUserFile(const std::string &name, const char *mode);

// Says "cannot <what> <name>: <reason>" on standard error, with errno's text.
void reportFileError(const char *what, const std::string &name);

// Closes the user file on every way out of a handler, so that no command
// leaves it open for the next one.
struct UserFileCloser {
    UserFileCloser() = default;
    UserFileCloser(const UserFileCloser &) = delete;
    UserFileCloser &operator=(const UserFileCloser &) = delete;
    ~UserFileCloser();
};
