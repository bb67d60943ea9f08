#include "util/json_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "util/state.h"

namespace json_output {

namespace {

// An open object or array of the records under construction. A listing at
// the top adds nothing to the text: records stand in one flat array there.
struct Frame {
    bool isRecord;
    bool written;                   // a listing that opened an array in its record
    bool first;                     // no element written into it yet
    std::vector<std::string> keys;  // a record's keys so far
};

struct Document {
    bool active = false;
    std::string records;
    bool firstRecord = true;
    std::vector<Frame> frames;
    std::optional<std::pair<KRT_U32, std::string>> status;
    // The verdict noted so far; none is Ok.
    std::optional<Verdict> verdict;
    std::optional<std::string> verdictMessage;
    std::optional<KRT_U32> verdictStatus;
    std::FILE *capture = nullptr;  // what standard output writes into
    std::FILE *destination = nullptr;
    std::FILE *realOut = nullptr;
};

Document &doc()
{
    static Document document;
    return document;
}

void appendEscape(std::string &out, unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", value);
    out += text;
}

// Length of the valid UTF-8 sequence starting at `at`, or 0 when the byte
// there does not start one (overlong forms and surrogates included).
std::size_t sequenceLength(std::string_view bytes, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byte(at);
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        low = lead == 0xE0 ? 0xA0 : 0x80;
        high = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        low = lead == 0xF0 ? 0x90 : 0x80;
        high = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (at + length > bytes.size())
        return 0;
    if (byte(at + 1) < low || byte(at + 1) > high)
        return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if (byte(at + i) < 0x80 || byte(at + i) > 0xBF)
            return 0;
    }
    return length;
}

void appendKey(std::string &out, Frame &record, const char *label)
{
    std::string key = keyOf(label);
    // A label that repeats within one record keeps its fields apart.
    const std::string base = key;
    for (int n = 2; std::find(record.keys.begin(), record.keys.end(), key) != record.keys.end(); ++n)
        key = base + "_" + std::to_string(n);
    record.keys.push_back(key);
    out += ',';
    appendString(out, key);
    out += ':';
}

// Opens a value in the innermost open container: the separator, and the key
// when that container is a record.
void openValue(const char *label)
{
    Document &d = doc();
    Frame *top = d.frames.empty() ? nullptr : &d.frames.back();
    if (top == nullptr || (!top->isRecord && !top->written)) {
        if (!d.firstRecord)
            d.records += ',';
        d.firstRecord = false;
    } else if (!top->isRecord) {
        if (!top->first)
            d.records += ',';
        top->first = false;
    } else {
        appendKey(d.records, *top, label);
    }
}

void closeTop()
{
    Document &d = doc();
    const Frame top = d.frames.back();
    d.frames.pop_back();
    if (top.isRecord)
        d.records += '}';
    else if (top.written)
        d.records += ']';
}

// Closes frames up to and including the innermost one of the kind asked for.
void closeThrough(bool record)
{
    Document &d = doc();
    const auto open = std::find_if(d.frames.rbegin(), d.frames.rend(),
                                   [record](const Frame &frame) { return frame.isRecord == record; });
    if (open == d.frames.rend())
        return;
    const std::size_t keep = static_cast<std::size_t>(d.frames.rend() - open) - 1;
    while (d.frames.size() > keep)
        closeTop();
}

// A message as the verdict keeps it: one line's text without the line feeds
// and blanks around it.
std::string messageText(std::string_view message)
{
    const std::size_t first = message.find_first_not_of(" \n");
    if (first == std::string_view::npos)
        return {};
    const std::size_t last = message.find_last_not_of(" \n");
    return std::string(message.substr(first, last - first + 1));
}

void note(Verdict kind, std::optional<std::string_view> message, std::optional<KRT_U32> status)
{
    Document &d = doc();
    // The first failure stands; a success line holds only until anything
    // else is said.
    if (d.verdict && *d.verdict != Verdict::Ok)
        return;
    d.verdict = kind;
    d.verdictMessage.reset();
    if (message)
        d.verdictMessage = messageText(*message);
    d.verdictStatus = status;
}

// The lines standard output received since the last call; blank lines only
// space the text out and are left out.
std::vector<std::string> takeMessages()
{
    Document &d = doc();
    std::vector<std::string> lines;
    std::fflush(stdout);
    if (d.capture == nullptr)
        return lines;
    const int fd = fileno(d.capture);
    struct stat info {};
    std::string text;
    if (fstat(fd, &info) == 0 && info.st_size > 0) {
        text.resize(static_cast<std::size_t>(info.st_size));
        const ssize_t got = pread(fd, text.data(), text.size(), 0);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    if (ftruncate(fd, 0) != 0)
        text.clear();
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        if (end > start)
            lines.emplace_back(text, start, end - start);
        start = end + 1;
    }
    return lines;
}

void appendStrings(std::string &out, const std::vector<std::string> &texts)
{
    out += '[';
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (i != 0)
            out += ',';
        appendString(out, texts[i]);
    }
    out += ']';
}

}  // namespace

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view kPadding(" \0", 2);
    const std::size_t first = text.find_first_not_of(kPadding);
    if (first == std::string_view::npos)
        return {};
    const std::size_t last = text.find_last_not_of(kPadding);
    return text.substr(first, last - first + 1);
}

Value Value::text(std::string_view bytes)
{
    std::string json;
    appendString(json, bytes);
    return Value(std::move(json));
}

Value Value::array(const std::vector<Value> &elements)
{
    std::string json = "[";
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (i != 0)
            json += ',';
        json += elements[i].json();
    }
    return Value(json + "]");
}

Value Value::texts(const std::vector<std::string> &texts)
{
    std::vector<Value> elements;
    for (const std::string &t : texts)
        elements.push_back(text(t));
    return array(elements);
}

const char *verdictName(Verdict kind)
{
    switch (kind) {
        case Verdict::Ok:
            return "ok";
        case Verdict::UsageError:
            return "usage_error";
        case Verdict::NotFound:
            return "not_found";
        case Verdict::Refused:
            return "refused";
        case Verdict::RequestFailed:
            return "request_failed";
        case Verdict::NoController:
            return "no_controller";
    }
    return "ok";
}

void noteResult(Verdict kind, std::optional<std::string_view> message)
{
    note(kind, message, std::nullopt);
}

void noteRequestFailed(KRT_U32 status, std::string_view message)
{
    note(Verdict::RequestFailed, message, status);
}

std::string keyOf(std::string_view label)
{
    std::string key;
    bool gap = false;
    for (const char c : label) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!letter) {
            gap = true;
            continue;
        }
        if (gap && !key.empty())
            key += '_';
        gap = false;
        key += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return key.empty() ? std::string("value") : key;
}

void appendString(std::string &out, std::string_view bytes)
{
    out += '"';
    for (std::size_t i = 0; i < bytes.size();) {
        const auto c = static_cast<unsigned char>(bytes[i]);
        if (c < 0x80) {
            if (c == '"' || c == '\\') {
                out += '\\';
                out += static_cast<char>(c);
            } else if (c == '\n') {
                out += "\\n";
            } else if (c == '\r') {
                out += "\\r";
            } else if (c == '\t') {
                out += "\\t";
            } else if (c < 0x20 || c == 0x7F) {
                appendEscape(out, c);
            } else {
                out += static_cast<char>(c);
            }
            ++i;
            continue;
        }
        const std::size_t length = sequenceLength(bytes, i);
        if (length == 0) {
            appendEscape(out, c);  // not UTF-8: the byte as Latin-1
            ++i;
        } else if (c == 0xC2 && static_cast<unsigned char>(bytes[i + 1]) < 0xA0) {
            appendEscape(out, static_cast<unsigned char>(bytes[i + 1]));  // C1 control characters
            i += 2;
        } else {
            out.append(bytes.substr(i, length));
            i += length;
        }
    }
    out += '"';
}

bool active()
{
    return doc().active;
}

int takeJsonWords(int count, char **words)
{
    int kept = 0;
    for (int i = 0; i < count; ++i) {
        if (std::strcmp(words[i], kJsonWord) == 0) {
            doc().active = true;
            continue;
        }
        words[kept++] = words[i];
    }
    for (int i = kept; i < count; ++i)
        words[i] = nullptr;
    return kept;
}

void startCapture()
{
    Document &d = doc();
    std::fflush(stdout);
    const int real = dup(STDOUT_FILENO);
    d.realOut = real >= 0 ? fdopen(real, "w") : nullptr;
    // The lines go to an unnamed temporary file: a pipe would stall a command
    // that prints more than the pipe holds. Without one they are dropped
    // rather than mixed into the document.
    d.capture = std::tmpfile();
    int target = -1;
    if (d.capture != nullptr) {
        target = fileno(d.capture);
        fcntl(target, F_SETFL, fcntl(target, F_GETFL) | O_APPEND);
        dup2(target, STDOUT_FILENO);
    } else {
        target = open("/dev/null", O_WRONLY);
        if (target >= 0) {
            dup2(target, STDOUT_FILENO);
            close(target);
        }
    }
}

void setDestination(std::FILE *destination)
{
    doc().destination = destination;
}

void beginRecord(const char *kind)
{
    Document &d = doc();
    openValue(kind);
    d.records += "{\"record\":";
    appendString(d.records, kind);
    d.frames.push_back({true, false, true, {"record"}});
}

void endRecord()
{
    closeThrough(true);
}

void beginListing(const char *label)
{
    Document &d = doc();
    if (!d.frames.empty() && d.frames.back().isRecord) {
        appendKey(d.records, d.frames.back(), label);
        d.records += '[';
        d.frames.push_back({false, true, true, {}});
        return;
    }
    d.frames.push_back({false, false, true, {}});
}

void endListing()
{
    closeThrough(false);
}

void field(const char *label, const Value &value)
{
    Document &d = doc();
    if (d.frames.empty() || !d.frames.back().isRecord) {
        beginRecord("summary");
        field(label, value);
        endRecord();
        return;
    }
    appendKey(d.records, d.frames.back(), label);
    d.records += value.json();
}

void numberField(const char *label, const std::string &number)
{
    Document &d = doc();
    if (d.frames.empty() || !d.frames.back().isRecord) {
        beginRecord("summary");
        numberField(label, number);
        endRecord();
        return;
    }
    appendKey(d.records, d.frames.back(), label);
    d.records += number;
}

void stringField(const char *label, std::string_view text)
{
    field(label, Value::text(text));
}

void boolField(const char *label, bool value)
{
    field(label, Value::boolean(value));
}

void noteStatus(KRT_U32 value, const std::string &text)
{
    doc().status = std::make_pair(value, text);
    noteRequestFailed(value, text);
}

bool writeDocument(const std::vector<std::string> &argv, int exitStatus, const std::optional<ControllerRef> &controller)
{
    Document &d = doc();
    const std::vector<std::string> messages = takeMessages();
    // A listing the controller cut short still closes.
    while (!d.frames.empty())
        closeTop();

    std::string text = "{\"json_format_version\":[" + std::to_string(kFormatMajor) + "," +
                       std::to_string(kFormatMinor) + "],\"krt_cli\":{\"version\":";
    appendString(text, CLI_VERSION);
    text += ",\"argv\":";
    appendStrings(text, argv);
    text += ",\"exit_status\":" + std::to_string(exitStatus) + "},\"controller\":";
    if (controller) {
        text += "{\"index\":" + std::to_string(controller->index) +
                ",\"number\":" + std::to_string(controller->number) + "}";
    } else {
        text += "null";
    }
    const Verdict verdict = d.verdict.value_or(Verdict::Ok);
    text += ",\"result\":{\"kind\":";
    appendString(text, verdictName(verdict));
    text += ",\"message\":";
    if (d.verdictMessage)
        appendString(text, *d.verdictMessage);
    else
        text += "null";
    if (d.verdictStatus)
        text += ",\"status\":" + std::to_string(*d.verdictStatus);
    text += '}';
    text += ",\"records\":[" + d.records + "],\"messages\":";
    appendStrings(text, messages);
    if (d.status) {
        text += ",\"status\":{\"value\":" + std::to_string(d.status->first) + ",\"text\":";
        appendString(text, d.status->second);
        text += '}';
    }
    text += "}\n";

    d.records.clear();
    d.firstRecord = true;
    d.status.reset();
    d.verdict.reset();
    d.verdictMessage.reset();
    d.verdictStatus.reset();

    std::FILE *out = d.destination != nullptr ? d.destination : d.realOut;
    if (out == nullptr)
        return false;
    std::fwrite(text.data(), 1, text.size(), out);
    return std::fflush(out) == 0 && std::ferror(out) == 0;
}

bool closeDestination()
{
    Document &d = doc();
    bool written = true;
    if (d.destination != nullptr) {
        written = std::fclose(d.destination) == 0;
        d.destination = nullptr;
    }
    if (d.realOut != nullptr)
        written = std::fflush(d.realOut) == 0 && std::ferror(d.realOut) == 0 && written;
    return written;
}

}  // namespace json_output
