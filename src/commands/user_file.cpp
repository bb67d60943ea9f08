#include "commands/user_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/file_io.h"

namespace {

constexpr std::size_t kMaxFileName = 1023;

}  // namespace

std::string fileOptionName(const char *value)
{
    std::string name;
    if (value[0] == '"') {
        const char *end = std::strchr(value + 1, '"');
        name.assign(value + 1, end != nullptr ? end : value + std::strlen(value));
    } else {
        name = value;
    }
    if (name.size() > kMaxFileName)
        name.resize(kMaxFileName);
    return name;
}

bool openUserFile(const std::string &name, const char *mode)
{
    struct stat info {};
    const bool folder = ::stat(name.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
    errno = 0;
    if (folder) {
        close_file();
        errno = EISDIR;
    } else if (open_file(name.c_str(), mode) == 0) {
        return true;
    }
    // A name in single quotes is refused before any open is tried.
    if (errno == 0)
        errno = EINVAL;
    reportFileError("open", name);
    return false;
}

void reportFileError(const char *what, const std::string &name)
{
    std::fprintf(stderr, "cannot %s %s: %s\n", what, name.c_str(), std::strerror(errno));
}

UserFileCloser::~UserFileCloser()
{
    close_file();
}
