#include "firmware/image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "util/file_io.h"
#include "util/text.h"

namespace {

constexpr std::array<KRT_U32, 256> makeCrcTable()
{
    std::array<KRT_U32, 256> table{};
    for (KRT_U32 i = 0; i < 256; ++i) {
        KRT_U32 c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[i] = c;
    }
    return table;
}
constexpr std::array<KRT_U32, 256> crc_tab = makeCrcTable();

constexpr std::size_t kNameSize = 1024;

std::FILE *gFlashFile = nullptr;

bool isRegularFile(int fd)
{
    struct stat st {};
    return fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

KRT_U32 checksumResult(const KRT_U8 *data, KRT_U32 length)
{
    if (length % KRT_FLASH_SEGMENT != 0)
        return 1;
    if (length / 4 == 0)
        return 0;
    if (data == nullptr)
        return 1;
    KRT_U32 sum = 0;
    for (KRT_U32 at = 0; at + 4 <= length; at += 4)
        sum += static_cast<KRT_U32>(data[at]) | (static_cast<KRT_U32>(data[at + 1]) << 8) |
               (static_cast<KRT_U32>(data[at + 2]) << 16) | (static_cast<KRT_U32>(data[at + 3]) << 24);
    return sum;
}

KRT_U32 crc32(KRT_U32 seed, const KRT_U8 *data, KRT_U32 length)
{
    KRT_U32 crc = seed;
    for (KRT_U32 i = 0; i < length && data != nullptr; ++i)
        crc = crc_tab[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc;
}

KRT_U32 crcMake(const KRT_U8 *data, KRT_U32 length)
{
    // The padding is zeros: run them through the CRC instead of copying the
    // image into a padded buffer.
    const KRT_U64 rounded =
        (static_cast<KRT_U64>(length) + KRT_FLASH_SEGMENT - 1) / KRT_FLASH_SEGMENT * KRT_FLASH_SEGMENT;
    KRT_U32 crc = crc32(0xFFFFFFFFu, data, length);
    for (KRT_U64 i = length; i < rounded; ++i)
        crc = crc_tab[crc & 0xFF] ^ (crc >> 8);
    return __builtin_bswap32(crc);
}

int _KRTFileBuffer::open_for_read(const char *name, KRT_U32 step)
{
    std::string path = name != nullptr ? name : "";
    path.erase(0, path.find_first_not_of('\''));
    if (!path.empty() && path.back() == '\'')
        path.pop_back();
    // A reader opened again starts over on the new descriptor; the old one
    // is of no further use.
    if (m_file >= 0)
        ::close(m_file);
    // Without waiting: a fifo is refused below, not read from.
    m_file = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (m_file < 0)
        return 1;
    if (!isRegularFile(m_file)) {
        ::close(m_file);
        m_file = -1;
        return 1;
    }
    m_step_length = step;
    m_offset = 0;
    std::free(m_data);
    m_data = nullptr;
    if (step != 0) {
        m_data = static_cast<KRT_U8 *>(std::calloc(step, 1));
        if (m_data == nullptr) {
            m_step_length = 0;
            return 1;
        }
    }
    return 0;
}

KRT_U8 *_KRTFileBuffer::read()
{
    if (m_file < 0 || m_data == nullptr)
        return nullptr;
    KRT_U32 got = 0;
    while (got < m_step_length) {
        const ssize_t n = ::read(m_file, m_data + got, m_step_length - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return nullptr;
        if (n == 0)
            break;
        got += static_cast<KRT_U32>(n);
    }
    m_offset += m_step_length;
    return m_data;
}

KRT_U32 _KRTFileBuffer::get_file_length()
{
    if (m_file < 0)
        return 0;
    const off_t here = ::lseek(m_file, 0, SEEK_CUR);
    const off_t end = ::lseek(m_file, 0, SEEK_END);
    if (here >= 0)
        ::lseek(m_file, here, SEEK_SET);
    if (end < 0)
        return 0;
    // Images are bounded by the controller's flash size long before this.
    return end > 0xFFFFFFFF ? 0xFFFFFFFFu : static_cast<KRT_U32>(end);
}

void _KRTFileBuffer::close()
{
    if (m_file >= 0)
        ::close(m_file);
    std::free(m_data);
    delete this;
}

_KRTFileBuffer *CreateKRTFileBufferInstance()
{
    return new (std::nothrow) _KRTFileBuffer;
}

int open_file_for_flash(const char *name)
{
    close_file_for_flash();
    // Two bytes of room past the longest name: a quoted name is terminated
    // one byte after its copied text.
    char path[kNameSize + 2] = {};
    if (noQuoteStrncpy(path, name, std::min(std::strlen(name), kNameSize - 1)) != 0)
        return 1;
    gFlashFile = openNoWait(path, "rb");
    if (gFlashFile == nullptr)
        return 1;
    // A directory opens for reading too, and claims a size it does not have.
    if (!isRegularFile(fileno(gFlashFile))) {
        close_file_for_flash();
        return 1;
    }
    return 0;
}

std::size_t read_file_for_flash(void *buffer)
{
    return gFlashFile == nullptr ? 0 : std::fread(buffer, 1, KRT_FLASH_SEGMENT, gFlashFile);
}

long get_file_length_for_flash()
{
    if (gFlashFile == nullptr)
        return 0;
    const long here = std::ftell(gFlashFile);
    if (here < 0 || std::fseek(gFlashFile, 0, SEEK_END) != 0)
        return 0;
    const long length = std::ftell(gFlashFile);
    std::fseek(gFlashFile, here, SEEK_SET);
    return length < 0 ? 0 : length;
}

void close_file_for_flash()
{
    if (gFlashFile != nullptr)
        std::fclose(gFlashFile);
    gFlashFile = nullptr;
}
