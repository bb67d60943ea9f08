// krt_cli start-up and the interactive shell.
#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "api/krt_api.h"
#include "capture/capture.h"
#include "commands/verdict.h"
#include "line_editor.h"
#include "shell/shell.h"
#include "util/file_io.h"
#include "util/json_output.h"
#include "util/state.h"
#include "util/text.h"

namespace {

constexpr std::size_t kLineSize = 2048;
constexpr char kNoSuchAdapter[] = "Adapter ID %d is not exist\n";

// The name the output stream was opened under, for the one report of a
// write that failed; empty while it is standard output.
std::string gOutputName;

// The program's words as typed, for the JSON documents.
std::vector<std::string> gTypedWords;
bool gShellRan = false;

void reportLostOutput(int error)
{
    std::fprintf(stderr, "krt_cli: cannot write %s (%s); output is lost.\n",
                 gOutputName.empty() ? "standard output" : ("output file '" + gOutputName + "'").c_str(),
                 std::strerror(error));
}

// Common end of a run that got as far as the registry: release what start-up
// opened. Output that could not be written (a full disk, a closed pipe) is
// reported once, and a run whose output was lost does not end as a success.
bool finish()
{
    KRT_Final();
    std::free(g_pAdInfos);
    g_pAdInfos = nullptr;
    bool written = std::fflush(stream) == 0 && std::ferror(stream) == 0;
    const int error = errno;
    if (stream != nullptr && stream != stdout)
        written = std::fclose(stream) == 0 && written;
    stream = stdout;
    if (!written)
        reportLostOutput(error);
    return written;
}

// The controller a JSON document names: the addressed one, when there is one.
std::optional<json_output::ControllerRef> addressedController()
{
    if (gCurrentAdapter >= gNumAdaptersFound)
        return std::nullopt;
    return json_output::ControllerRef{gCurrentAdapter, gCurrentAdapter + (g_oneBaseMode == 1 ? 1 : 0)};
}

// One JSON document for what has been printed since the last one. Its exit
// status is the one the system keeps.
bool writeJsonDocument(const std::vector<std::string> &words, int status)
{
    if (json_output::writeDocument(words, status & 0xFF, addressedController()))
        return true;
    reportLostOutput(errno);
    return false;
}

// A null line from the editor at a terminal is Ctrl-D and only shows the
// prompt again; a hung-up terminal would keep returning null lines, so the
// shell ends then as it does for exhausted piped input.
bool inputIsGone()
{
    if (isatty(STDIN_FILENO) == 0)
        return true;
    pollfd fd{STDIN_FILENO, POLLIN, 0};
    return poll(&fd, 1, 0) == 1 && (fd.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

// The system keeps only the low 8 bits of an exit status: a request that
// failed with a status such as 0x100 must not look like success to a script.
int exitStatus(int result)
{
    return result != 0 && (result & 0xFF) == 0 ? 1 : result;
}

int runShell()
{
    std::fprintf(stream, "CLI Version: %s\n", CLI_VERSION);
    std::fprintf(stream, "Welcome to NVMe Command Line Interface.\n\n");
    // With --json the start-up lines are a document of their own, and every
    // line typed after them gives one more (JSON Lines).
    const bool json = json_output::active();
    gShellRan = true;
    if (json)
        writeJsonDocument(gTypedWords, 0);
    if (gNumAdaptersFound == 0)
        return 0;

    char buffer[kLineSize];
    char *words[kMaxWords];
    int status = 0;
    std::string line;
    for (;;) {
        std::fflush(stream);
        const LineStatus read = readLine("> ", line);
        if (read == LineStatus::Interrupted)
            continue;  // the editor has ended the abandoned line; a fresh prompt follows
        if (read == LineStatus::NoLine) {
            if (inputIsGone())
                break;
            continue;
        }
        rememberLine(line);
        const int length = std::snprintf(buffer, sizeof buffer, "%s", line.c_str());
        if (length < 0 || static_cast<std::size_t>(length) >= sizeof buffer) {
            std::fflush(stream);
            std::fprintf(stderr, "krt_cli: input line of %d characters is too long (at most %zu allowed).\n", length,
                         sizeof buffer - 1);
            json_output::noteResult(json_output::Verdict::UsageError,
                                    "input line of " + std::to_string(length) + " characters is too long (at most " +
                                        std::to_string(sizeof buffer - 1) + " allowed).");
            status = 1;
            if (json)
                writeJsonDocument({}, 1);
            break;
        }

        int count = 0;
        if (parse(&count, words, kMaxWords, buffer) == 0) {
            tell(Verdict::UsageError, "Invalid quoted string.\n");
            if (json)
                writeJsonDocument({}, 1);
            continue;
        }
        const std::vector<std::string> typed(words, words + count);
        if (json)
            count = json_output::takeJsonWords(count, words);
        if (count == 0) {
            std::fputs("Type 'exit' to exit CLI.\n", stream);
            if (json)
                writeJsonDocument(typed, 0);
            continue;
        }
        const int result = cmdDispatcher(count, words);
        if (json)
            writeJsonDocument(typed, result == -1 ? 0 : exitStatus(result));
        if (result == -1)
            break;
    }
    closeLineEditor();
    if (!finish() && status == 0)
        status = 1;
    return status;
}

// The whole run of the program's words: start-up, then the shell or one command.
int run(int argc, char **argv)
{
    KRT_U16 *vidFilter = KRT_Adapter_GetDeviceVID();
    *vidFilter = 0;
    stream = stdout;
    g_oneBaseMode = KRT_Adapter_GetOneBaseMode();

    // A leading controller number, counted as the user counts. Its value wraps
    // to 8 bits for the index, while the range test sees it as a signed 32-bit
    // number.
    if (argc >= 2 && isNumber(argv[1])) {
        const unsigned long value = std::strtoul(argv[1], nullptr, 10);
        gCurrentAdapter = static_cast<KRT_U8>(value);
        const long long number = static_cast<int>(static_cast<unsigned int>(value));
        const long long first = g_oneBaseMode == 1 ? 1 : 0;
        if (number - first < 0) {
            // Before "-output" is looked at: this one always reaches standard output.
            tell(Verdict::NotFound, kNoSuchAdapter, static_cast<int>(number));
            return 0;
        }
        if (g_oneBaseMode == 1)
            --gCurrentAdapter;
        gSpecificAdapterFlag = 1;
        --argc;
        ++argv;
    }

    // "-output <file>" anywhere but last. The option word is marked so that
    // every command's option parser takes it (option character 1) and ignores it.
    if (argc >= 3) {
        for (int i = 1; i <= argc - 2; ++i) {
            if (strcasecmp(argv[i], "-output") != 0)
                continue;
            // Without waiting: a fifo nobody reads from is refused, not waited on.
            FILE *file = openNoWait(argv[i + 1], "ab");
            if (file != nullptr && json_output::active()) {
                // The command's lines become the document's messages; the
                // document is what the file receives.
                json_output::setDestination(file);
                gOutputName = argv[i + 1];
            } else if (file != nullptr) {
                stream = file;
                gOutputName = argv[i + 1];
            } else {
                std::fprintf(stderr, "krt_cli: cannot open output file '%s' (%s); writing to standard output.\n",
                             argv[i + 1], std::strerror(errno));
            }
            argv[i][1] = static_cast<char>(KRT_OUTPUT_OPTION);
            break;
        }
    }

    // The vendor-ID filter; the last such word wins. The words stay in place.
    unsigned long vid = 0;
    for (int i = 1; i < argc; ++i) {
        if (!isVidWord(argv[i]))
            continue;
        vid = std::strtoul(std::strstr(argv[i], "0x"), nullptr, 16);
        *vidFilter = static_cast<KRT_U16>(vid);
    }

    pCmdTable = generalCmdTableV1;
    cmdTableSize = generalCmdTableV1Size();

    KRT_Init();
    gNumAdaptersFound = static_cast<KRT_U8>(KRT_Adapter_GetCount());

    if (gNumAdaptersFound > 0) {
        if (gSpecificAdapterFlag == 1 && gNumAdaptersFound <= gCurrentAdapter) {
            tell(Verdict::NotFound, kNoSuchAdapter, gCurrentAdapter + (g_oneBaseMode == 1 ? 1 : 0));
            return 0;
        }
        g_pAdInfos = static_cast<_NVME_Adapter_Info *>(std::calloc(gNumAdaptersFound, sizeof(_NVME_Adapter_Info)));
        for (int i = 0; g_pAdInfos != nullptr && i < gNumAdaptersFound; ++i) {
            if (KRT_Adapter_GetSimpleInfo(static_cast<KRT_U16>(i), &g_pAdInfos[i]) == 0)
                continue;
            std::memset(&g_pAdInfos[i], 0, sizeof(_NVME_Adapter_Info));
            if (dbg_enable != 0) {
                std::fprintf(stream, "\nUnable to get info of NVMe Controller %d\n", i + (g_oneBaseMode == 1 ? 1 : 0));
            }
        }
    } else {
        gSysDenied = KRT_IsSysDenied();
        if (gSysDenied != 0) {
            tell(Verdict::NoController, "NVMe Controller is found, but need administrator permission.\n");
        } else {
            tell(Verdict::NoController, "No NVMe Controller is found.\n");
        }
    }

    if (argc == 1 || (gSpecificAdapterFlag == 0 && vid != 0))
        return runShell();

    // With a controller number and a vendor ID, the vendor-ID word is taken
    // to stand first and is skipped.
    int count = argc - 1;
    char **words = argv + 1;
    if (gSpecificAdapterFlag == 1 && vid != 0) {
        count = argc - 2;
        words = argv + 2;
    }

    if (gNumAdaptersFound == 0) {
        // Without a controller only these two have anything to say.
        if (count < 1 || (std::strcmp(words[0], "help") != 0 && std::strcmp(words[0], "version") != 0)) {
            std::fflush(stream);
            return 0;
        }
    }
    const int result = cmdDispatcher(count, words);
    if (!finish() && result == 0)
        return 1;
    return exitStatus(result);
}

}  // namespace

int main(int argc, char **argv)
{
    if (capture::requested(argc, argv))
        return capture::run(argc, argv);
    gTypedWords.assign(argv + 1, argv + argc);
    argc = 1 + json_output::takeJsonWords(argc - 1, argv + 1);
    if (!json_output::active())
        return run(argc, argv);

    // Exactly one document on the output stream: the command's own lines are
    // taken in and become its messages.
    json_output::startCapture();
    int status = run(argc, argv);
    // The shell has written its own documents, one per line.
    if (!gShellRan && !writeJsonDocument(gTypedWords, status) && status == 0)
        status = 1;
    if (!json_output::closeDestination() && status == 0)
        status = 1;
    return status;
}
