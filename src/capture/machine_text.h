// How a captured controller's bytes are written into a machine file
// (docs/machine-format.md): texts, raw data as hexadecimal digits, and
// counters too wide for a JSON number.
#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>

#include "krt/types.h"

namespace capture {

// Keys keep the order they are written in, so that a file reads as the
// format describes it.
using Json = nlohmann::ordered_json;

// How a fixed-width device text fills the rest of its field.
enum class Pad { Blanks, Nuls };

// A fixed-width device text: a JSON string when the field is printable
// ASCII followed by its padding (the padding left out), otherwise
// {"hex": "..."} holding every byte of the field.
Json fieldText(const KRT_U8 *bytes, std::size_t size, Pad pad);
// Free text (an event message): a JSON string when it is printable ASCII,
// otherwise {"hex": "..."}.
Json freeText(const std::string &text);

// Bytes as hexadecimal digits, two a byte; with trimZeros the zero bytes
// that end the block are left out (a reader fills them in again).
std::string hexOf(const void *bytes, std::size_t size, bool trimZeros);

// One member of a record as a file holds it: a number, a flag, a word, a device
// text (fieldText), bytes as hexadecimal digits (hexOf) or a 128-bit
// little-endian counter (a SMART log's: a number while it fits 64 bits,
// else a "0x..." string). Made from a record's fields without allocating, so
// that a whole record is written by one put().
struct Field {
    enum class Kind { Number, Flag, Word, Text, Hex, Counter };

    template <std::unsigned_integral T>
    constexpr Field(const char *name, T value) : key(name), kind(Kind::Number), number(value)
    {
    }
    constexpr Field(const char *name, bool value) : key(name), kind(Kind::Flag), number(value ? 1 : 0) {}
    constexpr Field(const char *name, const char *value) : key(name), kind(Kind::Word), word(value) {}
    constexpr Field(const char *name, Kind k, const KRT_U8 *data, std::size_t length, Pad p, bool trimZeros)
        : key(name), kind(k), bytes(data), size(length), pad(p), trim(trimZeros)
    {
    }

    const char *key;
    Kind kind;
    KRT_U64 number = 0;
    const char *word = nullptr;
    const KRT_U8 *bytes = nullptr;
    std::size_t size = 0;
    Pad pad = Pad::Blanks;  // a Text's padding
    bool trim = false;      // a Hex block without the zero bytes that end it
};

// A fixed-width device text, a block of hexadecimal digits, a counter.
template <std::size_t N>
constexpr Field text(const char *name, const KRT_U8 (&bytes)[N], Pad pad)
{
    return {name, Field::Kind::Text, bytes, N, pad, false};
}
inline Field hex(const char *name, const void *bytes, std::size_t size, bool trimZeros)
{
    return {name, Field::Kind::Hex, static_cast<const KRT_U8 *>(bytes), size, Pad::Nuls, trimZeros};
}
constexpr Field counter(const char *name, const KRT_U8 (&bytes)[16])
{
    return {name, Field::Kind::Counter, bytes, 16, Pad::Nuls, false};
}

// Writes the fields into an object, in their order.
void put(Json &object, std::initializer_list<Field> fields);

// The document as text, for people as well as programs: an object or
// array that holds objects is spread over lines, one member or element a
// line, indented; everything else (a disk, a namespace, an event, a list of
// numbers) stands on one line.
std::string layout(const Json &document);

}  // namespace capture
