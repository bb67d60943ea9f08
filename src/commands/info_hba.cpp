// info -o hba: the controllers' own records.
#include <cctype>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "api/krt_api.h"
#include "commands/info.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"

namespace {

constexpr std::size_t kSubnqnMax = 256;

std::string revisionText(KRT_U8 revision, KRT_U8 sku)
{
    std::string text;
    if (revision & 0x10) {
        text = "A" + std::to_string(revision & 15);
    } else if (revision & 0x20) {
        text = "B" + std::to_string(revision & 15);
    }
    switch (sku) {
        case 0:
            text += "V";
            break;
        case 1:
            text += "D";
            break;
        case 2:
            text += "B";
            break;
        case 3:
            text += "A";
            break;
        default:
            break;
    }
    return text;
}

struct BitWord {
    unsigned bit;
    const char *word;
};

// The words of the bits set in `value`, in the table's order; each carries
// the blank that runs them together in the text.
template <std::size_t N>
std::vector<std::string> bitWords(unsigned value, const BitWord (&words)[N])
{
    std::vector<std::string> set;
    for (const BitWord &w : words) {
        if (value & w.bit) {
            set.emplace_back(w.word);
        }
    }
    return set;
}

constexpr BitWord kRaidModes[] = {{0x01, "RAID0 "},  {0x02, "RAID1 "},  {0x10, "RAID5 "},  {0x40, "RAID6 "},
                                  {0x08, "RAID10 "}, {0x20, "RAID50 "}, {0x80, "RAID60 "}, {0x04, "JBOD "}};
constexpr BitWord kBgaFeatures[] = {
    {0x01, "Initialization "}, {0x02, "Rebuild "}, {0x04, "Sync "}, {0x08, "Migrate "}, {0x10, "MediaPatrol "}};

struct StripeSize {
    unsigned bit;
    const char *word;
    int kib;
};
constexpr StripeSize kStripeSizes[] = {{0x01, "128KB ", 128}, {0x02, "256KB ", 256}, {0x04, "512KB ", 512}};

std::vector<std::string> featureWords(KRT_U32 features)
{
    std::vector<std::string> words;
    if (features & KRT_FEATURE_IMPORT) {
        words.emplace_back("Import ");
    }
    words.emplace_back((features & KRT_FEATURE_RAID) ? "RAID " : "JBOF ");
    if (features & KRT_FEATURE_NS_MGMT) {
        words.emplace_back("Namespace ");
    }
    if (features & KRT_FEATURE_DUMP) {
        words.emplace_back("Dump ");
    }
    if (features & KRT_FEATURE_NMIC) {
        words.emplace_back("NMIC ");
    }
    return words;
}

// A list of words: run together in the text, an array of them in JSON.
void wordList(const FieldWriter &out, const char *label, const std::vector<std::string> &words)
{
    std::string text;
    std::vector<std::string> trimmed;
    for (const std::string &word : words) {
        text += word;
        trimmed.emplace_back(json_output::trimmed(word));
    }
    out.typed(label, text, json_output::Value::texts(trimmed));
}

const char *cacheText(KRT_U8 cache)
{
    switch (cache) {
        case 0:
            return "Off ";
        case 1:
            return "On ";
        default:
            return "Unknown";
    }
}

const char *linkWidthText(KRT_U8 width)
{
    switch (width) {
        case 1:
            return "1x";
        case 2:
            return "2x";
        case 4:
            return "4x";
        case 8:
            return "8x";
        default:
            return "Unknown";
    }
}

const char *linkSpeedText(KRT_U8 speed)
{
    switch (speed) {
        case 1:
            return "2.5Gb/s";
        case 2:
            return "5Gb/s";
        case 3:
            return "8Gb/s";
        default:
            return "Unknown";
    }
}

void subnqnField(const FieldWriter &out, const AdapterLookups &lookups, KRT_U16 index, const _NVME_Adapter_Info &info)
{
    const std::string subnqn = controllerSubnqn(lookups.subnqn(index));
    if (!subnqn.empty()) {
        out.str("SUBNQN:", subnqn);
        return;
    }
    // No SUBNQN usually means the controller has no SSD to take it from.
    // A script reads that there is none.
    out.typed(
        "SUBNQN:", lookups.pdCount(index, info) > 0 ? "Not found" : "Not found, make sure SSD is already installed",
        json_output::Value::text(""));
}

bool queryAdapter(KRT_U16 index, _NVMEReceiveData &reply)
{
    sendInfoQuery(index, {KRT_CLASS_ADAPTER, 0, 0, false, 0}, reply);
    return replyGood(reply);
}

_NVME_Adapter_Info adapterRecord(const _NVMEReceiveData &reply)
{
    _NVME_Adapter_Info info;
    std::memcpy(&info, reply.data, sizeof(info));
    return info;
}

}  // namespace

const char *orEmpty(const char *text)
{
    return text ? text : "";
}

std::string controllerSubnqn(const char *registryText)
{
    std::string text = registryText ? std::string(registryText, strnlen(registryText, kSubnqnMax)) : std::string();
    if (text.empty() || !std::isprint(static_cast<unsigned char>(text[0]))) {
        return {};
    }
    return text;
}

KRT_U16 get_hostID(KRT_U16 index)
{
    KRT_U8 identify[NVME_IDENTIFY_SIZE] = {};
    const KRT_U32 cdw10 = NVME_CNS_CONTROLLER;
    KRT_U32 status =
        KRT_Adapter_Admin(index, NVME_ADMIN_IDENTIFY, 0, &cdw10, 1, nullptr, 0, identify, sizeof(identify));
    if (status != 0) {
        tell(Verdict::RequestFailed, "\nFailed to get controller.\n");
        return 0;
    }
    return static_cast<KRT_U16>(identify[NVME_ID_CNTLID] | (identify[NVME_ID_CNTLID + 1] << 8));
}

int getTotoalPDCnt(KRT_U16 index, const _NVME_Adapter_Info &info)
{
    // RAID controllers are probed up to MaxPD, JBOF controllers up to their
    // per-parent namespace limit; the kind is the addressed controller's.
    int probes = adapterIsRaid(currentAdapterInfo()) ? info.MaxPD : info.MaxNSPerVD;
    int found = 0;
    for (int id = 0; id < probes; ++id) {
        auto reply = newReply();
        sendInfoQuery(index, {KRT_CLASS_PD, 0, 0, true, static_cast<KRT_U32>(id)}, *reply);
        if (replyGood(*reply)) {
            ++found;
        }
    }
    return found;
}

const AdapterLookups kAdapterLookups = {KRT_Adapter_GetDeviceFun, KRT_Adapter_GetDevicePath,
                                        KRT_Adapter_GetDeviceSUBNQN, getTotoalPDCnt, get_hostID};

void Adapter_PrintInfo(const _NVME_Adapter_Info &info, int index, const AdapterLookups &lookups)
{
    const FieldWriter out(stream, KRT_HBA_LABEL_WIDTH);
    const KRT_U16 at = static_cast<KRT_U16>(index);
    // The block's layout, RAID or JBOF lines, is that of the controller the
    // tool addresses (its record cached at start-up), for every record listed.
    const bool raid = adapterIsRaid(currentAdapterInfo());
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    char text[64];

    out.beginRecord("controller");
    out.extra("index", json_output::Value::number(index));
    out.num("NVMe Controller ID:", index + base);
    out.str("Bus Device Fun:", orEmpty(lookups.busDevFun(at)));
    out.str("Device:", orEmpty(lookups.devicePath(at)));
    subnqnField(out, lookups, at, info);
    out.extra("current", json_output::Value::boolean(index == gCurrentAdapter));
    const NVME_Version_Info &fw = info.FirmwareVersion;
    std::snprintf(text, sizeof(text), "%d.%d.%d.%04d", fw.MajorVersion, fw.MinorVersion, fw.OEMNumber, fw.BuildNumber);
    out.str("Firmware Version:", text);
    const std::pair<const char *, KRT_U16> ids[] = {
        {"VID:", info.VID}, {"SVID:", info.SVID}, {"DID:", info.DID}, {"SDID:", info.SDID}};
    for (const auto &[label, value] : ids) {
        out.hex(label, value);
    }
    out.str("RevisionID:", revisionText(info.RevisionID, info.SKUID));
    out.num("Port Count:", info.PortCount);
    if (raid) {
        out.num("Max PD of Per VD:", info.MaxPDPerVD);
        out.num("Max VD:", info.MaxVD);
        out.num("Max PD:", info.MaxPD);
        out.num("Max NS of Per VD:", info.MaxNSPerVD);
    } else {
        out.num("Max PD:", info.MaxPD);
        out.num("Max NS of Per PD:", info.MaxNSPerVD);
    }
    out.num("Max NS:", info.MaxNS);
    out.num("Host ID:", lookups.hostId(at) + base);
    if (raid) {
        wordList(out, "Supported RAID Mode:", bitWords(info.SupportRAIDMode, kRaidModes));
    } else {
        out.typed("Supported RAID Mode:", "Not Support", json_output::Value::texts({}));
    }
    out.choice("Cache:", cacheText(info.Cache), info.Cache);
    if (raid) {
        wordList(out, "Supported BGA Features:", bitWords(info.SupportBGAFeature, kBgaFeatures));
        std::string sizes;
        std::vector<int> kib;
        for (const StripeSize &size : kStripeSizes) {
            if (info.StripeSizeSupported & size.bit) {
                sizes += size.word;
                kib.push_back(size.kib);
            }
        }
        out.typed("Support Stripe Size:", sizes, json_output::Value::numbers(kib), "support_stripe_size_kib");
    }
    wordList(out, "Supported Features:", featureWords(info.Features));

    out.beginListing("PCIe links");
    for (const NVME_PCIe_Info &link : info.PCIeInfo) {
        if (link.Type == 255) {
            break;
        }
        if (link.Type != 0 && link.Type != 1) {
            continue;
        }
        out.beginRecord("pcie_link");
        out.num(link.Type == 0 ? "End Point:" : "Root Complex:", link.Id);
        out.choice("  Link width:", linkWidthText(link.LinkWidth), link.LinkWidth);
        out.choice("  Max PCIe speed:", linkSpeedText(link.Speed), link.Speed);
        out.endRecord();
    }
    out.endListing();
    out.endRecord();
}

void getAdapterInfoSA(int id)
{
    const int count = KRT_Adapter_GetCount();
    if (id < KRT_ALL_IDS && id >= count) {
        tell(Verdict::NotFound, "\nUnable to get info of NVMe Controller\n");
        return;
    }

    if (id == KRT_ALL_IDS && gSpecificAdapterFlag != 1) {
        for (int i = 0; i < count; ++i) {
            auto reply = newReply();
            if (!queryAdapter(static_cast<KRT_U16>(i), *reply)) {
                tell(Verdict::NotFound, "\nUnable to get info of NVMe Controller %d\n", i);
                continue;
            }
            Adapter_PrintInfo(adapterRecord(*reply), i);
            std::fputs("\n", stream);
        }
        FieldWriter(stream, KRT_TOTAL_WIDTH).num("Total # of HBA:", count);
        std::fputs("\n", stream);
        return;
    }

    const KRT_U8 index = static_cast<KRT_U8>(id);
    auto reply = newReply();
    if (!queryAdapter(index, *reply)) {
        tell(Verdict::NotFound, "\nUnable to get info of NVMe Controller\n");
        return;
    }
    Adapter_PrintInfo(adapterRecord(*reply), index);
}
