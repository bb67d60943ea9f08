// Labelled-field writer: every record printer writes its lines through it, one
// call per field, so the label column and the value formats live in one place.
// With --json the same calls build the records of the JSON document instead.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "krt/types.h"
#include "util/json_output.h"

class FieldWriter {
  public:
    // Writes on `out`, labels padded to `width` characters and followed by
    // `separator` (a blank, or ": " for the SMART lists). With no `out` the
    // text is left out: a record only the JSON document shows.
    FieldWriter(std::FILE *out, int width, const char *separator = " ")
        : out_(out), width_(width), separator_(separator)
    {
    }

    // "<label> <value>" as a signed decimal number.
    void num(const char *label, long value) const;
    // The same followed by a unit written as it stands ("%", " Celsius").
    void num(const char *label, long value, const char *unit) const;
    // Two numbers on one line: "<label> <value>, <label2> <value2>".
    void numPair(const char *label, long value, const char *secondLabel, long secondValue) const;
    // An unsigned 64-bit decimal number.
    void num64(const char *label, KRT_U64 value) const;
    // "0x" and hexadecimal digits, at least `digits` of them.
    void hex(const char *label, unsigned value, int digits = 0) const;
    void hex64(const char *label, KRT_U64 value) const;
    // Extended precision, no decimals: counters wider than 64 bits. The JSON
    // value is a decimal string, `exact` when given (the text's figure is
    // only as exact as the extended precision).
    void ext(const char *label, long double value, std::string_view exact = {}) const;
    // The same with a GB figure after it: "<value> (<gigabytes> GB)".
    void extWithGigabytes(const char *label, long double value, long double gigabytes,
                          std::string_view exact = {}) const;
    // "<label> <value>" as text; in JSON without the blanks and NULs that
    // pad it at either end.
    void str(const char *label, const char *value) const;
    void str(const char *label, const std::string &value) const { str(label, value.c_str()); }
    // A text the user reads as an enumeration, with the device's code for it
    // beside it in JSON under "<key>_code".
    void choice(const char *label, const std::string &value, long code) const;
    // "<label> <value> GB".
    void gigabytes(const char *label, long long value) const;
    // "<label> Yes" or "<label> No".
    void yesNo(const char *label, bool value) const;

    // A field whose JSON value is not its text: a list of what the text runs
    // together, a quantity whose unit the key carries. Under `key`, or the
    // label's key when that is null.
    void typed(const char *label, const std::string &text, const json_output::Value &value,
               const char *key = nullptr) const;
    // A heading over the lines of a record: the text's alone.
    void heading(const char *text) const;
    // A field only the JSON output has: what a record is about, and figures
    // the text leaves to the reader.
    void extra(const char *key, const json_output::Value &value) const;
    // A block of bytes: in text the dump `textDump` prints, in JSON one
    // hexadecimal string under "<key>_hex".
    void bytes(const char *key, const void *data, long length, void (*textDump)(const void *, long)) const;

    // Record boundaries. The text shows none of them; the JSON output (see
    // util/json_output.h) makes each record one object of kind `kind`, and a
    // listing inside a record an array under the key of `label`.
    void beginRecord(const char *kind) const;
    void endRecord() const;
    void beginListing(const char *label) const;
    void endListing() const;

    int width() const { return width_; }

  private:
    void print(const char *format, ...) const __attribute__((format(printf, 2, 3)));

    std::FILE *out_;
    int width_;
    const char *separator_;
};

// Capacity in GB of `lba` sectors of `sectorSize` bytes. The product wraps
// rather than overflowing: both numbers come from the controller.
long long sizeInGigabytes(KRT_U32 sectorSize, KRT_U64 lba);
// The same capacity in bytes, wrapping alike.
KRT_U64 sizeInBytes(KRT_U32 sectorSize, KRT_U64 lba);

// A text field of a device record: at most `size` bytes, ending early at a
// terminator. Device texts need not be terminated.
std::string boundedText(const KRT_U8 *bytes, std::size_t size);
// The same with leading blanks dropped (model, serial and firmware texts are
// blank-padded on either side).
std::string boundedTextNoLeadingBlanks(const KRT_U8 *bytes, std::size_t size);

// A 128-bit little-endian counter as an exact decimal number.
std::string decimal128(const KRT_U8 (&bytes)[16]);
