#include "capture/capture.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "api/krt_api.h"
#include "capture/controller_reader.h"
#include "shell/shell.h"
#include "util/state.h"
#include "util/text.h"

namespace capture {

namespace {

// The machine format written: [major, minor] (docs/machine-format.md).
constexpr int kFormatMajor = 1;
constexpr int kFormatMinor = 0;

void say(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Progress and problems go to standard error: standard output stays free
// for whatever the user pipes it into.
void say(const char *format, ...)
{
    std::fputs("krt_cli: ", stderr);
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
}

struct Words {
    std::string file;
    bool oneController = false;
    unsigned long controller = 0;
    KRT_U16 vid = 0;
};

// The words a capture takes: an optional leading controller number (only
// that controller is read), --vid=0x... as for any command, and --capture
// FILE. A command is not run with it.
bool readWords(int argc, char **argv, Words &w)
{
    int i = 1;
    if (argc >= 2 && isNumber(argv[1])) {
        w.oneController = true;
        w.controller = std::strtoul(argv[1], nullptr, 10);
        i = 2;
    }
    for (; i < argc; ++i) {
        if (std::strcmp(argv[i], kCaptureWord) == 0) {
            if (!w.file.empty()) {
                say("%s is given twice", kCaptureWord);
                return false;
            }
            if (i + 1 >= argc || argv[i + 1][0] == '\0' || std::strncmp(argv[i + 1], "--", 2) == 0) {
                say("%s needs the name of the file to write", kCaptureWord);
                return false;
            }
            w.file = argv[++i];
        } else if (isVidWord(argv[i])) {
            w.vid = static_cast<KRT_U16>(std::strtoul(std::strstr(argv[i], "0x"), nullptr, 16));
        } else {
            say("'%s' cannot be used with %s, which takes only a controller number and --vid=0x...", argv[i],
                kCaptureWord);
            return false;
        }
    }
    return true;
}

std::string temporaryName(const std::string &path)
{
    return path + ".tmp." + std::to_string(static_cast<long>(getpid()));
}

// Before anything is read: the file can be made where it is to go.
bool canWrite(const std::string &path, std::string &error)
{
    struct stat st {};
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        error = "it is a folder";
        return false;
    }
    // The new file is renamed over the old one: a device, a fifo or a
    // socket there would be replaced, not written to (/dev/null with it).
    if (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
        error = "it is not a regular file";
        return false;
    }
    const std::string probe = temporaryName(path);
    const int fd = open(probe.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    close(fd);
    unlink(probe.c_str());
    return true;
}

// The file appears whole or not at all: written beside its place, flushed
// to the disk, then renamed over it.
bool writeWhole(const std::string &path, const std::string &text, std::string &error)
{
    const std::string temporary = temporaryName(path);
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            error = std::strerror(n < 0 ? errno : ENOSPC);
            close(fd);
            unlink(temporary.c_str());
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    if (fsync(fd) != 0 || close(fd) != 0) {
        error = std::strerror(errno);
        unlink(temporary.c_str());
        return false;
    }
    if (rename(temporary.c_str(), path.c_str()) != 0) {
        error = std::strerror(errno);
        unlink(temporary.c_str());
        return false;
    }
    // The rename itself reaches the disk with its folder.
    std::string copy = path;
    const int folder = open(dirname(copy.data()), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
    return true;
}

// A short text made in place: the capture's time, a status, a count.
struct Text {
    char text[64] = "";
};

Text utcNow()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    Text t;
    if (gmtime_r(&now, &utc) != nullptr)
        std::strftime(t.text, sizeof t.text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return t;
}

const char *plural(std::size_t n)
{
    return n == 1 ? "" : "s";
}

// "3 parts not read or cut": how much of a capture the notes speak of.
Text notedParts(std::size_t notes)
{
    Text t;
    std::snprintf(t.text, sizeof t.text, "%zu part%s not read or cut", notes, plural(notes));
    return t;
}

// Reads the controllers into the document; the number of notes made.
std::size_t readControllers(Json &doc, int first, int last)
{
    Json adapters = Json::array();
    Json notes = Json::array();
    for (int i = first; i <= last; ++i) {
        gCurrentAdapter = static_cast<KRT_U8>(i);
        const char *name = KRT_Adapter_GetDevicePath(static_cast<KRT_U16>(i));
        ControllerCapture c = readController(static_cast<KRT_U16>(i));
        // Half a controller would not make a machine: it is left out.
        if (c.vanished) {
            say("controller %d (%s): vanished while it was read; left out of the file", i, name);
            c.notes = {{"controller", "vanished while it was read; left out", 0}};
        }
        for (const Note &n : c.notes) {
            Json &note = notes.emplace_back(Json::object());
            put(note, {{"controller", static_cast<unsigned>(i)}});
            note["adapter"] = freeText(name);
            put(note, {{"object", n.object.c_str()}, {"note", n.what.c_str()}});
            if (n.status != 0) {
                Text status;
                std::snprintf(status.text, sizeof status.text, "0x%x", n.status);
                put(note, {{"status", status.text}});
            }
        }
        if (c.vanished)
            continue;
        adapters.push_back(std::move(c.adapter));
        char noted[96] = "";
        if (!c.notes.empty())
            std::snprintf(noted, sizeof noted, "; %s (see \"notes\")", notedParts(c.notes.size()).text);
        say("captured controller %d (%s): %d PD%s, %d VD%s, %d namespace%s, %d event%s%s%s", i, name, c.pds,
            plural(static_cast<std::size_t>(c.pds)), c.vds, plural(static_cast<std::size_t>(c.vds)), c.namespaces,
            plural(static_cast<std::size_t>(c.namespaces)), c.events, plural(static_cast<std::size_t>(c.events)),
            c.foreign ? "; another maker's controller: the standard requests only" : "", noted);
    }
    put(doc["captured"], {{"controllers", adapters.size()}});
    doc["notes"] = notes;
    doc["adapters"] = std::move(adapters);
    return doc["notes"].size();
}

}  // namespace

bool requested(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], kCaptureWord) == 0)
            return true;
    }
    return false;
}

int run(int argc, char **argv)
{
    Words w;
    if (!readWords(argc, argv, w))
        return 1;
    std::string error;
    if (!canWrite(w.file, error)) {
        say("cannot write %s (%s); nothing was captured", w.file.c_str(), error.c_str());
        return 1;
    }

    stream = stdout;
    *KRT_Adapter_GetDeviceVID() = w.vid;
    const auto began = std::chrono::steady_clock::now();
    KRT_Init();
    const int count = KRT_Adapter_GetCount();
    if (count == 0) {
        say("no NVMe Controller is found; nothing was captured and %s was not written", w.file.c_str());
        KRT_Final();
        return 1;
    }
    if (w.oneController && w.controller >= static_cast<unsigned long>(count)) {
        say("NVMe Controller %lu does not exist; nothing was captured", w.controller);
        KRT_Final();
        return 1;
    }
    const int first = w.oneController ? static_cast<int>(w.controller) : 0;
    const int last = w.oneController ? first : count - 1;

    Json doc = Json::object();
    doc["machine_format"] = {kFormatMajor, kFormatMinor};
    char by[32];
    std::snprintf(by, sizeof by, "krt_cli %s", CLI_VERSION);
    put(doc["captured"], {{"by", by}, {"time", utcNow().text}});
    const std::size_t notes = readControllers(doc, first, last);
    KRT_Final();
    const std::size_t written = doc["adapters"].size();
    if (written == 0) {
        say("no controller could be read; %s was not written", w.file.c_str());
        return 1;
    }

    std::string text;
    try {
        text = layout(doc);
    } catch (const Json::exception &e) {
        say("cannot write %s (%s); nothing was written", w.file.c_str(), e.what());
        return 1;
    }
    if (!writeWhole(w.file, text, error)) {
        say("cannot write %s (%s); nothing was written", w.file.c_str(), error.c_str());
        return 1;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    say("wrote %s: %zu controller%s, %zu bytes, %.1f s; %s%s", w.file.c_str(), written, plural(written), text.size(),
        seconds, notes == 0 ? "everything was read" : notedParts(notes).text,
        notes == 0 ? "" : ", listed under \"notes\"");
    return notes == 0 ? 0 : 1;
}

}  // namespace capture
