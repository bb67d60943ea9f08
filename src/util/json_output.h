// Machine-readable output (the global word --json): one JSON document per
// command run, built from the record fields the labelled-field writer is
// given, from the verdict the tool notes where it decides how a run went, and
// from every other line the command prints. The rules a script can rely on
// (keys, value kinds, verdicts, text encoding, versioning) are in docs/json.md;
// docs/krt_cli.schema.json is their machine-readable form.
#pragma once

#include <concepts>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "krt/types.h"

namespace json_output {

inline constexpr char kJsonWord[] = "--json";

// The document's own version: [major, minor]. Keys and record kinds are only
// ever added within one major version.
inline constexpr int kFormatMajor = 2;
inline constexpr int kFormatMinor = 0;

// The key a field label stands under: ASCII letters and digits lower-cased,
// every run of other characters one underscore, none at either end.
// "BGA progress:" -> "bga_progress". A label with no letter or digit gives "value".
std::string keyOf(std::string_view label);

// `bytes` as a JSON string literal, quotes included. Valid UTF-8 sequences
// are kept; every byte outside one is read as Latin-1 and written \u00XX;
// control characters, quote and backslash are escaped.
void appendString(std::string &out, std::string_view bytes);

// A device or tool text as a record carries it: without the blanks and NULs
// that pad it at either end.
std::string_view trimmed(std::string_view text);

// One JSON value of a field, rendered when it is made.
class Value {
  public:
    template <std::integral Number>
    static Value number(Number n)
    {
        if constexpr (std::same_as<Number, bool>)
            return boolean(n);
        else
            return Value(std::to_string(n));
    }
    static Value boolean(bool value) { return Value(value ? "true" : "false"); }
    static Value null() { return Value("null"); }
    // A text as it stands (not trimmed).
    static Value text(std::string_view bytes);
    static Value array(const std::vector<Value> &elements);
    template <std::integral Number>
    static Value numbers(const std::vector<Number> &ns)
    {
        std::vector<Value> elements;
        for (const Number n : ns)
            elements.push_back(number(n));
        return array(elements);
    }
    static Value texts(const std::vector<std::string> &texts);

    const std::string &json() const { return json_; }

  private:
    explicit Value(std::string json) : json_(std::move(json)) {}
    std::string json_;
};

// How a run went, as the document's "result" says it to scripts. The exit
// status keeps its compatible meaning, under which many failures end with 0;
// the verdict does not.
enum class Verdict {
    Ok,             // nothing went wrong
    UsageError,     // the words were wrong: an option, a value, a command
    NotFound,       // what the words name does not exist or could not be found
    Refused,        // the tool's own checks would not do it
    RequestFailed,  // the controller or device failed a request
    NoController,   // there is no controller to work with
};
const char *verdictName(Verdict kind);

// Notes the verdict where the tool decides it, with the line that said so
// (trimmed of line feeds and blanks; none when nothing was said on the output
// stream). The first failure noted stands: what follows from it, such as the
// "Unable to get info" after a failed request, never replaces it. An Ok note
// (a success line) holds only while nothing else is noted; a later note of
// any kind replaces it. A run with no note at all is Ok.
void noteResult(Verdict kind, std::optional<std::string_view> message = std::nullopt);
// A failed request whose status is known.
void noteRequestFailed(KRT_U32 status, std::string_view message);

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

// One field of the open record, under the key of `label` (a key is its own
// key). A field written outside any record forms a record of its own, of
// kind "summary".
void field(const char *label, const Value &value);
void numberField(const char *label, const std::string &number);
void stringField(const char *label, std::string_view text);
void boolField(const char *label, bool value);

// A request that failed: its status and the line the status decoder printed
// for it (the last one of the command is kept). Also noted as the verdict.
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
