#include "util/fields.h"

void FieldWriter::num(const char *label, long value) const
{
    std::fprintf(out_, "%-*s %ld\n", width_, label, value);
}

void FieldWriter::str(const char *label, const char *value) const
{
    std::fprintf(out_, "%-*s %s\n", width_, label, value);
}

void FieldWriter::gigabytes(const char *label, long long value) const
{
    std::fprintf(out_, "%-*s %lld GB\n", width_, label, value);
}

void FieldWriter::yesNo(const char *label, bool value) const
{
    str(label, value ? "Yes" : "No");
}

void FieldWriter::joined(const char *label, const char *value) const
{
    std::fprintf(out_, "%s%s\n", label, value);
}

long long sizeInGigabytes(KRT_U32 sectorSize, KRT_U64 lba)
{
    return static_cast<long long>((static_cast<KRT_U64>(sectorSize) * lba) >> 30);
}

std::string boundedText(const KRT_U8 *bytes, std::size_t size)
{
    std::size_t length = 0;
    while (length < size && bytes[length] != 0) {
        ++length;
    }
    return std::string(reinterpret_cast<const char *>(bytes), length);
}

std::string boundedTextNoLeadingBlanks(const KRT_U8 *bytes, std::size_t size)
{
    std::string text = boundedText(bytes, size);
    std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first);
}
