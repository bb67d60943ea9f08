#include "util/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "util/state.h"

bool isNumber(const char *text)
{
    for (const char *p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9')
            return false;
    }
    return true;
}

bool readHexOrDecimal(const char *text, unsigned long long *value)
{
    if (text == nullptr)
        return false;
    if (std::strstr(text, "0x") != nullptr) {
        *value = std::strtoull(text, nullptr, 16);
        return true;
    }
    if (!isNumber(text))
        return false;
    *value = std::strtoull(text, nullptr, 10);
    return true;
}

char *strlwr(char *text)
{
    for (char *p = text; *p != '\0'; ++p) {
        if (*p >= 'A' && *p <= 'Z')
            *p = static_cast<char>(*p - 'A' + 'a');
    }
    return text;
}

int noQuoteStrncpy(char *dst, const char *src, std::size_t n)
{
    if (src[0] == '\'') {
        std::fputs("Please use double quotation mark to include strings.", stdout);
        return 1;
    }
    const std::size_t len = std::strlen(src);
    // The closing quote is looked for where the caller's limit ends; never
    // past the argument's own terminator.
    if (src[0] == '"' && n >= 1 && n - 1 <= len && src[n - 1] == '"') {
        const std::size_t m = std::min(len >= 2 ? len - 2 : 0, n);
        std::memcpy(dst, src + 1, m);
        dst[m + 1] = '\0';
        return 0;
    }
    std::strncpy(dst, src, n);
    dst[n] = '\0';
    return 0;
}

void dumpContent(const void *data, long length)
{
    std::fputs("[RAW Data]\n", stream);
    std::fputs("      ", stream);
    for (int column = 0; column < 16; ++column) {
        std::fprintf(stream, "%02d ", column);
    }
    std::fputc('\n', stream);
    if (length < 1) {
        std::fputc('\n', stream);
        return;
    }
    const auto *bytes = static_cast<const unsigned char *>(data);
    for (long offset = 0; offset < length; ++offset) {
        if (offset % 16 == 0)
            std::fprintf(stream, "\n%04ld  ", offset);
        std::fprintf(stream, "%02x ", bytes[offset]);
    }
    std::fputc('\n', stream);
}

namespace {

struct RaidMode {
    std::string_view typed;
    KRT_U8 code;
    const char *text;
};

constexpr std::array<RaidMode, 8> kRaidModes{{
    {"0", 0x00, "RAID0"},
    {"1", 0x01, "RAID1"},
    {"10", 0x10, "RAID10"},
    {"5", 0x05, "RAID5"},
    {"50", 0x50, "RAID50"},
    {"6", 0x06, "RAID6"},
    {"60", 0x60, "RAID60"},
    {"JBOD", 0x0F, "JBOD"},
}};

constexpr KRT_U8 kUnknownRaidMode = 0xFF;

}  // namespace

KRT_U8 chooseRaidMode(const char *text)
{
    for (const RaidMode &mode : kRaidModes) {
        if (mode.typed == text)
            return mode.code;
    }
    return kUnknownRaidMode;
}

const char *RaidModeStr(KRT_U8 code)
{
    for (const RaidMode &mode : kRaidModes) {
        if (mode.code == code)
            return mode.text;
    }
    return "unknown";
}
