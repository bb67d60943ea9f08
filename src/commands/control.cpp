// reset, led and inverse: small controls of back-end slots and GPIO lines.
#include <getopt.h>
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/request_words.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"
#include "util/text.h"

const char reset_sh[] =
    ":For reset back-end device\n"
    "[Notice]\n"
    "  <Default GPIO setting>\n"
    "    Set power: \n"
    "        Power pin id 0 means control GPIO4\n"
    "        Power pin id 1 means control GPIO5\n"
    "    Set perstn\n"
    "        PD id 0 means control GPIO8\n"
    "        PD id 1 means control GPIO10\n"
    "        PD id 2 means control GPIO9\n"
    "        PD id 3 means control GPIO11";
const char reset_help[] =
    "Usage:\n"
    "  reset [-t device] [-i <PD ID>]\n"
    "  reset -t <power|perstn> -a <cycle|on|off> [-i <ID>]\n"
    "\n"
    "Options:\n"
    "  -t, --type <type>       device (default): reset the back-end device;\n"
    "                          power: switch the power pin of a slot;\n"
    "                          perstn: drive the reset line of a slot.\n"
    "  -i, --pdid <ID>         PD ID, or power pin ID (0 or 1) for '-t power'\n"
    "                          (default 0).\n"
    "  -a, --action=<action>   cycle, on or off; required for power and perstn,\n"
    "                          not accepted with '-t device'. The long form takes\n"
    "                          its value after '=' only.\n"
    "  -h, --help              show this help.\n"
    "\n"
    "A disk whose power is off, or whose reset line is held off, is not seen by the\n"
    "NVMe Controller until it is switched on again.\n"
    "\n"
    "Examples:\n"
    "  reset -i 2\n"
    "  reset -t perstn -a cycle -i 2\n"
    "  reset -t power --action=off -i 1\n";

const char led_sh[] = ":For control LED of device";
const char led_help[] =
    "Usage:\n"
    "  led -o <ep|rc> -i <ID> -a <on|off|sb|qb>\n"
    "\n"
    "Options:\n"
    "  -o, --object <object>   ep (end point) or rc (root complex); required.\n"
    "  -i, --id <ID>           slot ID; required.\n"
    "  -a, --action <action>   on, off, sb (slow blink) or qb (quick blink); required.\n"
    "  -h, --help              show this help.\n"
    "\n"
    "Example:\n"
    "  led -o rc -i 2 -a qb\n";

const char inverse_sh[] = ":For GPIO 8,9,10 and 11 inverse control.";
const char inverse_help[] =
    "Usage:\n"
    "  inverse -a <get|inverse|noinverse>\n"
    "\n"
    "Options:\n"
    "  -a, --action <action>   get: show the inverse status of GPIO 8 to 11;\n"
    "                          inverse / noinverse: set it; required.\n"
    "  -h, --help              show this help.\n"
    "\n"
    "Example:\n"
    "  inverse -a get\n";

namespace {

// --action takes its value only as --action=<value>.
const char kResetShortOptions[] = "\x01:i:t:a:h";
const option kResetLongOptions[] = {
    {"pdid", required_argument, nullptr, 'i'},
    {"type", required_argument, nullptr, 't'},
    {"action", optional_argument, nullptr, 'a'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

const char kLedShortOptions[] = "\x01:o:i:a:h";
const option kLedLongOptions[] = {
    {"object", required_argument, nullptr, 'o'},
    {"id", required_argument, nullptr, 'i'},
    {"action", required_argument, nullptr, 'a'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

const char kInverseShortOptions[] = "\x01:a:h";
const option kInverseLongOptions[] = {
    {"action", required_argument, nullptr, 'a'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

// The -a message of all three commands.
constexpr char kInvalidAction[] = "-a : invalid action '%s'.\n";

constexpr KRT_U8 kLedSubOpcode = 7;
constexpr KRT_U8 kResetSubOpcode = 8;
constexpr KRT_U8 kSetInverseSubOpcode = 0x19;
constexpr KRT_U8 kGetInverseSubOpcode = 0x1A;

// Slots travel in the low 16 bits of CDW14.
constexpr long long kMaxSlot = 0xFFFF;

enum ResetType : KRT_U8 { kResetDevice = 0, kResetPower = 1, kResetPerstn = 2 };
enum ResetAction : KRT_U8 { kActionCycle = 0, kActionOn = 1, kActionOff = 2 };

// Power pins 0 and 1 are the only ones the controller has.
constexpr long long kLastPowerPin = 1;

constexpr int kInverseLabelWidth = 23;
// What the get request leaves in the buffer where no answer came.
constexpr KRT_U8 kNoAnswer = 0xFF;

int oneBase()
{
    return g_oneBaseMode == 1 ? 1 : 0;
}

// A typed slot as the controller counts it, or -1 when the text is not a
// number, falls below the first slot, or does not fit the slot field.
long long typedSlot(const char *text)
{
    if (!isNumber(text)) {
        return -1;
    }
    const long long slot = std::strtoll(text, nullptr, 10) - oneBase();
    return slot > kMaxSlot ? -1 : slot;
}

// Each of these requests goes to the addressed controller, with no data;
// CDW14 only where the request has one.
KRT_U32 sendControl(KRT_U32 cdw12, bool withCdw14, KRT_U32 cdw14, void *reply, KRT_U16 replyLength)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = cdw12;
    cmd.cdw_flag = (1u << 0) | (1u << 12);
    if (withCdw14) {
        cmd.CDW[14] = cdw14;
        cmd.cdw_flag |= 1u << 14;
    }
    if (withCdw14)
        printRequestWords(cmd, {0, 12, 14});
    else
        printRequestWords(cmd, {0, 12});
    return KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, reply, replyLength);
}

const char *inverseText(KRT_U8 state)
{
    switch (state) {
        case 0:
            return "No Inverse";
        case 1:
            return "Inverse";
        default:
            return "Unknown Status";
    }
}

}  // namespace

int doSReset(int argc, char **argv, const Command_Info *entry)
{
    int slotCount = 0, typeCount = 0, actionCount = 0;
    long long slot = 0;
    ResetType type = kResetDevice;
    ResetAction action = kActionCycle;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kResetShortOptions, kResetLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'a':
                if (optarg == nullptr) {
                    // "--action cycle" leaves the word behind: nothing was chosen.
                    optionRequired(argv[0], 'a');
                    return 0;
                }
                if (strcasecmp(optarg, "cycle") == 0) {
                    action = kActionCycle;
                } else if (strcasecmp(optarg, "on") == 0) {
                    action = kActionOn;
                } else if (strcasecmp(optarg, "off") == 0) {
                    action = kActionOff;
                } else {
                    tell(Verdict::UsageError, kInvalidAction, optarg);
                    return 0;
                }
                ++actionCount;
                break;
            case 'i':
                slot = typedSlot(optarg);
                if (slot < 0) {
                    tell(Verdict::UsageError, "-i : invalid device id '%s'\n", optarg);
                    return 0;
                }
                ++slotCount;
                break;
            case 't':
                if (strcasecmp(optarg, "device") == 0) {
                    type = kResetDevice;
                } else if (strcasecmp(optarg, "perstn") == 0) {
                    type = kResetPerstn;
                } else if (strcasecmp(optarg, "power") == 0) {
                    type = kResetPower;
                } else {
                    tell(Verdict::UsageError, "-t : invalid type '%s'.\n", optarg);
                    return 0;
                }
                ++typeCount;
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
    if (slotCount > 1 || typeCount > 1 || actionCount > 1) {
        duplicateOption();
        return 1;
    }
    if (type != kResetDevice && actionCount == 0) {
        optionRequired(argv[0], 'a');
        return 0;
    }
    if (type == kResetDevice && typeCount != 0 && actionCount != 0) {
        tell(Verdict::UsageError, "Option action is not allow.\n");
        return 0;
    }
    if (type == kResetPower && slot > kLastPowerPin) {
        tell(Verdict::UsageError, "Power Pin ID only support %d or %d\n", oneBase(),
             static_cast<int>(kLastPowerPin) + oneBase());
        return 1;
    }

    // A device reset has no action: one typed without -t is dropped.
    KRT_U32 cdw14 = static_cast<KRT_U32>(slot) | static_cast<KRT_U32>(type) << 16;
    if (type != kResetDevice) {
        cdw14 |= static_cast<KRT_U32>(action) << 24;
    }
    const KRT_U32 status = sendControl(krt_cdw12(KRT_CLASS_PD, kResetSubOpcode, 0), true, cdw14, nullptr, 0);
    if (status == 0) {
        tell(Verdict::Ok, "Reset success\n");
    } else {
        tell(Verdict::RequestFailed, "Reset failed.\n");
    }
    return static_cast<int>(status);
}

int doSLed(int argc, char **argv, const Command_Info *entry)
{
    int objectCount = 0, slotCount = 0, actionCount = 0;
    KRT_U8 object = 0;
    long long slot = 0;
    KRT_U8 action = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kLedShortOptions, kLedLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'o':
                // The end point's LEDs answer to the controller class, the
                // root complex's slots to the disk class.
                if (strcasecmp(optarg, "ep") == 0) {
                    object = KRT_CLASS_ADAPTER;
                } else if (strcasecmp(optarg, "rc") == 0) {
                    object = KRT_CLASS_PD;
                } else {
                    // The message has always named -m.
                    tell(Verdict::UsageError, "-m : invalid object '%s'.\n", optarg);
                    return 0;
                }
                ++objectCount;
                break;
            case 'i':
                slot = typedSlot(optarg);
                if (slot < 0) {
                    tell(Verdict::UsageError, ErrorInvalidId, optarg);
                    return 0;
                }
                ++slotCount;
                break;
            case 'a':
                if (strcasecmp(optarg, "off") == 0) {
                    action = 0;
                } else if (strcasecmp(optarg, "on") == 0) {
                    action = 1;
                } else if (strcasecmp(optarg, "sb") == 0) {
                    action = 2;
                } else if (strcasecmp(optarg, "qb") == 0) {
                    action = 3;
                } else {
                    tell(Verdict::UsageError, kInvalidAction, optarg);
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
    if (objectCount > 1 || slotCount > 1 || actionCount > 1) {
        duplicateOption();
        return 1;
    }
    const std::pair<int, char> required[] = {{objectCount, 'o'}, {slotCount, 'i'}, {actionCount, 'a'}};
    for (const auto &[count, letter] : required) {
        if (count == 0) {
            optionRequired(argv[0], letter);
            return 0;
        }
    }

    const KRT_U32 cdw14 = static_cast<KRT_U32>(slot) | static_cast<KRT_U32>(action) << 16;
    const KRT_U32 status = sendControl(krt_cdw12(object, kLedSubOpcode, 0), true, cdw14, nullptr, 0);
    if (status == 0) {
        tell(Verdict::Ok, "LED control success\n");
    } else {
        tell(Verdict::RequestFailed, "LED control failed.\n");
    }
    return static_cast<int>(status);
}

int doInverse(int argc, char **argv, const Command_Info *entry)
{
    enum class Action { Get, Inverse, NoInverse } action = Action::Get;
    int actionCount = 0;

    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kInverseShortOptions, kInverseLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
                break;
            case 'a':
                if (strcasecmp(optarg, "get") == 0) {
                    action = Action::Get;
                } else if (strcasecmp(optarg, "noinverse") == 0) {
                    action = Action::NoInverse;
                } else if (strcasecmp(optarg, "inverse") == 0) {
                    action = Action::Inverse;
                } else {
                    tell(Verdict::UsageError, kInvalidAction, optarg);
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
    if (actionCount > 1) {
        duplicateOption();
        return 1;
    }
    if (actionCount == 0) {
        optionRequired(argv[0], 'a');
        return 0;
    }

    if (action != Action::Get) {
        const KRT_U16 unit = action == Action::Inverse ? 1 : 0;
        const KRT_U32 status =
            sendControl(krt_cdw12(KRT_CLASS_ADAPTER, kSetInverseSubOpcode, unit), false, 0, nullptr, 0);
        if (status == 0) {
            tell(Verdict::Ok, "Set Inverse success.\n");
        } else {
            tellFailed(status, "Set Inverse failed.(error code: 0x%02x)\n", status);
        }
        return static_cast<int>(status);
    }

    // The controller answers with the state alone in byte 0. The buffer
    // starts out as "no answer", so a failed request shows as unknown.
    auto reply = std::make_unique<KRT_U8[]>(KRT_BUFFER_SIZE);
    std::memset(reply.get(), kNoAnswer, KRT_BUFFER_SIZE);
    const KRT_U32 status =
        sendControl(krt_cdw12(KRT_CLASS_ADAPTER, kGetInverseSubOpcode, 0), false, 0, reply.get(), KRT_BUFFER_SIZE);
    const FieldWriter out(stream, kInverseLabelWidth);
    out.beginRecord("gpio_inverse");
    out.choice("GPIO 8,9,10,11 Inverse Status:", inverseText(reply[0]), reply[0]);
    out.endRecord();
    if (status == 0) {
        tell(Verdict::Ok, "Get Inverse Status success.\n");
    } else {
        tellFailed(status, "Get Inverse Status failed.(error code: 0x%02x)\n", status);
    }
    return static_cast<int>(status);
}

const CommandOptions reset_options = {kResetShortOptions, kResetLongOptions};
const CommandOptions led_options = {kLedShortOptions, kLedLongOptions};
const CommandOptions inverse_options = {kInverseShortOptions, kInverseLongOptions};
