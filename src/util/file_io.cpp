#include "util/file_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "util/state.h"
#include "util/text.h"

namespace {

constexpr std::size_t kNameSize = 1024;

std::FILE *gFile = nullptr;

}  // namespace

std::FILE *openNoWait(const char *path, const char *mode)
{
    int flags = O_RDONLY;
    if (mode[0] == 'w')
        flags = O_WRONLY | O_CREAT | O_TRUNC;
    else if (mode[0] == 'a')
        flags = O_WRONLY | O_CREAT | O_APPEND;
    const int fd = ::open(path, flags | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd < 0)
        return nullptr;
    // Once open, reads and writes wait as usual.
    const int status = ::fcntl(fd, F_GETFL);
    if (status >= 0)
        ::fcntl(fd, F_SETFL, status & ~O_NONBLOCK);
    std::FILE *file = ::fdopen(fd, mode);
    if (file == nullptr)
        ::close(fd);
    return file;
}

int open_file(const char *name, const char *mode)
{
    close_file();
    // Two bytes of room past the longest name: a quoted name is terminated
    // one byte after its copied text.
    char path[kNameSize + 2] = {};
    if (noQuoteStrncpy(path, name, std::min(std::strlen(name), kNameSize - 1)) != 0)
        return 1;
    gFile = openNoWait(path, mode);
    return gFile == nullptr ? 1 : 0;
}

long get_file_length()
{
    if (gFile == nullptr)
        return 0;
    const long here = std::ftell(gFile);
    if (here < 0 || std::fseek(gFile, 0, SEEK_END) != 0)
        return 0;
    const long length = std::ftell(gFile);
    std::fseek(gFile, here, SEEK_SET);
    return length < 0 ? 0 : length;
}

std::size_t read_file(void *buffer, std::size_t n)
{
    return gFile == nullptr ? 0 : std::fread(buffer, 1, n, gFile);
}

std::size_t write_file(const void *buffer, std::size_t n)
{
    if (gFile == nullptr)
        return 0;
    // Flushed at once, so that a full disk is seen by the write that hit it
    // and not lost in a close nobody checks.
    const std::size_t written = std::fwrite(buffer, 1, n, gFile);
    return std::fflush(gFile) == 0 ? written : 0;
}

void close_file()
{
    if (gFile != nullptr)
        std::fclose(gFile);
    gFile = nullptr;
}

void _showRAWData(const void *buffer, long n)
{
    const auto *bytes = static_cast<const unsigned char *>(buffer);
    for (long i = 0; i < n; ++i) {
        if (i % 16 == 0)
            std::fputc('\n', stream);
        std::fprintf(stream, "0x%02x ", bytes[i]);
    }
    std::fputc('\n', stream);
}
