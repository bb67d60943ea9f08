// How a captured controller's bytes are written into a machine file
// (docs/machine-format.md): texts, raw data as hexadecimal digits, and
// counters too wide for a JSON number.
#pragma once

#include <cstddef>
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

// A 128-bit little-endian counter (a SMART log's): a JSON number while it
// fits 64 bits, else a "0x..." string.
Json counter128(const KRT_U8 (&bytes)[16]);

// The document as text, for people as well as programs: an object or
// array that holds objects is spread over lines, one member or element a
// line, indented; everything else (a disk, a namespace, an event, a list of
// numbers) stands on one line.
std::string layout(const Json &document);

}  // namespace capture
