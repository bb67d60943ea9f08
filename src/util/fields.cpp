#include "util/fields.h"

void FieldWriter::num(const char *label, long value) const
{
    std::fprintf(out_, "%-*s%s%ld\n", width_, label, separator_, value);
}

void FieldWriter::num(const char *label, long value, const char *unit) const
{
    std::fprintf(out_, "%-*s%s%ld%s\n", width_, label, separator_, value, unit);
}

void FieldWriter::num64(const char *label, KRT_U64 value) const
{
    std::fprintf(out_, "%-*s%s%llu\n", width_, label, separator_, static_cast<unsigned long long>(value));
}

void FieldWriter::hex(const char *label, unsigned value, int digits) const
{
    std::fprintf(out_, "%-*s%s0x%0*x\n", width_, label, separator_, digits, value);
}

void FieldWriter::hex64(const char *label, KRT_U64 value) const
{
    std::fprintf(out_, "%-*s%s0x%llx\n", width_, label, separator_, static_cast<unsigned long long>(value));
}

void FieldWriter::ext(const char *label, long double value) const
{
    std::fprintf(out_, "%-*s%s%.0Lf\n", width_, label, separator_, value);
}

void FieldWriter::extWithGigabytes(const char *label, long double value, long double gigabytes) const
{
    std::fprintf(out_, "%-*s%s%.0Lf (%.0Lf GB)\n", width_, label, separator_, value, gigabytes);
}

void FieldWriter::str(const char *label, const char *value) const
{
    std::fprintf(out_, "%-*s%s%s\n", width_, label, separator_, value);
}

void FieldWriter::gigabytes(const char *label, long long value) const
{
    std::fprintf(out_, "%-*s%s%lld GB\n", width_, label, separator_, value);
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
