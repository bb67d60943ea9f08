// ns: lists the namespaces the host sees, initializes the namespaces of an
// SSD, creates one of a given size, shares it and attaches or detaches it.
#include "commands/ns.h"

#include <getopt.h>
#include <strings.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "api/krt_api.h"
#include "commands/commands.h"
#include "commands/info.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"
#include "util/text.h"

const char ns_sh[] = ":For namespace management";
const char ns_help[] =
    "\n"
    "Usage:\n"
    "  ns --list\n"
    "  ns -p ctrl\n"
    "  ns -a init -i <PD ID> -n <number>\n"
    "  ns -a create -i <PD ID> -c <controller ID> -l <size in GB>\n"
    "  ns -a share (-i <NSID> | -e <EUI64>) -s <yes|no> [-c <controller ID>]\n"
    "  ns -a attach (-i <NSID> | -e <EUI64>) -d <controller list>\n"
    "  ns -a detach (-i <NSID> | -e <EUI64>) -d <controller list>\n"
    "\n"
    "Options:\n"
    "  -a, --action <action>\n"
    "        init: initialize the namespaces of a PD for <number> namespaces.\n"
    "        create: create a namespace of <size in GB> on a PD for a controller.\n"
    "        share: share a namespace between controllers, or make it private.\n"
    "        attach, detach: attach a namespace to controllers or detach it;\n"
    "        detach shows the namespace first.\n"
    "  -i, --id <ID>\n"
    "        The namespace ID (never shifted); a PD ID when it comes after\n"
    "        '-a init' or '-a create' on the line.\n"
    "  -e, --EUI64 <EUI64>\n"
    "        The namespace with this EUI64, as 16 lower-case hex digits.\n"
    "  -n, --nn <number>\n"
    "        Number of namespaces, for init.\n"
    "  -s, --sharing <yes|no>\n"
    "        yes: shared between controllers; no: private to the controller\n"
    "        given by -c (default 0). For share.\n"
    "  -c, --cid <controller ID>\n"
    "        The controller a new namespace is created for (create, required)\n"
    "        or that keeps a private namespace (share). Not accepted by attach\n"
    "        and detach.\n"
    "  -l, --size <size in GB>\n"
    "        Size of the new namespace, for create.\n"
    "  -d, --ctrllist <controller list>\n"
    "        Controller IDs separated by commas, for attach and detach.\n"
    "  -p, --primary ctrl\n"
    "        Show the primary controller ID.\n"
    "  --list\n"
    "        List the namespaces reported to the host.\n"
    "  --waiveconfirmation\n"
    "        Accepted for scripts; has no effect.\n"
    "  -h, --help\n"
    "        Show this help.\n"
    "\n"
    "init, share and create are refused on a virtual function (controller ID 2\n"
    "or above). Attach and detach need a controller with namespace management.\n"
    "\n"
    "Examples:\n"
    "  ns --list\n"
    "  ns -a init -i 0 -n 4\n"
    "  ns -a create -i 0 -c 1 -l 100\n"
    "  ns -a share -i 1 -s yes\n"
    "  ns -a detach -e 001e020304050601 -d 1\n";

NSTableEntry *pGNSInfo = nullptr;
KRT_U16 gTotalNSs = 0;
KRT_U16 gHostID = 0;

namespace {

// Long-only options.
constexpr int kOptList = 256;
constexpr int kOptWaiveConfirmation = 257;

const char kNsShortOptions[] = "\x01:a:i:e:n:s:c:l:d:p:h";
const option kNsLongOptions[] = {
    {"action", required_argument, nullptr, 'a'},
    {"id", required_argument, nullptr, 'i'},
    {"EUI64", required_argument, nullptr, 'e'},
    {"nn", required_argument, nullptr, 'n'},
    {"sharing", required_argument, nullptr, 's'},
    {"cid", required_argument, nullptr, 'c'},
    {"size", required_argument, nullptr, 'l'},
    {"ctrllist", required_argument, nullptr, 'd'},
    {"primary", required_argument, nullptr, 'p'},
    {"list", no_argument, nullptr, kOptList},
    {"waiveconfirmation", no_argument, nullptr, kOptWaiveConfirmation},
    {"unused", no_argument, nullptr, 'h'},
    {"table", no_argument, nullptr, 'h'},
    {"help", no_argument, nullptr, 'h'},
    {"output", required_argument, nullptr, KRT_OUTPUT_OPTION},
    {nullptr, 0, nullptr, 0},
};

const char kOptionOneOfRequired[] = "%s: option -%c or -%c is required\n";
const char kOptionNotAllowed[] = "%s: option -%c is not allowed\n";
const char kInvalidId[] = "invalid id '%s'\n";
const char kInvalidControllerId[] = "invalid controller id '%s'\n";
const char kInvalidEui64Id[] = "invalid EUI64 id: %s\n";
// Also what a failed namespace Identify says while the table is built.
const char kNoPrimaryController[] = "\nFailed to get primary controller.\n";

// Sub-commands of the namespace class.
constexpr KRT_U8 kNsSubInit = 2;
constexpr KRT_U8 kNsSubShare = 3;
constexpr KRT_U8 kNsSubCreate = 4;
// CDW0, CDW12, CDW14; create adds CDW13 and CDW15.
constexpr KRT_U16 kFlagInitShare = 0x5001;
constexpr KRT_U16 kFlagCreate = 0xF001;

// Widths of the fields the numbers travel in: the PD or namespace id of a
// vendor request and create's controller id have a byte each, a controller
// list entry 16 bits, the namespace of Namespace Attachment 32 bits. A
// number that does not fit is refused: cut down, it would name another
// object.
constexpr long long kByteMax = 0xFF;
constexpr long long kControllerIdMax = 0xFFFF;
constexpr long long kNsidMax = 0xFFFFFFFF;
constexpr std::size_t kControllerListMax = (KRT_BUFFER_SIZE - 2) / 2;

// Controllers with this id or above are virtual functions.
constexpr KRT_U16 kFirstVfControllerId = 2;
constexpr int kIdentifyEui64Offset = 120;
constexpr std::size_t kEui64Digits = 16;

// ---- Namespace table ---------------------------------------------------------

using IdentifyData = std::array<KRT_U8, NVME_IDENTIFY_SIZE>;

void get_EUI64(KRT_U8 nsid, KRT_U8 (&eui64)[8])
{
    IdentifyData identify{};
    const KRT_U32 cdw10 = NVME_CNS_NAMESPACE;
    if (KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_IDENTIFY, nsid, &cdw10, 1, nullptr, 0, identify.data(),
                          identify.size()) != 0) {
        tell(Verdict::RequestFailed, kNoPrimaryController);
        return;
    }
    std::memcpy(eui64, identify.data() + kIdentifyEui64Offset, sizeof(eui64));
}

// Fills the table from the host namespace list. A list that cannot be read
// leaves the table empty without a word: the actions say what is missing.
void initNSInfoStrcuture(const _NVME_Adapter_Info &adapter)
{
    auto reply = newReply();
    if (!sendInfoQuery(gCurrentAdapter, {KRT_CLASS_NS, 0, 0, false, 0}, *reply) || reply->cmd_status != 0) {
        return;
    }
    // Entries keep the slot index of their record; a controller that claims
    // more slots than a reply carries gets only those that came.
    for (std::size_t i = 0; i < nsRecordCount(adapter.MaxNS); ++i) {
        const _NVME_NS_Info ns = nsRecordAt(*reply, i);
        if (ns.Status == 0) {
            continue;
        }
        NSTableEntry &entry = pGNSInfo[i];
        entry.nsid = ns.NSID;
        entry.parentId = ns.ID;
        entry.status = ns.Status;
        entry.sectorSize = ns.SectorSize;
        entry.lba = ns.LBA;
        get_EUI64(ns.NSID, entry.eui64);
        ++gTotalNSs;
    }
}

// On failure gHostID keeps what an earlier run read.
void getHostID()
{
    IdentifyData identify{};
    const KRT_U32 cdw10 = NVME_CNS_CONTROLLER;
    if (KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_IDENTIFY, 0, &cdw10, 1, nullptr, 0, identify.data(),
                          identify.size()) == 0) {
        gHostID = static_cast<KRT_U16>(identify[NVME_ID_CNTLID] | identify[NVME_ID_CNTLID + 1] << 8);
    }
}

// The table lives for one run of the command, however it ends.
class NSTableRun {
  public:
    NSTableRun()
    {
        const _NVME_Adapter_Info &adapter = currentAdapterInfo();
        if (adapter.MaxNS == 0) {
            return;
        }
        pGNSInfo = new NSTableEntry[adapter.MaxNS]();
        initNSInfoStrcuture(adapter);
        getHostID();
    }
    ~NSTableRun()
    {
        delete[] pGNSInfo;
        pGNSInfo = nullptr;
        gTotalNSs = 0;
    }
    NSTableRun(const NSTableRun &) = delete;
    NSTableRun &operator=(const NSTableRun &) = delete;
};

// The namespace id of the table entry whose EUI64 reads as `eui64`, compared
// exactly: upper-case digits name nothing. Empty slots and namespaces whose
// Identify failed have an EUI64 of zeros, which never counts as a match.
bool getNSIDfromEUI64(const std::string &eui64, long long &nsid)
{
    const KRT_U8 maxNS = currentAdapterInfo().MaxNS;
    if (maxNS == 0 || pGNSInfo == nullptr) {
        tell(Verdict::NotFound, "Get MaxNS from adapter info fail.\n");
        return false;
    }
    if (eui64 == std::string(kEui64Digits, '0')) {
        return false;
    }
    for (std::size_t i = 0; i < maxNS; ++i) {
        const NSTableEntry &entry = pGNSInfo[i];
        char text[kEui64Digits + 1];
        for (std::size_t b = 0; b < sizeof(entry.eui64); ++b) {
            std::snprintf(text + 2 * b, 3, "%02x", entry.eui64[b]);
        }
        if (eui64 == text) {
            nsid = entry.nsid;
            return true;
        }
    }
    return false;
}

bool _getSupportNSStatus()
{
    return (currentAdapterInfo().Features & KRT_FEATURE_NS_MGMT) != 0;
}

bool inVfMode()
{
    return gHostID >= kFirstVfControllerId;
}

// ---- Options -----------------------------------------------------------------

enum class NsAction { None, Init, Share, Create, Attach, Detach };

struct NsOptions {
    NsAction action = NsAction::None;
    long long id = 0;  // a PD id when -i came after "-a init" or "-a create"
    const char *idText = "";
    std::string eui64;
    long long count = 0;  // -n
    bool shared = false;
    long long cid = 0;
    const char *cidText = "";
    KRT_U64 sizeGB = 0;
    std::vector<KRT_U16> controllers;
    bool primary = false;
    bool list = false;
    int actionCount = 0, idCount = 0, euiCount = 0, countCount = 0, sharingCount = 0, cidCount = 0, sizeCount = 0,
        ctrlListCount = 0, primaryCount = 0, listCount = 0;
};

// Digits as typed (isNumber has vouched for them); a number too long for
// 64 bits stays at the largest value.
long long toNumber(const char *text)
{
    return std::strtoll(text, nullptr, 10);
}

NsAction parseAction(const char *word)
{
    const std::pair<const char *, NsAction> words[] = {{"init", NsAction::Init},
                                                       {"share", NsAction::Share},
                                                       {"create", NsAction::Create},
                                                       {"attach", NsAction::Attach},
                                                       {"detach", NsAction::Detach}};
    for (const auto &[text, action] : words) {
        if (strcasecmp(word, text) == 0) {
            return action;
        }
    }
    return NsAction::None;
}

// Controller ids as the user counts them, down to the controller's own.
bool parseControllerId(const char *text, long long &id)
{
    id = toNumber(text) - (g_oneBaseMode == 1 ? 1 : 0);
    if (id < 0 || id > kControllerIdMax) {
        tell(Verdict::UsageError, kInvalidControllerId, text);
        return false;
    }
    return true;
}

bool parseControllerList(const char *text, std::vector<KRT_U16> &controllers)
{
    std::string_view rest(text);
    while (!rest.empty()) {
        const std::size_t comma = rest.find(',');
        const std::string piece(rest.substr(0, comma));
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        if (piece.empty()) {
            continue;
        }
        if (!isNumber(piece.c_str())) {
            tell(Verdict::UsageError, "-d : controller ids should be a number\n");
            return false;
        }
        long long id = 0;
        if (!parseControllerId(piece.c_str(), id)) {
            return false;
        }
        if (controllers.size() == kControllerListMax) {
            tell(Verdict::UsageError, kInvalidControllerId, piece.c_str());
            return false;
        }
        controllers.push_back(static_cast<KRT_U16>(id));
    }
    return true;
}

// False when the command ends here (help shown or a value refused).
bool parseNsOptions(int argc, char **argv, const Command_Info *entry, NsOptions &o)
{
    optind = 0;
    int opt;
    while ((opt = getopt_long(argc, argv, kNsShortOptions, kNsLongOptions, nullptr)) != -1) {
        switch (opt) {
            case KRT_OUTPUT_OPTION:
            case kOptWaiveConfirmation:
                break;
            case 'a':
                o.action = parseAction(optarg);
                if (o.action == NsAction::None) {
                    tell(Verdict::UsageError, "-a : invalid action '%s'.\n", optarg);
                    return false;
                }
                ++o.actionCount;
                break;
            case 'i': {
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-i: id should be a number\n");
                    return false;
                }
                // Decided here, by what came before on the line.
                const bool isPd = o.action == NsAction::Init || o.action == NsAction::Create;
                o.id = toNumber(optarg) - (isPd && g_oneBaseMode == 1 ? 1 : 0);
                if (o.id < 0) {
                    tell(Verdict::UsageError, kInvalidId, optarg);
                    return false;
                }
                o.idText = optarg;
                ++o.idCount;
                break;
            }
            case 'e':
                if (std::strlen(optarg) != kEui64Digits) {
                    tell(Verdict::UsageError, "-e : invalid EUI64 '%s'.\n", optarg);
                    return false;
                }
                o.eui64 = optarg;
                ++o.euiCount;
                break;
            case 'n':
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-n: number of namespace should be a number\n");
                    return false;
                }
                o.count = toNumber(optarg);
                ++o.countCount;
                break;
            case 's':
                if (strcasecmp(optarg, "yes") == 0) {
                    o.shared = true;
                } else if (strcasecmp(optarg, "no") == 0) {
                    o.shared = false;
                } else {
                    tell(Verdict::UsageError, "-s : invalid option '%s'.\n", optarg);
                    return false;
                }
                ++o.sharingCount;
                break;
            case 'c':
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-c: controller id should be a number\n");
                    return false;
                }
                if (!parseControllerId(optarg, o.cid)) {
                    return false;
                }
                o.cidText = optarg;
                ++o.cidCount;
                break;
            case 'l':
                if (!isNumber(optarg)) {
                    tell(Verdict::UsageError, "-l: Invalid NS size\n");
                    return false;
                }
                o.sizeGB = std::strtoull(optarg, nullptr, 10);
                ++o.sizeCount;
                break;
            case 'd':
                if (!parseControllerList(optarg, o.controllers)) {
                    return false;
                }
                ++o.ctrlListCount;
                break;
            case 'p':
                if (strcasecmp(optarg, "ctrl") != 0) {
                    tell(Verdict::UsageError, "-p : invalid value '%s'\n", optarg);
                    return false;
                }
                o.primary = true;
                ++o.primaryCount;
                break;
            case kOptList:
                o.list = true;
                ++o.listCount;
                break;
            case '?':
                unknownOption();
                printCommandHelp(entry);
                return false;
            default:
                // -h, --unused and --table show the help, as does anything unknown.
                printCommandHelp(entry);
                return false;
        }
    }
    return true;
}

bool anyDuplicate(const NsOptions &o)
{
    for (int n : {o.actionCount, o.idCount, o.countCount, o.sharingCount, o.cidCount, o.sizeCount, o.ctrlListCount,
                  o.primaryCount, o.listCount, o.euiCount}) {
        if (n > 1) {
            return true;
        }
    }
    return false;
}

// ---- Requests ----------------------------------------------------------------

// A vendor namespace request without data; its outcome is the completion.
KRT_U32 sendNamespaceCommand(KRT_U8 subOpcode, KRT_U16 unit, KRT_U32 cdw13, KRT_U32 cdw14, KRT_U16 flag)
{
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_NS, subOpcode, unit);
    cmd.CDW[13] = cdw13;
    cmd.CDW[14] = cdw14;
    cmd.cdw_flag = flag;
    if (dbg_enable) {
        for (int i = 0; i < 18; ++i) {
            if ((flag & (1u << i)) != 0) {
                std::fprintf(stream, i < 10 ? "CDW[%d] : 0x%08x\n" : "CDW[%d]: 0x%08x\n", i, cmd.CDW[i]);
            }
        }
    }
    return KRT_Adapter_PassthruAdmin(gCurrentAdapter, &cmd, nullptr, 0, nullptr, 0);
}

// The bytes per sector of a PD, from its record; false when it cannot be read.
bool GetSectorSizeFromPD(KRT_U16 pd, KRT_U32 &sectorSize)
{
    auto reply = newReply();
    sendInfoQuery(gCurrentAdapter, {KRT_CLASS_PD, 0, 0, true, pd}, *reply);
    if (!replyGood(*reply)) {
        return false;
    }
    _NVME_PD_Info info;
    std::memcpy(&info, reply->data, sizeof(info));
    sectorSize = info.SectorSize;
    return true;
}

// The namespace of -e, else of -i. False (after the message) when the EUI64
// names none.
bool chosenNamespace(const NsOptions &o, long long &nsid)
{
    nsid = o.id;
    if (o.euiCount != 0 && !getNSIDfromEUI64(o.eui64, nsid)) {
        tell(Verdict::NotFound, kInvalidEui64Id, o.eui64.c_str());
        return false;
    }
    return true;
}

// ---- Actions -----------------------------------------------------------------

int nsInit(const NsOptions &o, const char *name)
{
    if (o.idCount == 0) {
        optionRequired(name, 'i');
        return 0;
    }
    if (o.countCount == 0) {
        optionRequired(name, 'n');
        return 0;
    }
    if (inVfMode()) {
        tell(Verdict::Refused, "Init action is not allowed in VF mode\n");
        return 0;
    }
    if (o.id > kByteMax) {
        tell(Verdict::UsageError, kInvalidId, o.idText);
        return 0;
    }
    // The count has a byte of its own and is cut to it.
    const KRT_U32 status =
        sendNamespaceCommand(kNsSubInit, static_cast<KRT_U16>(o.id), 0, static_cast<KRT_U8>(o.count), kFlagInitShare);
    if (status != 0) {
        tell(Verdict::RequestFailed, "\nUnable to initial NS\n");
        return static_cast<int>(status);
    }
    tell(Verdict::Ok, "\nInitial NS successfully\n");
    return 0;
}

int nsShare(const NsOptions &o, const char *name)
{
    if (o.idCount == 0 && o.euiCount == 0) {
        tell(Verdict::UsageError, kOptionOneOfRequired, name, 'i', 'e');
        return 0;
    }
    long long nsid = 0;
    if (!chosenNamespace(o, nsid)) {
        return 0;
    }
    if (o.sharingCount == 0) {
        optionRequired(name, 's');
        return 0;
    }
    if (inVfMode()) {
        tell(Verdict::Refused, "Share action is not allowed in VF mode\n");
        return 0;
    }
    if (nsid > kByteMax) {
        tell(Verdict::UsageError, kInvalidId, o.idText);
        return 0;
    }
    // A private namespace names the controller that keeps it.
    const KRT_U32 cdw14 = o.shared ? 1 : static_cast<KRT_U32>(o.cid) << 8;
    const KRT_U32 status = sendNamespaceCommand(kNsSubShare, static_cast<KRT_U16>(nsid), 0, cdw14, kFlagInitShare);
    if (status != 0) {
        tell(Verdict::RequestFailed, "\nUnable to set sharing NS\n");
        return static_cast<int>(status);
    }
    tell(Verdict::Ok, "\nSet sharing NS successfully\n");
    return 0;
}

int nsAttachDetach(const NsOptions &o, const char *name)
{
    const bool attach = o.action == NsAction::Attach;
    if (!_getSupportNSStatus()) {
        tell(Verdict::Refused, "Namespace management and attachment is not support.\n");
        return 0;
    }
    if (o.idCount == 0 && o.euiCount == 0) {
        tell(Verdict::UsageError, kOptionOneOfRequired, name, 'i', 'e');
        return 0;
    }
    if (o.ctrlListCount == 0) {
        optionRequired(name, 'd');
        return 0;
    }
    if (o.cidCount != 0) {
        tell(Verdict::UsageError, kOptionNotAllowed, name, 'c');
        return 0;
    }
    long long nsid = 0;
    if (!chosenNamespace(o, nsid)) {
        return 0;
    }
    if (nsid > kNsidMax) {
        tell(Verdict::UsageError, kInvalidId, o.idText);
        return 0;
    }
    if (!attach) {
        getNSInfoSA(static_cast<int>(nsid));
    }

    // NVMe Controller List: the number of ids, then the ids.
    std::array<KRT_U8, KRT_BUFFER_SIZE> list{};
    const auto count = static_cast<KRT_U16>(o.controllers.size());
    std::memcpy(list.data(), &count, sizeof(count));
    std::memcpy(list.data() + 2, o.controllers.data(), o.controllers.size() * sizeof(KRT_U16));
    const KRT_U32 select = attach ? 0 : 1;
    const KRT_U32 status = KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_NS_ATTACH, static_cast<KRT_U32>(nsid), &select,
                                             1, list.data(), list.size(), nullptr, 0);
    if (status == 0) {
        tell(Verdict::Ok, "%s namespace success\n", attach ? "Attach" : "Detach");
    } else {
        tell(Verdict::RequestFailed, "%s namespace failed\n", attach ? "Attach" : "Detach");
    }
    return static_cast<int>(status);
}

int nsPrimaryController()
{
    IdentifyData identify{};
    const KRT_U32 cdw10 = NVME_CNS_PRIMARY_CTRL_CAPS;
    const KRT_U32 status = KRT_Adapter_Admin(gCurrentAdapter, NVME_ADMIN_IDENTIFY, 0, &cdw10, 1, nullptr, 0,
                                             identify.data(), identify.size());
    if (status != 0) {
        tell(Verdict::RequestFailed, kNoPrimaryController);
        return static_cast<int>(status);
    }
    const int primary = identify[0] | identify[1] << 8;
    const FieldWriter out(stream, 0);
    out.beginRecord("primary_controller");
    out.typed("Primary Controller Id is", std::to_string(primary), json_output::Value::number(primary),
              "primary_controller_id");
    out.endRecord();
    return 0;
}

int nsCreate(const NsOptions &o, const char *name)
{
    const std::pair<int, char> required[] = {{o.idCount, 'i'}, {o.cidCount, 'c'}, {o.sizeCount, 'l'}};
    for (const auto &[given, letter] : required) {
        if (given == 0) {
            optionRequired(name, letter);
            return 0;
        }
    }
    if (inVfMode()) {
        tell(Verdict::Refused, "Create action is not allowed in VF mode\n");
        return 0;
    }
    // The request carries the PD id plus 1, in a byte.
    if (o.id + 1 > kByteMax) {
        tell(Verdict::UsageError, kInvalidId, o.idText);
        return 0;
    }
    if (o.cid > kByteMax) {
        tell(Verdict::UsageError, kInvalidControllerId, o.cidText);
        return 0;
    }
    const auto pd = static_cast<KRT_U16>(o.id);
    KRT_U32 sectorSize = 0;
    // A disk that reports no sector size cannot be sized in sectors.
    if (!GetSectorSizeFromPD(pd, sectorSize) || sectorSize == 0) {
        tell(Verdict::NotFound, "\nInvalid PD ID: %d\n", pd);
        return 0;
    }
    // Sizes are whole GB; a size beyond 64 bits of bytes wraps, as it always has.
    const KRT_U64 sectors = o.sizeGB * (KRT_U64{1} << 30) / sectorSize;
    const auto unit = static_cast<KRT_U16>((o.id + 1) | o.cid << 8);
    const KRT_U32 status = sendNamespaceCommand(kNsSubCreate, unit, static_cast<KRT_U32>(sectors),
                                                static_cast<KRT_U32>(sectors >> 32), kFlagCreate);
    if (status != 0) {
        tell(Verdict::RequestFailed, "\nUnable to create NS\n");
        return static_cast<int>(status);
    }
    tell(Verdict::Ok, "\nCreate NS successfully\n");
    return 0;
}

}  // namespace

int doSNS(int argc, char **argv, const Command_Info *entry)
{
    const NSTableRun table;

    NsOptions o;
    if (!parseNsOptions(argc, argv, entry, o)) {
        return 0;
    }
    if (argc == 1) {
        return bareCommand(entry);
    }
    if (anyDuplicate(o)) {
        duplicateOption();
        return 0;
    }

    switch (o.action) {
        case NsAction::Init:
            return nsInit(o, argv[0]);
        case NsAction::Share:
            return nsShare(o, argv[0]);
        case NsAction::Attach:
        case NsAction::Detach:
            return nsAttachDetach(o, argv[0]);
        default:
            break;
    }
    if (o.primary) {
        return nsPrimaryController();
    }
    if (o.list) {
        getNSInfoSA(KRT_ALL_IDS);
        return 0;
    }
    if (o.action == NsAction::Create) {
        return nsCreate(o, argv[0]);
    }
    tell(Verdict::UsageError, "Error action!\n");
    return 1;
}

const CommandOptions ns_options = {kNsShortOptions, kNsLongOptions};
