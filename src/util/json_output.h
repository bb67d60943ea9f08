// Machine-readable output (the global word --json): one JSON document per
// command run, built from the record fields the labelled-field writer is
// given and from every other line the command prints. The rules a script can
// rely on (keys, value kinds, text encoding, versioning) are in docs/json.md.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "krt/types.h"

namespace json_output {

inline constexpr char kJsonWord[] = "--json";

// The document's own version: [major, minor]. Keys are only ever added
// within one major version.
inline constexpr int kFormatMajor = 1;
inline constexpr int kFormatMinor = 0;

// The key a field label stands under: ASCII letters and digits lower-cased,
// every run of other characters one underscore, none at either end.
// "BGA progress:" -> "bga_progress". A label with no letter or digit gives "value".
std::string keyOf(std::string_view label);

// `bytes` as a JSON string literal, quotes included. Valid UTF-8 sequences
// are kept; every byte outside one is read as Latin-1 and written \u00XX;
// control characters, quote and backslash are escaped.
void appendString(std::string &out, std::string_view bytes);

// On from start-up when the program's words hold --json.
bool active();

// Takes every --json word out of `words` (count `count`) and returns the
// count that is left. Switches the output on when there was one.
int takeJsonWords(int count, char **words);

// From here on everything written to standard output (the command's lines)
// is kept for the document instead of being shown; the document itself goes
// to `destination`, or to the real standard output when that is null.
void startCapture();
void setDestination(std::FILE *destination);

// Record structure, driven by the labelled-field writer.
void beginRecord(const char *kind);
void endRecord();
void beginListing(const char *label);
void endListing();

// One field of the open record. A field written outside any record forms a
// record of its own, of kind "summary".
void numberField(const char *label, const std::string &number);
void stringField(const char *label, std::string_view text);
void boolField(const char *label, bool value);

// A request that failed: its status and the line the status decoder printed
// for it (the last one of the command is kept).
void noteStatus(KRT_U32 value, const std::string &text);

struct ControllerRef {
    int index;
    int number;
};

// Writes one document (on one line) for what the command printed since the
// previous one, and starts afresh. False when the document could not be
// written.
bool writeDocument(const std::vector<std::string> &argv, int exitStatus,
                   const std::optional<ControllerRef> &controller);

// Releases the destination; false when something written to it was lost.
bool closeDestination();

}  // namespace json_output
