#include "util/fields.h"

#include <cstdarg>
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
    print("%-*s%s%ld\n", width_, label, separator_, value);
}

void FieldWriter::num(const char *label, long value, const char *unit) const
{
    if (json_output::active())
        return json_output::numberField(withSuffix(label, unitKey(unit)).c_str(), std::to_string(value));
    print("%-*s%s%ld%s\n", width_, label, separator_, value, unit);
}

void FieldWriter::numPair(const char *label, long value, const char *secondLabel, long secondValue) const
{
    if (json_output::active()) {
        json_output::numberField(label, std::to_string(value));
        return json_output::numberField(secondLabel, std::to_string(secondValue));
    }
    print("%-*s%s%ld, %s%s%ld\n", width_, label, separator_, value, secondLabel, separator_, secondValue);
}

void FieldWriter::num64(const char *label, KRT_U64 value) const
{
    if (json_output::active())
        return json_output::numberField(label, std::to_string(value));
    print("%-*s%s%llu\n", width_, label, separator_, static_cast<unsigned long long>(value));
}

void FieldWriter::hex(const char *label, unsigned value, int digits) const
{
    if (json_output::active())
        return json_output::numberField(label, std::to_string(value));
    print("%-*s%s0x%0*x\n", width_, label, separator_, digits, value);
}

void FieldWriter::hex64(const char *label, KRT_U64 value) const
{
    if (json_output::active())
        return json_output::numberField(label, std::to_string(value));
    print("%-*s%s0x%llx\n", width_, label, separator_, static_cast<unsigned long long>(value));
}

void FieldWriter::ext(const char *label, long double value, std::string_view exact) const
{
    // Counters wider than 64 bits are decimal strings: no JSON reader keeps
    // every digit of such a number.
    if (json_output::active())
        return json_output::stringField(label, exact.empty() ? decimal(value) : std::string(exact));
    print("%-*s%s%.0Lf\n", width_, label, separator_, value);
}

void FieldWriter::extWithGigabytes(const char *label, long double value, long double gigabytes,
                                   std::string_view exact) const
{
    if (json_output::active()) {
        ext(label, value, exact);
        return json_output::stringField(withSuffix(label, "gb").c_str(), decimal(gigabytes));
    }
    print("%-*s%s%.0Lf (%.0Lf GB)\n", width_, label, separator_, value, gigabytes);
}

void FieldWriter::str(const char *label, const char *value) const
{
    if (json_output::active())
        return json_output::stringField(label, json_output::trimmed(value));
    print("%-*s%s%s\n", width_, label, separator_, value);
}

void FieldWriter::choice(const char *label, const std::string &value, long code) const
{
    str(label, value);
    if (json_output::active())
        json_output::numberField(withSuffix(label, "code").c_str(), std::to_string(code));
}

void FieldWriter::typed(const char *label, const std::string &text, const json_output::Value &value,
                        const char *key) const
{
    if (json_output::active())
        return json_output::field(key != nullptr ? key : label, value);
    print("%-*s%s%s\n", width_, label, separator_, text.c_str());
}

void FieldWriter::heading(const char *text) const
{
    if (!json_output::active())
        print("%s", text);
}

void FieldWriter::print(const char *format, ...) const
{
    if (out_ == nullptr)
        return;
    std::va_list args;
    va_start(args, format);
    std::vfprintf(out_, format, args);
    va_end(args);
}

void FieldWriter::extra(const char *key, const json_output::Value &value) const
{
    if (json_output::active())
        json_output::field(key, value);
}

void FieldWriter::bytes(const char *key, const void *data, long length, void (*textDump)(const void *, long)) const
{
    if (!json_output::active())
        return textDump(data, length);
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    const auto *at = static_cast<const unsigned char *>(data);
    for (long i = 0; i < length; ++i) {
        hex += kDigits[at[i] >> 4];
        hex += kDigits[at[i] & 15];
    }
    json_output::stringField(withSuffix(key, "hex").c_str(), hex);
}

void FieldWriter::gigabytes(const char *label, long long value) const
{
    if (json_output::active())
        return json_output::numberField(withSuffix(label, "gb").c_str(), std::to_string(value));
    print("%-*s%s%lld GB\n", width_, label, separator_, value);
}

void FieldWriter::yesNo(const char *label, bool value) const
{
    if (json_output::active())
        return json_output::boolField(label, value);
    str(label, value ? "Yes" : "No");
}

long long sizeInGigabytes(KRT_U32 sectorSize, KRT_U64 lba)
{
    return static_cast<long long>(sizeInBytes(sectorSize, lba) >> 30);
}

KRT_U64 sizeInBytes(KRT_U32 sectorSize, KRT_U64 lba)
{
    return static_cast<KRT_U64>(sectorSize) * lba;
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

std::string decimal128(const KRT_U8 (&bytes)[16])
{
    // Long division by ten of the number held as four 32-bit words, most
    // significant first.
    KRT_U32 words[4];
    for (int w = 0; w < 4; ++w) {
        const int low = (3 - w) * 4;
        words[w] = static_cast<KRT_U32>(bytes[low]) | static_cast<KRT_U32>(bytes[low + 1]) << 8 |
                   static_cast<KRT_U32>(bytes[low + 2]) << 16 | static_cast<KRT_U32>(bytes[low + 3]) << 24;
    }
    std::string digits;
    for (;;) {
        KRT_U64 remainder = 0;
        bool zero = true;
        for (KRT_U32 &word : words) {
            const KRT_U64 current = remainder << 32 | word;
            word = static_cast<KRT_U32>(current / 10);
            remainder = current % 10;
            zero = zero && word == 0;
        }
        digits.insert(digits.begin(), static_cast<char>('0' + remainder));
        if (zero)
            return digits;
    }
}
