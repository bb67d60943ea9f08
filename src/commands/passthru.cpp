// passthru: one NVMe admin command forwarded to a back-end SSD.
#include <getopt.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/smart_log.h"
#include "commands/user_file.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/file_io.h"
#include "util/state.h"
#include "util/text.h"

const char passthru_sh[] = ":Passthrough NVMe admin command to backend device";
const char passthru_help[] =
    "Usage:\n"
    "  passthru -i <PD ID> -r <read|write|none> -o <opcode> [options]\n"
    "\n"
    "Forwards one NVMe admin command to a back-end SSD and shows the data it\n"
    "returns, as bytes and, for the SMART log (opcode 2, --cdw10 0x7f0002), also\n"
    "as SMART information. Only commands that return data (read) are carried out.\n"
    "\n"
    "Options (numbers are decimal, or hexadecimal with 0x):\n"
    "  -i, --id <PD ID>            SSD backend RC/Slot ID; required.\n"
    "  -r, --request <direction>   read: data from the device; write or none: refused.\n"
    "  -o, --opcode <opcode>       opcode of the admin command; required.\n"
    "  -n, --nsid <NSID>           namespace ID of the command.\n"
    "  -f, --fuse <value>          fused operation field (bits 8-9 of dword 0).\n"
    "  -p, --psdt <value>          PSDT field (bits 14-15 of dword 0).\n"
    "  --cdw2, --cdw3 <value>      command dwords 2 and 3.\n"
    "  --cdw10 ... --cdw13 <value> command dwords 10 to 13.\n"
    "  -d, --data-len <bytes>      length of the returned data (at most 65535).\n"
    "  -m, --metadata-len <bytes>  length of the metadata buffer (no metadata is sent).\n"
    "  --outputfile <file>         write the returned data into <file> instead of the screen.\n"
    "  --inputfile <file>          data file for a write request.\n"
    "  --showcmd                   print the command before sending it.\n"
    "  -t <admin|nvm>              command set; admin commands are forwarded.\n"
    "  -h, --help                  show this help.\n"
    "\n"
    "Examples:\n"
    "  passthru -i 1 -r read -o 0x06 --cdw10 1 -d 4096      (Identify Controller of PD 1)\n"
    "  passthru -i 1 -r read -o 2 -n 0xffffffff --cdw10 0x7f0002 -d 512   (its SMART log)\n";

namespace {

// Long-only options.
enum : int {
    kCdw2 = 0x100,
    kCdw3,
    kCdw10,
    kCdw11,
    kCdw12,
    kCdw13,
    kOutputFile,
    kInputFile,
};

// -s takes a word (ignored); --showcmd takes none.
const char kPassthruShortOptions[] = "t:i:u:r:p:f:o:n:m:d:\x01:s:h";
const option kPassthruLongOptions[] = {
    {"id", required_argument, nullptr, 'i'},
    {"request", required_argument, nullptr, 'r'},
    {"psdt", required_argument, nullptr, 'p'},
    {"fuse", required_argument, nullptr, 'f'},
    {"opcode", required_argument, nullptr, 'o'},
    {"nsid", required_argument, nullptr, 'n'},
    {"cdw2", required_argument, nullptr, kCdw2},
    {"cdw3", required_argument, nullptr, kCdw3},
    {"metadata-len", required_argument, nullptr, 'm'},
    {"data-len", required_argument, nullptr, 'd'},
    {"cdw10", required_argument, nullptr, kCdw10},
    {"cdw11", required_argument, nullptr, kCdw11},
    {"cdw12", required_argument, nullptr, kCdw12},
    {"cdw13", required_argument, nullptr, kCdw13},
    {"outputfile", required_argument, nullptr, kOutputFile},
    {"inputfile", required_argument, nullptr, kInputFile},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {"showcmd", no_argument, nullptr, 's'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

// The transport carries 16-bit lengths.
constexpr unsigned long long kLargestDataLength = 0xFFFF;
// SSDs are numbered in 16 bits (the request's control_id holds the ID too).
constexpr unsigned long long kLargestDiskId = 0xFFFF;

constexpr KRT_U16 kFlagCdw0Cdw1 = 0x0003;

// A command dword given on the command line: the number, and the message
// that a word which is no number gets.
struct Dword {
    int option;
    int index;  // in the request
    const char *error;
};
constexpr Dword kDwords[] = {
    {kCdw2, 2, "--cdw2: CDW2 should be a decimal or hexadecimal\n"},
    {kCdw3, 3, "--cdw3: CDW3 should be a decimal or hexadecimal\n"},
    {kCdw10, 10, "--cdw10: CDW10 should be a decimal or hexadecimal\n"},
    {kCdw11, 11, "--cdw11: CDW11 should be a decimal or hexadecimal\n"},
    {kCdw12, 12, "--cdw12: CDW12 should be a decimal or hexadecimal\n"},
    {kCdw13, 13, "--cdw13: CDW13 should be a decimal or hexadecimal\n"},
};

std::string hexText(KRT_U32 value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", value);
    return text;
}

const Dword *dwordOption(int opt)
{
    for (const Dword &d : kDwords) {
        if (d.option == opt)
            return &d;
    }
    return nullptr;
}

// Options counted for the duplicate check (all but --showcmd and the help).
constexpr int kCounted[] = {'t',   'i',   'r',    'p',    'f',    'o',    'n',         'm',       'd',
                            kCdw2, kCdw3, kCdw10, kCdw11, kCdw12, kCdw13, kOutputFile, kInputFile};

}  // namespace

int doPassthru(int argc, char **argv, const Command_Info *entry)
{
    if (argc == 1) {
        return bareCommand(entry);
    }

    std::vector<int> seen;
    KRT_U32 code = 0;  // KRT_PD_CMD_FROM_DISK or KRT_PD_CMD_TO_DISK
    unsigned long long diskId = 0, opcode = 0, fuse = 0, psdt = 0, nsid = 0, dataLength = 0, metadataLength = 0;
    krt_admin_command_format cmd{};
    cmd.cdw_flag = kFlagCdw0Cdw1;
    bool showCommand = false;
    bool toFile = false;  // the returned data goes into --outputfile
    const UserFileCloser closer;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kPassthruShortOptions, kPassthruLongOptions, nullptr)) != -1) {
        seen.push_back(opt);
        unsigned long long value = 0;
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 't':
                if (strcasecmp(optarg, "admin") != 0 && strcasecmp(optarg, "nvm") != 0) {
                    tell(Verdict::UsageError, "-t : invalid action '%s'\n", optarg);
                    return 0;
                }
                break;
            case 'i':
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-i: SSD backend RC/Slot ID should be a number\n");
                    return 0;
                }
                diskId = std::strtoull(optarg, nullptr, 10);
                if ((g_oneBaseMode == 1 && diskId == 0) || diskId > kLargestDiskId) {
                    tell(Verdict::UsageError, "-i : invalid SSD backend RC/Slot ID '%s'.\n", optarg);
                    return 0;
                }
                if (g_oneBaseMode == 1)
                    --diskId;
                break;
            case 'r':
                if (strcasecmp(optarg, "read") == 0) {
                    code = KRT_PD_CMD_FROM_DISK;
                } else if (strcasecmp(optarg, "write") == 0 || strcasecmp(optarg, "none") == 0) {
                    code = KRT_PD_CMD_TO_DISK;
                } else {
                    tell(Verdict::UsageError, "-r : invalid request '%s'\n", optarg);
                    return 0;
                }
                break;
            case 'p':
                if (!readHexOrDecimal(optarg, &psdt)) {
                    tell(Verdict::UsageError, "-p: PSDT should be a decimal or hexadecimal\n");
                    return 0;
                }
                break;
            case 'f':
                if (!readHexOrDecimal(optarg, &fuse)) {
                    tell(Verdict::UsageError, "-f: FUSE should be a decimal or hexadecimal\n");
                    return 0;
                }
                break;
            case 'o':
                if (!readHexOrDecimal(optarg, &opcode)) {
                    tell(Verdict::UsageError, "-o: OPCode should be a decimal or hexadecimal\n");
                    return 0;
                }
                break;
            case 'n':
                if (!readHexOrDecimal(optarg, &nsid)) {
                    tell(Verdict::UsageError, "-n: Backend Namespace ID should be a decimal or hexadecimal\n");
                    return 0;
                }
                break;
            case 'm':
                // Accepted for scripts that give it: no metadata travels
                // through a forwarded command.
                if (!readHexOrDecimal(optarg, &metadataLength)) {
                    tell(Verdict::UsageError, "-m: Metadata length id should be a decimal or hexadecimal\n");
                    return 0;
                }
                break;
            case 'd':
                if (!readHexOrDecimal(optarg, &dataLength)) {
                    tell(Verdict::UsageError, "-d: data length id should be a decimal or hexadecimal\n");
                    return 0;
                }
                if (dataLength > kLargestDataLength) {
                    tell(Verdict::UsageError, "-d: data length should be at most %llu bytes\n", kLargestDataLength);
                    return 0;
                }
                break;
            case kOutputFile:
                // Both file options share the one user file: the last one wins.
                toFile = openUserFile(fileOptionName(optarg), "wb");
                break;
            case kInputFile:
                // Never read: write requests are refused.
                open_file(optarg, "r");
                toFile = false;
                break;
            case 's':
                showCommand = true;
                break;
            case '?':
                unknownOption();  // getopt has said what was wrong
                return 0;
            default:
                if (const Dword *d = dwordOption(opt)) {
                    if (!readHexOrDecimal(optarg, &value)) {
                        tell(Verdict::UsageError, "%s", d->error);
                        return 0;
                    }
                    cmd.CDW[d->index] = static_cast<KRT_U32>(value);
                    cmd.cdw_flag |= static_cast<KRT_U16>(1u << d->index);
                    break;
                }
                // -h, -u.
                printCommandHelp(entry);
                return 0;
        }
    }

    const auto given = [&seen](int option) { return std::count(seen.begin(), seen.end(), option); };
    for (int option : kCounted) {
        if (given(option) > 1) {
            duplicateOption();
            return 0;
        }
    }
    if (given('i') == 0) {
        optionRequired(argv[0], 'i');
        return 0;
    }
    if (given('r') == 0 || given('o') == 0) {
        // A missing opcode is reported as a missing request: kept so.
        optionRequired(argv[0], 'r');
        return 0;
    }

    std::vector<KRT_U8> data(dataLength);
    KRT_U8 *buffer = data.empty() ? nullptr : data.data();
    cmd.CDW[0] = code;
    cmd.CDW[1] = static_cast<KRT_U32>(diskId);
    cmd.control_id = static_cast<KRT_U16>(diskId);
    // The forwarded command's dword 0: opcode, fused operation, PSDT.
    cmd.CDW[14] = static_cast<KRT_U32>(opcode);
    if (given('f') != 0)
        cmd.CDW[14] |= static_cast<KRT_U32>(fuse << 8);
    if (given('p') != 0)
        cmd.CDW[14] |= static_cast<KRT_U32>(psdt << 14);
    cmd.cdw_flag |= 1u << 14;
    if (given('n') != 0) {
        cmd.CDW[15] = static_cast<KRT_U32>(nsid);
        cmd.cdw_flag |= 1u << 15;
    }

    using json_output::Value;
    const int shownDiskId = static_cast<int>(diskId) + (g_oneBaseMode == 1 ? 1 : 0);
    {
        // The forwarded command as it leaves; its dword 0 carries the opcode.
        const FieldWriter out(stream, 0);
        out.beginRecord("passthru_command");
        out.extra("pd_id", Value::number(shownDiskId));
        out.typed("CDW[0]:", hexText(cmd.CDW[14]), Value::number(cmd.CDW[14]), "cdw0");
        if (showCommand) {
            std::vector<KRT_U32> words;
            std::string text = "[Command Format]\n";
            for (int i = 0; i < 16; ++i) {
                KRT_U32 word = cmd.CDW[i];
                if (i == 7)
                    word = static_cast<KRT_U32>(reinterpret_cast<std::uintptr_t>(buffer));
                else if (i == 9)
                    word = static_cast<KRT_U32>(dataLength);
                words.push_back(word);
                char line[32];
                std::snprintf(line, sizeof line, "CDW%02d: 0x%x\n", i, word);
                text += line;
            }
            text.pop_back();  // the writer ends the line
            // The lines stand without a label of their own.
            FieldWriter(stream, 0, "").typed("", text, Value::numbers(words), "command_dwords");
        }
        out.endRecord();
    }
    if (code == KRT_PD_CMD_TO_DISK) {
        tell(Verdict::Refused, "VMware does not support passthrough write command .\n");
        return 0;
    }

    const KRT_U32 status =
        KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, buffer, static_cast<KRT_U16>(dataLength));
    if (status != 0) {
        tell(Verdict::RequestFailed, "Passthrough command is failed.\n");
        return static_cast<int>(status);
    }
    if (toFile) {
        if (!data.empty())
            write_file(buffer, data.size());
        close_file();
    } else {
        const FieldWriter out(stream, 0);
        out.beginRecord("passthru_data");
        out.extra("pd_id", Value::number(shownDiskId));
        out.extra("length_bytes", Value::number(data.size()));
        out.bytes("data", buffer, static_cast<long>(data.size()), _showRAWData);
        out.endRecord();
    }
    if (cmd.CDW[10] == NVME_SMART_LOG_CDW10 && opcode == NVME_ADMIN_GET_LOG_PAGE) {
        // A shorter read leaves the rest of the log zero.
        _krt_smart_log log{};
        if (!data.empty())
            std::memcpy(&log, buffer, std::min(data.size(), sizeof log));
        showLogSmartInfo(log, 0, {SmartSubject::Kind::PhysicalDisk, gCurrentAdapter, shownDiskId});
    }
    tell(Verdict::Ok, "Passthrough command is success.\n");
    return 0;
}

const CommandOptions passthru_options = {kPassthruShortOptions, kPassthruLongOptions};
