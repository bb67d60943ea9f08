#include "device/smbios.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/log.h"

namespace {

constexpr unsigned kTypeSystemSlot = 9;
constexpr unsigned kTypeEndOfTable = 127;
constexpr unsigned kSlotInUse = 4;

bool checksumOk(const std::uint8_t *data, std::size_t len)
{
    std::uint8_t sum = 0;
    for (std::size_t i = 0; i < len; ++i)
        sum = static_cast<std::uint8_t>(sum + data[i]);
    return sum == 0;
}

std::uint16_t le16(const std::uint8_t *p)
{
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
std::uint32_t le32(const std::uint8_t *p)
{
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

}  // namespace

bool read_SM_file(const char *path, std::size_t base, std::size_t len, std::vector<std::uint8_t> &out)
{
    out.clear();
    int fd = open(path, O_RDONLY);
    if (fd < 0) {
        // No table on this host is an ordinary answer, not an error.
        if (errno != ENOENT)
            std::perror(path);
        return false;
    }
    bool ok = false;
    off_t size = lseek(fd, 0, SEEK_END);
    if (size >= 0 && static_cast<std::size_t>(size) <= base) {
        std::fprintf(stderr, "%s: Can't read data beyond EOF\n", path);
    } else {
        if (size >= 0 && static_cast<std::size_t>(size) - base < len)
            len = static_cast<std::size_t>(size) - base;
        out.resize(len);
        if (lseek(fd, static_cast<off_t>(base), SEEK_SET) < 0) {
            std::fprintf(stderr, "%s: ", path);
            std::perror("lseek");
        } else {
            std::size_t got = 0;
            while (got < len) {
                ssize_t n = read(fd, out.data() + got, len - got);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    break;
                got += static_cast<std::size_t>(n);
            }
            if (got < len) {
                std::fprintf(stderr, "%s: Unexpected end of file\n", path);
            } else {
                ok = true;
            }
        }
    }
    close(fd);
    if (!ok)
        out.clear();
    return ok;
}

int smbios_find_slot(const std::uint8_t *table, std::size_t size, unsigned limit, bool stopAtEnd, unsigned bus)
{
    int slot = -1;
    std::size_t pos = 0;
    unsigned counted = 0;
    while ((limit == 0 || counted < limit) && pos + 4 <= size) {
        const std::uint8_t *s = table + pos;
        const unsigned type = s[0];
        const unsigned length = s[1];
        // The string set follows the formatted part and ends in two NULs.
        std::size_t next = pos + (length < 4 ? 0 : length);
        while (next + 1 < size && (table[next] != 0 || table[next + 1] != 0))
            ++next;
        next += 2;
        if (length < 4) {
            // A malformed header: step over its strings without counting it.
            pos = next;
            continue;
        }
        ++counted;
        if (next > size)
            break;
        if (type == kTypeSystemSlot && length > 15 && s[7] == kSlotInUse && s[15] == bus)
            slot = s[9];
        if (stopAtEnd && type == kTypeEndOfTable)
            break;
        pos = next;
    }
    return slot;
}

int get_SMBIOS_slot_ID(const char *bdf, const char *path)
{
    int slot = -1;
    // The bus is the leading hexadecimal number of the address text.
    unsigned bus = 0;
    if (bdf != nullptr) {
        char *end = nullptr;
        const unsigned long value = std::strtoul(bdf, &end, 16);
        bus = end != bdf ? static_cast<unsigned>(value) : 0;
    }

    std::vector<std::uint8_t> entry;
    read_SM_file(path, 0, 32, entry);
    std::vector<std::uint8_t> table;
    if (entry.size() >= 24 && std::memcmp(entry.data(), "_SM3_", 5) == 0) {
        const unsigned len = entry[6];
        if (len > 32) {
            std::fprintf(stderr, "Entry point length too large (%u bytes, expected %u).\n", len, 24u);
            return slot;
        }
        if (len > entry.size() || !checksumOk(entry.data(), len))
            return slot;
        const std::uint32_t tableSize = le32(&entry[12]);
        if (!read_SM_file(path, 0, tableSize, table)) {
            std::fprintf(stderr, "Failed to read table, sorry.\n");
            return slot;
        }
        slot = smbios_find_slot(table.data(), table.size(), 0, true, bus);
    } else if (entry.size() >= 31 && std::memcmp(entry.data(), "_SM_", 4) == 0) {
        const unsigned len = entry[5];
        if (len > 32) {
            std::fprintf(stderr, "Entry point length too large (%u bytes, expected %u).\n", len, 31u);
            return slot;
        }
        if (len > entry.size() || !checksumOk(entry.data(), len))
            return slot;
        if (std::memcmp(&entry[16], "_DMI_", 5) != 0 || !checksumOk(&entry[16], 15))
            return slot;
        const unsigned major = entry[6];
        const unsigned minor = entry[7];
        if (major == 2 && minor == 33)
            std::printf("SMBIOS version fixup (2.%d -> 2.%d).\n", 33, 3);
        if (major == 2 && minor == 31)
            std::printf("SMBIOS version fixup (2.%d -> 2.%d).\n", 31, 3);
        if (major == 2 && minor == 51)
            std::printf("SMBIOS version fixup (2.%d -> 2.%d).\n", 51, 6);
        const std::uint16_t tableLen = le16(&entry[22]);
        const std::uint16_t count = le16(&entry[28]);
        if (!read_SM_file(path, 0, tableLen, table)) {
            std::fprintf(stderr, "Failed to read table, sorry.\n");
            return slot;
        }
        // A count of 0 would mean "no limit" to the walk; here it means none.
        if (count != 0)
            slot = smbios_find_slot(table.data(), table.size(), count, false, bus);
    } else {
        add_log("format error\n");
    }
    if (slot >= 0) {
        add_log("Get SMBIOS Bus Num:%d, Slot ID:%d\n", static_cast<int>(bus), slot);
    } else {
        add_log(" SMBIOS Bus Num is not found...\n");
    }
    return slot;
}
