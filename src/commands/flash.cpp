// flash: firmware update of the controller or of a back-end SSD, and the
// firmware slots of either.
#include "commands/flash.h"

#include <getopt.h>
#include <strings.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/verdict.h"
#include "firmware/image.h"
#include "util/fields.h"
#include "util/file_io.h"
#include "util/state.h"
#include "util/text.h"

const char flash_sh[] = ":Update flash image.";
const char flash_help[] =
    "\n"
    "Usage: flash -o hba -f <file> -s <slot> -c <commit action>\n"
    "       flash -o hba -t raw -f <file>\n"
    "       flash -o pd -i <PD ID> -f <file> -s <slot> -c <commit action> [-b <boot partition id>]\n"
    "       flash -o <hba|pd> -c 2 -s <slot> [-i <PD ID>]\n"
    "       flash -o <hba|pd> -q firmware [-i <PD ID>]\n"
    "\n"
    "Updates the firmware of the NVMe Controller (hba) or of one SSD behind it (pd).\n"
    "A controller image is downloaded in the background while its percentage is\n"
    "shown once a second; an SSD image is sent 4096 bytes at a time.\n"
    "\n"
    "Options:\n"
    "  -o, --object <hba|pd|hd>\n"
    "        The NVMe Controller (hba) or a backend SSD (pd or hd). Required.\n"
    "  -f, --file <file>\n"
    "        Firmware image file. Required unless the commit action is 2 or 3;\n"
    "        commit action 3 without a file activates what the slot holds.\n"
    "  -i, --id <PD ID>\n"
    "        SSD backend RC/Slot ID, as 'info -o pd' shows it. Required with '-o pd'\n"
    "        except with -q, where it defaults to the current NVMe Controller's id.\n"
    "  -s, --fs=<slot>\n"
    "        Firmware slot 0-7; 0 lets the device choose. Required unless '-t raw'.\n"
    "  -c, --ca=<commit action>\n"
    "        Commit action 0-7. Required unless '-t raw'.\n"
    "          0: store the image in the slot\n"
    "          1: store the image and activate it at the next reset\n"
    "          2: activate the image the slot holds at the next reset (no file)\n"
    "          3: activate now the image given, else the one the slot holds\n"
    "  -b, --bp_id=<0|1>\n"
    "        Boot partition ID of the commit, for '-o pd'. Default 0.\n"
    "  -t, --type raw\n"
    "        The file is a whole raw image of the NVMe Controller: it must be whole\n"
    "        4096-byte blocks whose 32-bit words add up to 0, or nothing is sent.\n"
    "        It goes to slot 1 with commit action 1; -s and -c are not accepted.\n"
    "  -q, --slot_info=firmware\n"
    "        Show the number of firmware slots and the active slots.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "A controller or SSD update takes effect once the host is shut down and booted\n"
    "again, or at once with commit action 3 where the device allows it.\n"
    "\n"
    "Examples:\n"
    "  flash -o hba -f fw.bin -s 2 -c 1\n"
    "  flash -o hba -t raw -f whole.bin\n"
    "  flash -o pd -i 1 -f ssd.bin -s 1 -c 1\n"
    "  flash -o pd -i 1 -q firmware\n";

namespace {

enum class FlashObject { None, Hba, Pd };

// The --output character sits between the two halves with an optional
// argument; it is never typed as a short option.
const char kFlashShortOptions[] = "f:t:\x01::o:i:s:c:b:q:h";
// As long options, --fs, --ca, --bp_id and --slot_info take their value only
// as "--fs=1".
const option kFlashLongOptions[] = {
    {"object", required_argument, nullptr, 'o'},
    {"type", required_argument, nullptr, 't'},
    {"id", required_argument, nullptr, 'i'},
    {"file", required_argument, nullptr, 'f'},
    {"fs", optional_argument, nullptr, 's'},
    {"ca", optional_argument, nullptr, 'c'},
    {"bp_id", optional_argument, nullptr, 'b'},
    {"slot_info", optional_argument, nullptr, 'q'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

constexpr std::size_t kPathSize = 1024;
// Disk IDs are 16-bit wherever the controller reports or takes them.
constexpr unsigned long kMaxDiskId = 0xFFFF;

constexpr KRT_U8 kTypeRaw = 1;
constexpr KRT_U8 kCaActivateSlot = 2;
constexpr KRT_U8 kCaReplaceNow = 3;

constexpr KRT_U8 kOpcodeIdentify = 6;
constexpr KRT_U8 kOpcodeGetLogPage = 2;
constexpr KRT_U32 kIdentifyController = 1;
constexpr KRT_U32 kFirmwareSlotLog = 0x007F0003;  // log 3, 128 dwords
constexpr std::size_t kIdentifySize = 4096;
constexpr std::size_t kSlotLogSize = 512;
constexpr std::size_t kFirmwareUpdatesByte = 260;  // Identify Controller FRMW
constexpr std::size_t kSlotRevisionsByte = 8;      // FRS1 of the slot log
constexpr std::size_t kSlotRevisionSize = 8;

// Back-end SSD requests: the forwarded opcode in CDW14, the disk in CDW1.
constexpr KRT_U16 kFlagDiskDownload = 0x4C03;  // CDW0, 1, 10, 11, 14
constexpr KRT_U16 kFlagDiskCommand = 0x4403;   // CDW0, 1, 10, 14
constexpr KRT_U16 kFlagDiskLog = 0xC403;       // CDW0, 1, 10, 14, 15

const char kAdapterFlashFailed[] =
    "start to flash NVMe Controller firmware failed (Invalid firmware image, please check image and try again.)\n";
const char kFailedToOpen[] = "failed to open file %s\n";
const char kAdapterFlashFailedCode[] =
    "Flash NVMe Controller firmware failed (error code: %d, Invalid firmware image, please check image and try "
    "again.)\n";
// The result of a flash that the worker ended before the controller had a say.
constexpr KRT_U32 kLocalFailure = 1;

FlashObject parseObject(const char *word)
{
    if (strcasecmp(word, "hba") == 0)
        return FlashObject::Hba;
    if (strcasecmp(word, "pd") == 0 || strcasecmp(word, "hd") == 0)
        return FlashObject::Pd;
    return FlashObject::None;
}

// A value of -s, -c or -b: digits only, not above max. A long option given
// without "=value" has none and is refused like a bad one.
bool smallNumber(const char *text, unsigned long max, KRT_U8 *value)
{
    if (text == nullptr || !isNumber(text))
        return false;
    const unsigned long n = std::strtoul(text, nullptr, 10);  // saturates: too long is too big
    if (n > max)
        return false;
    *value = static_cast<KRT_U8>(n);
    return true;
}

// The disk ID as typed, made zero-based; a number past the 16-bit IDs would
// wrap onto another disk, so it is refused.
bool diskId(const char *text, KRT_U16 *id)
{
    if (!isNumber(text))
        return false;
    const unsigned long n = std::strtoul(text, nullptr, 10);
    const unsigned long base = g_oneBaseMode == 1 ? 1 : 0;
    if (n < base || n - base > kMaxDiskId)
        return false;
    *id = static_cast<KRT_U16>(n - base);
    return true;
}

// The image path of -f: a value in double quotes ends at the closing one.
void copyPath(const char *value, char (&path)[kPathSize])
{
    const char *start = value;
    std::size_t length = std::strlen(value);
    if (value[0] == '"') {
        ++start;
        const char *end = std::strchr(start, '"');
        length = end != nullptr ? static_cast<std::size_t>(end - start) : std::strlen(start);
    }
    if (length > kPathSize - 1)
        length = kPathSize - 1;
    std::memcpy(path, start, length);
    path[length] = '\0';
}

const char *shown(const char *value)
{
    return value != nullptr ? value : "";
}

void sleepOneSecond()
{
    std::fflush(stream);
    std::this_thread::sleep_for(std::chrono::seconds(1));
}

int shownDiskId(KRT_U16 id)
{
    return id + (g_oneBaseMode == 1 ? 1 : 0);
}

bool isDirectory(const char *path)
{
    struct stat st {};
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

krt_admin_command_format diskRequest(KRT_U8 opcode, KRT_U16 pdId, KRT_U8 forwarded, KRT_U16 flag)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = opcode;
    cmd.CDW[1] = pdId;
    cmd.CDW[14] = forwarded;
    cmd.cdw_flag = flag;
    return cmd;
}

// A disk download that went wrong, because of the image (`kind` Refused) or
// of a request; the command's result is what the message printed.
KRT_U32 diskDownloadFailed(KRT_U16 pdId, Verdict kind)
{
    close_file();
    const int printed = tell(kind,
                             "\nStart to flash NVMe Controller disk %d firmware failed (Invalid firmware "
                             "image, please check image and try again.)\n",
                             shownDiskId(pdId));
    return static_cast<KRT_U32>(printed);
}

}  // namespace

int doFlash(int argc, char **argv, const Command_Info *entry)
{
    // The worker reads the image path after this call has started it.
    static char path[kPathSize];
    path[0] = '\0';
    FlashObject object = FlashObject::None;
    KRT_U16 pdId = gCurrentAdapter;
    KRT_U8 slot = 1, ca = 1, bootPartition = 0;
    bool raw = false, query = false, failed = false;
    int fileCount = 0, idCount = 0, slotCount = 0, caCount = 0, bpCount = 0, typeCount = 0, queryCount = 0;

    optind = 0;
    int opt;
    bool parsing = true;
    while (parsing && (opt = getopt_long(argc, argv, kFlashShortOptions, kFlashLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'o':
                object = parseObject(optarg);
                if (object == FlashObject::None) {
                    tell(Verdict::UsageError, "-o : invalid object '%s'\n", optarg);
                    failed = true;
                }
                break;
            case 't':
                ++typeCount;
                if (strcasecmp(optarg, "raw") == 0) {
                    raw = true;
                } else {
                    tell(Verdict::UsageError, "-t : invalid type '%s'\n", optarg);
                    failed = true;
                }
                break;
            case 'i':
                ++idCount;
                if (!diskId(optarg, &pdId)) {
                    tell(Verdict::UsageError, "-i : invalid id '%s'.\n", optarg);
                    failed = true;
                }
                break;
            case 'f':
                ++fileCount;
                copyPath(optarg, path);
                break;
            case 's':
                ++slotCount;
                if (!smallNumber(optarg, 7, &slot)) {
                    tell(Verdict::UsageError, "-s : invalid firmware slot '%s'.\n", shown(optarg));
                    failed = true;
                }
                break;
            case 'c':
                ++caCount;
                if (!smallNumber(optarg, 7, &ca)) {
                    tell(Verdict::UsageError, "-c : invalid commit action '%s'.\n", shown(optarg));
                    failed = true;
                }
                break;
            case 'b':
                ++bpCount;
                if (!smallNumber(optarg, 1, &bootPartition)) {
                    tell(Verdict::UsageError, "-b : invalid boot partition id '%s'.\n", shown(optarg));
                    failed = true;
                }
                break;
            case 'q':
                ++queryCount;
                if (optarg != nullptr && strcasecmp(optarg, "firmware") == 0) {
                    query = true;
                } else {
                    tell(Verdict::UsageError, "-q : invalid query '%s'\n", shown(optarg));
                    failed = true;
                }
                break;
            case 'h':
                printCommandHelp(entry);
                return 0;
            case '?':
                unknownOption();
                failed = true;
                parsing = false;
                break;
            default:
                printCommandHelp(entry);
                return 0;
        }
    }

    if (argc == 1) {
        return bareCommand(entry);
    }
    // -o is not counted: the last one given wins.
    if (fileCount > 1 || idCount > 1 || slotCount > 1 || caCount > 1 || bpCount > 1 || typeCount > 1 ||
        queryCount > 1) {
        duplicateOption();
        return 1;
    }
    if (failed)
        return 1;
    bool missing = false;
    if (object == FlashObject::None) {
        optionRequired(argv[0], 'o');
        missing = true;
    }
    if (query) {
        // The slot display has its say and the command succeeds, whatever
        // the device answered. Without -i an SSD query asks the disk whose
        // ID is the current controller's number.
        if (object == FlashObject::Hba) {
            if (idCount != 0) {
                tell(Verdict::UsageError, "illegal option 'i'\n");
                return 1;
            }
            showSlotInfo(gCurrentAdapter, 0, pdId);
        } else if (object == FlashObject::Pd) {
            showSlotInfo(gCurrentAdapter, 1, pdId);
        } else {
            std::fputs("Unknown slot information request.", stdout);
            json_output::noteResult(Verdict::UsageError, "Unknown slot information request.");
        }
        return 0;
    }
    if (!raw) {
        if (caCount == 0) {
            optionRequired(argv[0], 'c');
            missing = true;
        }
        if (slotCount == 0) {
            optionRequired(argv[0], 's');
            missing = true;
        }
    }
    if (ca != kCaActivateSlot && ca != kCaReplaceNow && fileCount == 0) {
        optionRequired(argv[0], 'f');
        if (object == FlashObject::Pd && idCount == 0)
            optionRequired(argv[0], 'i');
        return 1;
    }
    if (object == FlashObject::Pd && idCount == 0) {
        optionRequired(argv[0], 'i');
        return 1;
    }
    if (missing)
        return 1;
    if (object == FlashObject::None) {
        tell(Verdict::UsageError, "\nInvalid object.\n");
        return 0;
    }

    if (object == FlashObject::Pd) {
        // The raw type means nothing to an SSD and is passed over.
        const KRT_U32 commit = (static_cast<KRT_U32>(bootPartition) << 31) | (static_cast<KRT_U32>(ca) << 3) | slot;
        return static_cast<int>(updateHdFlash(gCurrentAdapter, path, pdId, commit, ca));
    }
    if (idCount != 0) {
        tell(Verdict::UsageError, "'-o hba' does not support '-i' action\n");
        return 1;
    }
    KRT_U8 type = 0;
    if (raw) {
        if (caCount != 0) {
            tell(Verdict::UsageError, "'-t raw' does not support '-c' action\n");
            return 1;
        }
        if (slotCount != 0) {
            tell(Verdict::UsageError, "'-t raw' does not support '-s' action\n");
            return 1;
        }
        slot = 1;
        type = kTypeRaw;
    }
    return static_cast<int>(updateAdapterFlash(gCurrentAdapter, path, slot, ca, type));
}

KRT_U32 checkFileSize(KRT_U16 adapter, const char *file)
{
    if (open_file_for_flash(file) != 0) {
        tell(Verdict::NotFound, kFailedToOpen, file);
        return 1;
    }
    const long length = get_file_length_for_flash();
    close_file_for_flash();
    const KRT_U32 limit = (g_pAdInfos != nullptr && adapter < gNumAdaptersFound) ? g_pAdInfos[adapter].MaxFlashSize : 0;
    return limit != 0 && length > static_cast<long>(limit) ? 1 : 0;
}

KRT_U32 updateAdapterFlash(KRT_U16 adapter, const char *file, KRT_U8 slot, KRT_U8 ca, KRT_U8 type)
{
    if (ca != kCaActivateSlot && file[0] != '\0' && checkFileSize(adapter, file) != 0) {
        // An image that cannot be opened has said so; one too large for the
        // controller is refused here.
        tell(Verdict::Refused, kAdapterFlashFailed);
        return 1;
    }
    if (KRT_Adapter_Flash(adapter, file, slot, ca, type) == 0)
        std::fputs("start to flash NVMe Controller firmware\n", stream);
    else
        tell(Verdict::RequestFailed, kAdapterFlashFailed);

    for (;;) {
        _NVME_Flash_Result progress{};
        const KRT_U32 rc = KRT_Adapter_Flash_Result(adapter, &progress);
        KRT_U32 ret = 0;
        if (rc != 0) {
            tell(Verdict::RequestFailed,
                 "Get NVMe Controller flash result failed (Invalid firmware image, please check image and try "
                 "again.)\n");
            ret = rc;
        } else if (progress.result != 0) {
            // Activation that waits for a conventional (0x10B) or an NVM
            // subsystem (0x111) reset is a successful update.
            if (progress.result == 0x10B || progress.result == 0x111) {
                tell(Verdict::Ok,
                     "Flash NVMe Controller firmware success, please shutdown and boot again to make firmware "
                     "active.\n");
                ret = 0;
            } else {
                // A bit test, not the one status: any result carrying these
                // bits is read as a prohibited commit.
                if ((progress.result & 0x113) == 0x113)
                    tellFailed(progress.result, "Flash NVMe Controller firmware failed(Firmware commit rohibited)\n");
                else if (progress.result == kLocalFailure)
                    // The worker's own checks stopped the image (a raw image
                    // that fails its checksum, one that cannot be read).
                    tell(Verdict::Refused, kAdapterFlashFailedCode, static_cast<int>(progress.result));
                else
                    tellFailed(progress.result, kAdapterFlashFailedCode, static_cast<int>(progress.result));
                ret = progress.result;
            }
        } else if (progress.status == 1) {
            // The commit sets 100 as it is sent; 100 waits for the outcome.
            std::fprintf(stream, "flash NVMe Controller, percentage %d\n",
                         progress.percentage == 100 ? 99 : progress.percentage);
            sleepOneSecond();
            continue;
        } else if (progress.status != 0) {
            tell(Verdict::RequestFailed, "Unknown flash NVMe Controller status %d\n",
                 static_cast<int>(progress.status));
        } else {
            tell(Verdict::Ok,
                 "flash NVMe Controller firmware success, please shutdown and boot again to make firmware active.\n");
        }
        sleepOneSecond();
        return ret;
    }
}

KRT_U32 updateHdFlash(KRT_U16 /*adapter*/, const char *file, KRT_U16 pdId, KRT_U32 commitCdw10, KRT_U8 ca)
{
    // Every request goes to the controller the user addresses.
    const KRT_U16 adapter = gCurrentAdapter;
    if (ca != kCaActivateSlot && file[0] != '\0') {
        // A directory opens for reading but holds no image.
        if (open_file(file, "r") != 0 || isDirectory(file)) {
            close_file();
            tell(Verdict::NotFound, kFailedToOpen, file);
            return 1;
        }
        const long total = get_file_length();
        if (dbg_enable)
            std::fprintf(stream, "total_size: %d\n", static_cast<int>(total));
        // An empty image has no percentage to show and nothing to send.
        if (total <= 0)
            return diskDownloadFailed(pdId, Verdict::Refused);

        std::array<KRT_U8, KRT_FLASH_SEGMENT> chunk{};
        for (long offset = 0, count = 0;; offset += KRT_FLASH_SEGMENT, ++count) {
            if (dbg_enable)
                std::fprintf(stream, "count: %d, offset: %d\n", static_cast<int>(count), static_cast<int>(offset));
            std::fprintf(stream, "Download firmware percentage:%d\n", static_cast<int>(offset * 100 / total));
            const long remaining = total - offset;
            const bool last = remaining < static_cast<long>(KRT_FLASH_SEGMENT);
            const std::size_t length = last ? static_cast<std::size_t>(remaining) : KRT_FLASH_SEGMENT;
            // A file that shrank since it was measured is no longer the image.
            if (read_file(chunk.data(), length) != length)
                return diskDownloadFailed(pdId, Verdict::Refused);

            krt_admin_command_format cmd =
                diskRequest(KRT_PD_CMD_TO_DISK, pdId, NVME_ADMIN_FW_DOWNLOAD, kFlagDiskDownload);
            cmd.CDW[10] = KRT_FLASH_SEGMENT / 4 - 1;
            cmd.CDW[11] = static_cast<KRT_U32>(offset / 4);
            if (last) {
                cmd.CDW[10] = static_cast<KRT_U32>(remaining / 4) - 1;
                if (dbg_enable) {
                    // The page length shown is the full one, as it always was.
                    std::fprintf(stream, "It is last page: current data length: %d\n",
                                 static_cast<int>(KRT_FLASH_SEGMENT));
                    std::fprintf(stream, "offset: %d, data length: %d, total_size: %d\n", static_cast<int>(offset),
                                 static_cast<int>(remaining), static_cast<int>(total));
                }
            }
            if (dbg_enable) {
                std::fprintf(stream, "admin_cmd.CDW[10]: 0x%x\n", cmd.CDW[10]);
                std::fprintf(stream, "admin_cmd.CDW[11]: 0x%x\n", cmd.CDW[11]);
                std::fprintf(stream, "admin_cmd.CDW[14]: 0x%x\n", cmd.CDW[14]);
            }
            const KRT_U32 status =
                KRT_Adapter_PassthruAdmin(adapter, &cmd, chunk.data(), static_cast<KRT_U16>(length), nullptr, 0);
            if (status != 0)
                return diskDownloadFailed(pdId, Verdict::RequestFailed);
            if (offset + static_cast<long>(KRT_FLASH_SEGMENT) >= total)
                break;
        }
    }

    krt_admin_command_format cmd = diskRequest(KRT_PD_CMD_TO_DISK, pdId, NVME_ADMIN_FW_COMMIT, kFlagDiskCommand);
    cmd.CDW[10] = commitCdw10;
    if (dbg_enable) {
        std::fprintf(stream, "admin_cmd.CDW[0]: 0x%x\n", cmd.CDW[0]);
        std::fprintf(stream, "admin_cmd.CDW[1]: 0x%x\n", cmd.CDW[1]);
        std::fprintf(stream, "admin_cmd.CDW[10]: 0x%x\n", cmd.CDW[10]);
        std::fprintf(stream, "admin_cmd.CDW[14]: 0x%x\n", cmd.CDW[14]);
    }
    KRT_U32 status = KRT_Adapter_PassthruAdmin(adapter, &cmd, nullptr, 0, nullptr, 0);
    if (dbg_enable)
        std::fprintf(stream, "errStatus: 0x%x\n", status);
    // Activation that waits for a reset (0x0B, whatever the status type) is
    // a successful update.
    if (status == 0 || (status & 0xFF) == 0x0B) {
        tell(Verdict::Ok,
             "Flash NVMe Controller disk %d firmware success, please shutdown and boot again to make firmware "
             "active.\n",
             shownDiskId(pdId));
        status = 0;
    } else {
        tellFailed(status, "Flash NVMe Controller disk %d firmware failed.\n", shownDiskId(pdId));
    }
    close_file();
    return status;
}

void showSlotInfo(KRT_U16 adapter, int type, KRT_U16 pdId)
{
    // Only the status code counts here, not its type.
    const auto failed = [](KRT_U32 status) { return (status & 0xFF) != 0; };
    std::array<KRT_U8, kIdentifySize> identify{};
    std::array<KRT_U8, kSlotLogSize> slots{};
    KRT_U32 countStatus = 0, slotStatus = 0;
    if (type == 0) {
        countStatus = KRT_Adapter_Admin(adapter, kOpcodeIdentify, 0, &kIdentifyController, 1, nullptr, 0,
                                        identify.data(), kIdentifySize);
    } else if (type == 1) {
        krt_admin_command_format cmd = diskRequest(KRT_PD_CMD_FROM_DISK, pdId, kOpcodeIdentify, kFlagDiskCommand);
        cmd.CDW[10] = kIdentifyController;
        countStatus = KRT_Adapter_PassthruAdmin(adapter, &cmd, nullptr, 0, identify.data(), kIdentifySize);
    } else {
        std::fputs("Unknown type, please check it again.", stdout);
        return;
    }
    if (failed(countStatus)) {
        std::fputs("Get Firmware Slot Count Fail", stdout);
        json_output::noteRequestFailed(countStatus, "Get Firmware Slot Count Fail");
        return;
    }
    // Said on the terminal even when the output goes to a file.
    const FieldWriter out(stdout, 0);
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    const int slotCount = (identify[kFirmwareUpdatesByte] >> 1) & 7;
    out.beginRecord("firmware_slots");
    out.extra("object", json_output::Value::text(type == 0 ? "controller" : "physical_disk"));
    out.extra("nvme_controller_id", json_output::Value::number(adapter + base));
    if (type == 1)
        out.extra("pd_id", json_output::Value::number(shownDiskId(pdId)));
    out.num("Slot count:", slotCount);

    if (type == 0) {
        slotStatus = KRT_Adapter_Admin(adapter, kOpcodeGetLogPage, 0xFFFFFFFF, &kFirmwareSlotLog, 1, nullptr, 0,
                                       slots.data(), kSlotLogSize);
    } else {
        krt_admin_command_format cmd = diskRequest(KRT_PD_CMD_FROM_DISK, pdId, kOpcodeGetLogPage, kFlagDiskLog);
        cmd.CDW[10] = kFirmwareSlotLog;
        cmd.CDW[15] = 0xFFFFFFFF;  // the namespace the forwarded command carries
        slotStatus = KRT_Adapter_PassthruAdmin(adapter, &cmd, nullptr, 0, slots.data(), kSlotLogSize);
    }
    if (failed(slotStatus)) {
        out.endRecord();
        std::fputs("Get Firmware Slot Information Fail", stdout);
        json_output::noteRequestFailed(slotStatus, "Get Firmware Slot Information Fail");
        return;
    }
    out.numPair("Active Slot:", slots[0] & 7, "Next Active Slot:", (slots[0] >> 4) & 7);
    // The revision in each slot, which the text leaves out: eight characters
    // per slot from byte 8 of the log, blank where the slot is empty.
    out.beginListing("slots");
    for (int slot = 1; slot <= slotCount; ++slot) {
        out.beginRecord("firmware_slot");
        out.extra("slot", json_output::Value::number(slot));
        const auto revision = static_cast<std::size_t>(kSlotRevisionsByte + (slot - 1) * kSlotRevisionSize);
        out.extra("revision", json_output::Value::text(
                                  json_output::trimmed(boundedText(slots.data() + revision, kSlotRevisionSize))));
        out.endRecord();
    }
    out.endListing();
    out.endRecord();
}

const CommandOptions flash_options = {kFlashShortOptions, kFlashLongOptions};
