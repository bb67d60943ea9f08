// log: the controller's SPI debug log, switched on or off and read out.
#include <getopt.h>
#include <strings.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/request_words.h"
#include "commands/user_file.h"
#include "commands/verdict.h"
#include "krt/logs.h"
#include "util/fields.h"
#include "util/file_io.h"
#include "util/state.h"

const char log_sh[] = ":For show/on/off SPI log";
const char log_help[] =
    "\n"
    "Usage: log -a <show|on|off> [--outputfile <file>]\n"
    "\n"
    "Switches the SPI log of the NVMe Controller on or off, or reads it out.\n"
    "\n"
    "Options:\n"
    "  -a, --action <show|on|off>\n"
    "        show: read the SPI log out to the screen (the log must be on);\n"
    "        on, off: switch the SPI log. Required.\n"
    "  --outputfile <file>\n"
    "        With 'show', also save the log into <file>. The file is created,\n"
    "        or emptied, as soon as the option is read. A name in double\n"
    "        quotes may hold blanks.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "Examples:\n"
    "  log -a on\n"
    "  log -a show --outputfile spi_log.txt\n";

namespace {

// --outputfile has no short form.
constexpr int kOutputFileOption = 0x100;

const char kLogShortOptions[] = "\x01:a:h";
const option kLogLongOptions[] = {
    {"action", required_argument, nullptr, 'a'},
    {"outputfile", required_argument, nullptr, kOutputFileOption},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

enum class LogAction { None, Show, On, Off };

constexpr KRT_U16 kLogReadFlag = 0x1401;    // CDW0, CDW10, CDW12
constexpr KRT_U16 kLogSwitchFlag = 0x5001;  // CDW0, CDW12, CDW14

// A controller that never ends its log is read no further than this.
constexpr int kMaxSPILogChunks = 16384;

const char kNoSPILog[] = "\nUnable to get SPI log from NVMe Controller\n";
const char kCmdSuccess[] = "cmd success\n";

krt_admin_command_format logRequest(KRT_U8 subOpcode)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[10] = KRT_LOG_READ_DWORDS;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_DUMP, subOpcode, 0);
    cmd.cdw_flag = kLogReadFlag;
    return cmd;
}

int switchSPILog(bool on)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_DUMP, KRT_LOG_SPI_SWITCH, 0);
    cmd.CDW[14] = on ? 1 : 0;
    cmd.cdw_flag = kLogSwitchFlag;
    printRequestWords(cmd, {0, 12, 14});
    const KRT_U32 status = KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, nullptr, 0);
    if (status != 0) {
        tell(Verdict::RequestFailed, "cmd failed.\n");
        return static_cast<int>(status);
    }
    tell(Verdict::Ok, kCmdSuccess);
    return 0;
}

// The log's state: 0 when it is off (`reportedOff`) or the reply is not ours. A failed
// query is reported here and hands back its status, which is not 0: the
// read-out is then tried all the same.
int getStatus(bool &reportedOff)
{
    reportedOff = false;
    const krt_admin_command_format cmd = logRequest(KRT_LOG_SPI_STATE);
    auto reply = std::make_unique<_NVMEReceiveData>();
    const KRT_U32 status = KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, reply.get(), sizeof *reply);
    if (status != 0) {
        tell(Verdict::RequestFailed, kNoSPILog);
        return static_cast<int>(status);
    }
    if (std::memcmp(reply->sign, KRT_SIGN, sizeof KRT_SIGN) != 0)
        return 0;
    reportedOff = reply->data[0] == 0;
    return reply->data[0];
}

// Reads the log out chunk by chunk onto the output stream and, when a file
// is open, into it as well. With --json the text is one field of an spi_log
// record instead of lines of the document.
int showSPILog(bool toFile, const std::string &fileName)
{
    bool reportedOff = false;
    if (getStatus(reportedOff) == 0) {
        if (reportedOff) {
            const FieldWriter out(stream, 0);
            out.beginRecord("spi_log");
            out.extra("enabled", json_output::Value::boolean(false));
            out.extra("text", json_output::Value::text(""));
            out.endRecord();
        }
        tell(Verdict::NotFound, kNoSPILog);
        return 1;
    }
    std::string logText;
    const bool json = json_output::active();

    const krt_admin_command_format cmd = logRequest(KRT_LOG_SPI_CHUNK);
    auto chunk = std::make_unique<_NVME_SPI_Log_Chunk>();
    bool afterNewline = false;
    bool fileFailed = false;
    for (int n = 0; n < kMaxSPILogChunks; ++n) {
        printRequestWords(cmd, {0, 10, 12});
        *chunk = _NVME_SPI_Log_Chunk{};
        const KRT_U32 status = KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, chunk.get(), sizeof *chunk);
        if (status != 0) {
            tell(Verdict::RequestFailed, kNoSPILog);
            return static_cast<int>(status);
        }
        const KRT_U32 length = chunk->length & 0xFFFF;
        if (length > KRT_SPI_LOG_MAX_CHUNK) {
            tell(Verdict::RequestFailed, "Error SPI data length: %d\n", static_cast<int>(length));
            return 1;
        }
        if (length == 0) {
            if (n == 0)
                tell(Verdict::Ok, "No SPI log\n");
            break;
        }
        // The firmware pads lines with a NUL after the line feed; it shows
        // as a blank. The file gets the bytes as they came.
        for (KRT_U32 i = 0; i < length; ++i) {
            const char c = chunk->text[i];
            const char shown = c == '\0' && afterNewline ? ' ' : c;
            if (json)
                logText += shown;
            else
                std::fputc(shown, stream);
            afterNewline = c == '\n';
        }
        if (toFile && !fileFailed && write_file(chunk->text, length) != length) {
            reportFileError("write", fileName);
            fileFailed = true;
        }
    }
    close_file();
    const FieldWriter out(stream, 0);
    out.beginRecord("spi_log");
    out.extra("enabled", json_output::Value::boolean(true));
    out.extra("text", json_output::Value::text(logText));
    out.endRecord();
    tell(Verdict::Ok, kCmdSuccess);
    return 0;
}

}  // namespace

int doSLog(int argc, char **argv, const Command_Info *entry)
{
    UserFileCloser closer;
    LogAction action = LogAction::None;
    int actionCount = 0;
    int fileCount = 0;
    bool fileOpen = false;
    std::string fileName;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kLogShortOptions, kLogLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case kOutputFileOption:
                // Opened at once, replacing what the file held.
                ++fileCount;
                fileName = fileOptionName(optarg);
                fileOpen = openUserFile(fileName, "wb");
                break;
            case 'a':
                if (strcasecmp(optarg, "show") == 0) {
                    action = LogAction::Show;
                } else if (strcasecmp(optarg, "on") == 0) {
                    action = LogAction::On;
                } else if (strcasecmp(optarg, "off") == 0) {
                    action = LogAction::Off;
                } else {
                    tell(Verdict::UsageError, "-a : invalid action '%s'.\n", optarg);
                    return 0;
                }
                ++actionCount;
                break;
            case '?':
                unknownOption();
                return 0;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    if (actionCount > 1 || fileCount > 1) {
        duplicateOption();
        return 1;
    }

    switch (action) {
        case LogAction::On:
        case LogAction::Off:
            return switchSPILog(action == LogAction::On);
        case LogAction::Show:
            return showSPILog(fileOpen, fileName);
        case LogAction::None:
            break;
    }
    tell(Verdict::UsageError, "Error action!\n");
    return 1;
}

const CommandOptions log_options = {kLogShortOptions, kLogLongOptions};
