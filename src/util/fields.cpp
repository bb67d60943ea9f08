#include "util/fields.h"

#include <cstring>

#include "util/json_output.h"

namespace {

// The key suffix of a unit written after a number: "%" is "percent",
// " Celsius" is "celsius".
std::string unitKey(const char *unit)
{
    return std::strcmp(unit, "%") == 0 ? std::string("percent") : json_output::keyOf(unit);
}

std::string decimal(long double value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.0Lf", value);
    return text;
}

std::string withSuffix(const char *label, const std::string &suffix)
{
    return json_output::keyOf(label) + "_" + suffix;
}

}  // namespace

void FieldWriter::beginRecord(const char *kind) const
{
    if (json_output::active())
        json_output::beginRecord(kind);
}

void FieldWriter::endRecord() const
{
    if (json_output::active())
        json_output::endRecord();
}

void FieldWriter::beginListing(const char *label) const
{
    if (json_output::active())
        json_output::beginListing(label);
}

void FieldWriter::endListing() const
{
    if (json_output::active())
        json_output::endListing();
}

void FieldWriter::num(const char *label, long value) const
{
    if (json_output::active())
        return json_output::numberField(label, std::to_string(value));
    std::fprintf(out_, "%-*s%s%ld\n", width_, label, separator_, value);
}

void FieldWriter::num(const char *label, long value, const char *unit) const
{
    if (json_output::active())
        return json_output::numberField(withSuffix(label, unitKey(unit)).c_str(), std::to_string(value));
    std::fprintf(out_, "%-*s%s%ld%s\n", width_, label, separator_, value, unit);
}

void FieldWriter::numPair(const char *label, long value, const char *secondLabel, long secondValue) const
{
    if (json_output::active()) {
        json_output::numberField(label, std::to_string(value));
        return json_output::numberField(secondLabel, std::to_string(secondValue));
    }
    std::fprintf(out_, "%-*s%s%ld, %s%s%ld\n", width_, label, separator_, value, secondLabel, separator_, secondValue);
}

void FieldWriter::num64(const char *label, KRT_U64 value) const
{
    if (json_output::active())
        return json_output::numberField(label, std::to_string(value));
    std::fprintf(out_, "%-*s%s%llu\n", width_, label, separator_, static_cast<unsigned long long>(value));
}

void FieldWriter::hex(const char *label, unsigned value, int digits) const
{
    if (json_output::active())
        return json_output::numberField(label, std::to_string(value));
    std::fprintf(out_, "%-*s%s0x%0*x\n", width_, label, separator_, digits, value);
}

void FieldWriter::hex64(const char *label, KRT_U64 value) const
{
    if (json_output::active())
        return json_output::numberField(label, std::to_string(value));
    std::fprintf(out_, "%-*s%s0x%llx\n", width_, label, separator_, static_cast<unsigned long long>(value));
}

void FieldWriter::ext(const char *label, long double value) const
{
    // Counters wider than 64 bits are decimal strings: no JSON reader keeps
    // every digit of such a number.
    if (json_output::active())
        return json_output::stringField(label, decimal(value));
    std::fprintf(out_, "%-*s%s%.0Lf\n", width_, label, separator_, value);
}

void FieldWriter::extWithGigabytes(const char *label, long double value, long double gigabytes) const
{
    if (json_output::active()) {
        json_output::stringField(label, decimal(value));
        return json_output::stringField(withSuffix(label, "gb").c_str(), decimal(gigabytes));
    }
    std::fprintf(out_, "%-*s%s%.0Lf (%.0Lf GB)\n", width_, label, separator_, value, gigabytes);
}

void FieldWriter::str(const char *label, const char *value) const
{
    if (json_output::active())
        return json_output::stringField(label, value);
    std::fprintf(out_, "%-*s%s%s\n", width_, label, separator_, value);
}

void FieldWriter::gigabytes(const char *label, long long value) const
{
    if (json_output::active())
        return json_output::numberField(withSuffix(label, "gb").c_str(), std::to_string(value));
    std::fprintf(out_, "%-*s%s%lld GB\n", width_, label, separator_, value);
}

void FieldWriter::yesNo(const char *label, bool value) const
{
    if (json_output::active())
        return json_output::boolField(label, value);
    str(label, value ? "Yes" : "No");
}

void FieldWriter::joined(const char *label, const char *value) const
{
    if (json_output::active())
        return json_output::stringField(label, value);
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
