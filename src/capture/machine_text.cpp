#include "capture/machine_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace capture {

namespace {

bool printable(char c)
{
    return c >= 0x20 && c <= 0x7E;
}

// Spread over lines: the document, and any object or array holding an
// array of objects, or any array of objects.
bool spread(const Json &v)
{
    if (v.is_array())
        return std::any_of(v.begin(), v.end(), [](const Json &e) { return e.is_object() || e.is_array(); });
    if (!v.is_object())
        return false;
    return std::any_of(v.begin(), v.end(), [](const Json &m) { return m.is_array() && spread(m); });
}

void oneLine(std::string &out, const Json &v)
{
    if (v.is_object()) {
        out += '{';
        const char *comma = "";
        for (auto it = v.begin(); it != v.end(); ++it) {
            out += comma;
            out += Json(it.key()).dump();
            out += ": ";
            oneLine(out, it.value());
            comma = ", ";
        }
        out += '}';
    } else if (v.is_array()) {
        out += '[';
        const char *comma = "";
        for (const Json &e : v) {
            out += comma;
            oneLine(out, e);
            comma = ", ";
        }
        out += ']';
    } else {
        out += v.dump();
    }
}

void write(std::string &out, const Json &v, int depth)
{
    if (!spread(v) && depth > 0) {
        oneLine(out, v);
        return;
    }
    const std::string inner(static_cast<std::size_t>(depth + 1), ' ');
    const bool object = v.is_object();
    out += object ? "{\n" : "[\n";
    for (auto it = v.begin(); it != v.end(); ++it) {
        out += inner;
        if (object) {
            out += Json(it.key()).dump();
            out += ": ";
        }
        write(out, it.value(), depth + 1);
        out += std::next(it) == v.end() ? "\n" : ",\n";
    }
    out += std::string(static_cast<std::size_t>(depth), ' ');
    out += object ? '}' : ']';
}

Json hexObject(const void *bytes, std::size_t size)
{
    Json hex = Json::object();
    hex["hex"] = hexOf(bytes, size, false);
    return hex;
}

// A 128-bit little-endian counter.
Json counter128(const KRT_U8 *bytes)
{
    KRT_U64 low = 0, high = 0;
    std::memcpy(&low, bytes, sizeof low);
    std::memcpy(&high, bytes + 8, sizeof high);
    if (high == 0)
        return low;
    char text[40];
    std::snprintf(text, sizeof text, "0x%llx%016llx", static_cast<unsigned long long>(high),
                  static_cast<unsigned long long>(low));
    return std::string(text);
}

}  // namespace

Json fieldText(const KRT_U8 *bytes, std::size_t size, Pad pad)
{
    const char fill = pad == Pad::Blanks ? ' ' : '\0';
    std::size_t length = size;
    while (length > 0 && static_cast<char>(bytes[length - 1]) == fill)
        --length;
    const std::string text(reinterpret_cast<const char *>(bytes), length);
    for (char c : text) {
        if (!printable(c))
            return hexObject(bytes, size);
    }
    // Blank-padded texts have no blank at their end that a reader could
    // tell from the padding; a NUL-padded one may, and keeps it.
    return text;
}

Json freeText(const std::string &text)
{
    for (char c : text) {
        if (!printable(c))
            return hexObject(text.data(), text.size());
    }
    return text;
}

std::string hexOf(const void *bytes, std::size_t size, bool trimZeros)
{
    const auto *b = static_cast<const KRT_U8 *>(bytes);
    if (trimZeros) {
        while (size > 0 && b[size - 1] == 0)
            --size;
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out(2 * size, '0');
    for (std::size_t i = 0; i < size; ++i) {
        out[2 * i] = kDigits[b[i] >> 4];
        out[2 * i + 1] = kDigits[b[i] & 15];
    }
    return out;
}

std::string layout(const Json &document)
{
    std::string out;
    write(out, document, 0);
    out += '\n';
    return out;
}

void put(Json &object, std::initializer_list<Field> fields)
{
    for (const Field &f : fields) {
        Json &member = object[f.key];
        switch (f.kind) {
            case Field::Kind::Number:
                member = f.number;
                break;
            case Field::Kind::Flag:
                member = f.number != 0;
                break;
            case Field::Kind::Word:
                member = f.word;
                break;
            case Field::Kind::Text:
                member = fieldText(f.bytes, f.size, f.pad);
                break;
            case Field::Kind::Hex:
                member = hexOf(f.bytes, f.size, f.trim);
                break;
            case Field::Kind::Counter:
                member = counter128(f.bytes);
                break;
        }
    }
}

}  // namespace capture
