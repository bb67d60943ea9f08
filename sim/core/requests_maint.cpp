// Firmware of the controller and of its SSDs (download, commit, slots), and
// the small maintenance requests: settings, time, LEDs, slot resets,
// imports, GPIO inversion.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "request.h"

namespace krtsim {

namespace {

constexpr std::array<KRT_U32, 256> makeCrcTable()
{
    std::array<KRT_U32, 256> table{};
    for (KRT_U32 i = 0; i < 256; ++i) {
        KRT_U32 c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[i] = c;
    }
    return table;
}
constexpr auto kCrcTable = makeCrcTable();

// The version text an image carries after "KRTFW:", if any.
void findVersion(std::span<const KRT_U8> chunk, char (&version)[16])
{
    constexpr std::string_view marker = "KRTFW:";
    std::string_view text(reinterpret_cast<const char *>(chunk.data()), chunk.size());
    size_t at = text.find(marker);
    if (at == std::string_view::npos)
        return;
    at += marker.size();
    size_t n = 0;
    while (at + n < text.size() && n < sizeof version - 1 &&
           ((text[at + n] >= '0' && text[at + n] <= '9') || text[at + n] == '.'))
        ++n;
    std::memset(version, 0, sizeof version);
    std::memcpy(version, text.data() + at, n);
}

// Firmware Image Download: CDW10 number of dwords (zero-based), CDW11
// dword offset. Chunks must follow each other from offset 0.
KRT_U32 download(SimFwStage &stage, KRT_U32 cdw10, KRT_U32 cdw11, std::span<const KRT_U8> data, KRT_U32 maxBytes)
{
    const KRT_U64 length = (static_cast<KRT_U64>(cdw10) + 1) * 4;
    const KRT_U64 offset = static_cast<KRT_U64>(cdw11) * 4;
    if (length > data.size())
        return SC_INVALID_FIELD;
    if (offset == 0)
        stage = SimFwStage{};
    if (offset + length > maxBytes && maxBytes != 0)
        return SC_INVALID_FIELD;
    if (offset < stage.bytes)
        return 0x114;  // Overlapping Range
    if (offset != stage.bytes) {
        stage.broken = 1;
        return 0;
    }
    const std::span<const KRT_U8> chunk = data.first(static_cast<size_t>(length));
    if (stage.bytes == 0)
        stage.crc = 0xFFFFFFFFu;
    for (KRT_U8 byte : chunk) {
        stage.crc = kCrcTable[(stage.crc ^ byte) & 0xFF] ^ (stage.crc >> 8);
        stage.content |= byte != 0 ? 1 : 0;
    }
    for (size_t i = 0; i + 4 <= chunk.size(); i += 4) {
        KRT_U32 word = 0;
        std::memcpy(&word, chunk.data() + i, 4);
        stage.wordSum += word;
    }
    findVersion(chunk, stage.version);
    stage.bytes = static_cast<KRT_U32>(offset + length);
    return 0;
}

// Nothing has been downloaded since the last commit or reset.
bool stageEmpty(const SimFwStage &stage)
{
    return stage.bytes == 0 && !stage.broken;
}

// What was downloaded is an image: whole, in order, and not blank. Nothing
// but zero bytes is no image (it is what arrives for an empty file).
bool stageUsable(const SimFwStage &stage)
{
    return stage.bytes > 0 && !stage.broken && stage.content;
}

// A slot's text as a version: a.b.c.d, or the a.b.c (major.minor.build) that
// the firmware revision of Identify carries; anything else raises the build
// number of the running version.
NVME_Version_Info parseVersion(const char *text, NVME_Version_Info fallback)
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    const int n = std::sscanf(text, "%u.%u.%u.%u", &a, &b, &c, &d);
    if (n == 3) {
        d = c;
        c = 0;
    }
    if ((n == 3 || n == 4) && a <= 0xFFFF && b <= 0xFFFF && c <= 0xFFFF && d <= 0xFFFF)
        return {static_cast<KRT_U16>(a), static_cast<KRT_U16>(b), static_cast<KRT_U16>(c), static_cast<KRT_U16>(d)};
    ++fallback.BuildNumber;
    return fallback;
}

// Makes a slot's image the running one.
void activateAdapterSlot(SimAdapter &ad, KRT_U8 slot, KRT_U64 now)
{
    ad.activeFwSlot = slot;
    ad.nextFwSlot = 0;
    char text[9] = {};
    std::memcpy(text, ad.fwSlots[slot - 1], 8);
    ad.info.FirmwareVersion = parseVersion(text, ad.info.FirmwareVersion);
    char fr[24];
    std::snprintf(fr, sizeof fr, "%u.%u.%u", ad.info.FirmwareVersion.MajorVersion, ad.info.FirmwareVersion.MinorVersion,
                  ad.info.FirmwareVersion.BuildNumber);
    std::memset(ad.fr, ' ', sizeof ad.fr);
    std::memcpy(ad.fr, fr, std::min(sizeof ad.fr, std::strlen(fr)));
    addEvent(ad, now, "Firmware slot %u active", slot);
}

// Makes an SSD's slot the running one.
void activatePdSlot(SimPd &pd, KRT_U8 slot)
{
    pd.activeSlot = slot;
    pd.nextSlot = 0;
    pd.idOwn = static_cast<KRT_U8>(pd.idOwn & ~ID_OWN_FR);  // Identify now says what runs
    std::memset(pd.fw, ' ', sizeof pd.fw);
    std::memcpy(pd.fw, pd.fwSlots[slot - 1], strnlen(pd.fwSlots[slot - 1], 8));
}

// The text a committed image leaves in its slot: the version it carries,
// else the running version with the build number raised (controller) or a
// name made from the image's CRC (SSD).
void slotText(const SimFwStage &stage, const NVME_Version_Info *running, char (&slot)[8])
{
    char text[24];
    if (stage.version[0] != '\0')
        std::snprintf(text, sizeof text, "%.15s", stage.version);
    else if (running != nullptr)
        std::snprintf(text, sizeof text, "%u.%u.%u.%u", running->MajorVersion, running->MinorVersion,
                      running->OEMNumber, running->BuildNumber + 1u);
    else
        std::snprintf(text, sizeof text, "F%07X", stage.crc & 0xFFFFFFF);
    std::memset(slot, 0, sizeof slot);
    std::memcpy(slot, text, std::min(sizeof slot, std::strlen(text)));
}

// Firmware Commit, CDW10: bits 2:0 slot (0: the controller picks), 5:3
// commit action. Returns the completion status; sets *activateNow for
// action 3 and *atReset for actions 1 and 2.
KRT_U32 commit(SimFwStage &stage, char (&slots)[kFwSlots][8], int slotCount, KRT_U8 active, KRT_U32 cdw10,
               const NVME_Version_Info *running, KRT_U8 *chosen, bool *activateNow, bool *atReset)
{
    KRT_U8 slot = static_cast<KRT_U8>(cdw10 & 7);
    const KRT_U8 action = static_cast<KRT_U8>((cdw10 >> 3) & 7);
    if (slot == 0)
        slot = static_cast<KRT_U8>(active % slotCount + 1);
    if (slot > slotCount)
        return 0x106;  // Invalid Firmware Slot
    *chosen = slot;
    *activateNow = false;
    *atReset = false;
    switch (action) {
        case 3:
            // Activate the slot's image now; one just downloaded takes the
            // slot first, and must be an image.
            if (stageEmpty(stage)) {
                if (slots[slot - 1][0] == '\0')
                    return 0x106;
                *activateNow = true;
                return 0;
            }
            [[fallthrough]];
        case 0:
        case 1:
            if (!stageUsable(stage))
                return 0x107;  // Invalid Firmware Image
            slotText(stage, running, slots[slot - 1]);
            stage = SimFwStage{};
            *activateNow = action == 3;
            *atReset = action == 1;
            return 0;
        case 2:
            if (slots[slot - 1][0] == '\0')
                return 0x106;
            *atReset = true;
            return 0;
        default:
            return SC_INVALID_FIELD;
    }
}

// Firmware Slot Information log: active and next slot, then each slot's text.
void slotLog(KRT_U8 active, KRT_U8 next, const char (&slots)[kFwSlots][8], std::span<KRT_U8> b)
{
    std::fill(b.begin(), b.end(), 0);
    if (b.size() < 64)
        return;
    b[0] = static_cast<KRT_U8>((active & 7) | ((next & 7) << 4));
    for (int i = 0; i < kFwSlots; ++i)
        std::memcpy(b.data() + 8 + 8 * i, slots[i], 8);
}

// ---------------------------------------------------------------- requests

// Whole raw image activation: CDW12 = type << 16 | 0x0BE0, CDW13 "KRT ",
// CDW15 the image CRC, byte-swapped, as the tool computes it.
KRT_U8 rawActivate(Request &r)
{
    SimAdapter &ad = r.ad;
    if (r.cdw13 != 0x2054524B)
        return VS_INVALID_PARAMETER;
    if (!stageUsable(ad.fwStage) || ad.fwStage.bytes % kBufferSize != 0 || ad.fwStage.wordSum != 0)
        return VS_FAILED;
    if (__builtin_bswap32(ad.fwStage.crc) != r.cdw15)
        return VS_INVALID_PARAMETER;
    addEvent(ad, r.now, "Raw firmware image of %u bytes verified", ad.fwStage.bytes);
    return VS_OK;
}

KRT_U8 getConfig(Request &r)
{
    put(r.out, 0, r.ad.config);
    return VS_OK;
}

// CDW14: BGARate << 8 | AutoRebuildOn. Rates are 0 (high), 2 (medium) and
// 32 (low).
KRT_U8 setConfig(Request &r)
{
    if (!r.ad.raid)
        return VS_NOT_SUPPORTED;
    const KRT_U8 autoRebuild = static_cast<KRT_U8>(r.cdw14 & 0xFF);
    const KRT_U8 rate = static_cast<KRT_U8>((r.cdw14 >> 8) & 0xFF);
    if ((r.cdw14 >> 16) != 0 || autoRebuild > 1 || (rate != 0 && rate != 2 && rate != 32))
        return VS_INVALID_PARAMETER;
    r.ad.config.AutoRebuildOn = autoRebuild;
    r.ad.config.BGARate = rate;
    addEvent(r.ad, r.now, "Auto rebuild %s, BGA rate %u", autoRebuild ? "on" : "off", rate);
    return VS_OK;
}

KRT_U8 setTime(Request &)
{
    return VS_OK;
}

SimPd *pdInSlot(SimAdapter &ad, KRT_U32 slot)
{
    for (SimPd &pd : ad.pds)
        if (pd.present && pd.slot == slot)
            return &pd;
    return nullptr;
}

// CDW14 bits 0-15 slot, bits 16-23 action (0 off, 1 on, 2 sb, 3 qb). The
// end point has one LED of its own; the root complex one per SSD slot, lit
// whether or not the SSD in it is running.
KRT_U8 slotLed(Request &r)
{
    const KRT_U32 slot = r.cdw14 & 0xFFFF;
    const KRT_U8 action = static_cast<KRT_U8>((r.cdw14 >> 16) & 0xFF);
    if (action > 3)
        return VS_INVALID_PARAMETER;
    if (r.cls == KRT_CLASS_ADAPTER) {
        r.ad.adapterLed = action;
        return VS_OK;
    }
    SimPd *pd = pdInSlot(r.ad, slot);
    if (pd == nullptr)
        return VS_INVALID_HD;
    pd->led = action;
    return VS_OK;
}

// The controller's default GPIO wiring: power pins for slots 0 and 1
// (GPIO 4, 5), reset lines for slots 0 to 3 (GPIO 8, 10, 9, 11).
constexpr KRT_U32 kPowerPins = 2;
constexpr KRT_U32 kResetLines = 4;

enum : KRT_U8 { kResetDevice = 0, kResetPower = 1, kResetPerstn = 2 };
enum : KRT_U8 { kActionCycle = 0, kActionOn = 1, kActionOff = 2 };

// An SSD starting up again: a firmware committed for the next reset runs.
void restart(SimPd &pd)
{
    ++pd.resets;
    // A firmware committed for the next reset runs now.
    if (pd.nextSlot != 0 && pd.fwSlots[pd.nextSlot - 1][0] != '\0')
        activatePdSlot(pd, pd.nextSlot);
}

// CDW14 bits 0-15 slot, 16-23 type (0 device, 1 power, 2 perstn), 24-31
// action for power and perstn (0 cycle, 1 on, 2 off). An SSD whose power is
// off or whose reset line is held is gone for the controller until it is
// switched back. The reset lines are GPIO 8-11: with those inverted, on and
// off drive the opposite level.
KRT_U8 slotReset(Request &r)
{
    const KRT_U32 slot = r.cdw14 & 0xFFFF;
    const KRT_U8 type = static_cast<KRT_U8>((r.cdw14 >> 16) & 0xFF);
    const KRT_U8 action = static_cast<KRT_U8>(r.cdw14 >> 24);
    if (type > kResetPerstn || action > kActionOff)
        return VS_INVALID_PARAMETER;
    if ((type == kResetPower && slot >= kPowerPins) || (type == kResetPerstn && slot >= kResetLines))
        return VS_INVALID_PARAMETER;
    SimPd *pd = pdInSlot(r.ad, slot);
    if (pd == nullptr)
        return VS_INVALID_HD;
    const bool wasOnline = pdOnline(*pd);
    if (type == kResetDevice) {
        if (!wasOnline)
            return VS_INVALID_HD;
        restart(*pd);
        addEvent(r.ad, r.now, "Slot %u reset", slot);
        return VS_OK;
    }
    static const char *const actions[] = {"cycled", "on", "off"};
    if (type == kResetPower) {
        const bool wasOff = pd->powerOff;
        pd->powerOff = action == kActionOff;
        if (!pd->powerOff && (wasOff || action == kActionCycle))
            ++pd->powerCycles;
        addEvent(r.ad, r.now, "Slot %u power %s", slot, actions[action]);
    } else {
        const bool low = action == kActionOff;
        pd->resetHeld = action != kActionCycle && low != (r.ad.gpioInverse != 0);
        addEvent(r.ad, r.now, "Slot %u reset line %s", slot, actions[action]);
    }
    if (pdOnline(*pd) && (!wasOnline || action == kActionCycle))
        restart(*pd);
    return VS_OK;
}

// CDW14: the VD. A foreign VD is taken over whole: every member must be seen.
KRT_U8 importVd(Request &r)
{
    const KRT_U32 id = r.cdw14 & 0xFFFF;
    if (!vdExists(r.ad, id))
        return VS_INVALID_LD;
    SimVd &vd = r.ad.vds[id];
    if (!vd.importable)
        return VS_IMPORT_ALREADY_IN_TABLE;
    for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m)
        if (pdExists(r.ad, vd.members[m]) && !pdOnline(r.ad, vd.members[m]))
            return VS_IMPORT_FOREIGN;
    vd.importable = 0;
    if (vd.status == KRT_VD_FOREIGN || vd.status == KRT_VD_IMPORTABLE)
        vd.status = KRT_VD_FUNCTIONAL;
    for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m)
        if (pdExists(r.ad, vd.members[m]))
            r.ad.pds[vd.members[m]].status &= static_cast<KRT_U8>(~KRT_PD_IMPORTABLE);
    addEvent(r.ad, r.now, "VD %u imported", id);
    return VS_OK;
}

// CDW14: the disk in bits 0-15, its namespace table in bits 16-31. A disk
// from elsewhere carries one table (0; 0xFF stands for all of them); its
// namespaces become valid here once it is imported.
KRT_U8 importNsTable(Request &r)
{
    const KRT_U32 id = r.cdw14 & 0xFFFF;
    const KRT_U32 table = r.cdw14 >> 16;
    if (!pdOnline(r.ad, id))
        return VS_INVALID_HD;
    SimPd &pd = r.ad.pds[id];
    if (!(pd.status & KRT_PD_IMPORTABLE) || (table != 0 && table != 0xFF))
        return VS_IMPORT_NO_TABLE;
    pd.status &= static_cast<KRT_U8>(~KRT_PD_IMPORTABLE);
    for (SimNs &ns : r.ad.ns)
        if (ns.nsid != 0 && ns.deviceType == 0 && ns.parent == id)
            ns.status |= KRT_NS_VALID;
    addEvent(r.ad, r.now, "PD %u namespace table imported", id);
    return VS_OK;
}

// Unit 1 inverts GPIO lines 8-11, unit 0 does not.
KRT_U8 setInverse(Request &r)
{
    if (r.unit > 1)
        return VS_INVALID_PARAMETER;
    r.ad.gpioInverse = static_cast<KRT_U8>(r.unit);
    return VS_OK;
}

constexpr Route kMaintDirect[] = {
    {KRT_CLASS_ADAPTER, 1, getConfig},
    {KRT_CLASS_ADAPTER, 2, setConfig},
    {KRT_CLASS_ADAPTER, 3, setTime},
    {KRT_CLASS_ADAPTER, 7, slotLed},
    {KRT_CLASS_ADAPTER, 0x0B, rawActivate},
    {KRT_CLASS_ADAPTER, 0x19, setInverse},  // 0x1A, its state, has no envelope: see executeAdmin
    {KRT_CLASS_PD, 7, slotLed},
    {KRT_CLASS_PD, 8, slotReset},
    {KRT_CLASS_PD, 9, importNsTable},
    {KRT_CLASS_VD, 6, importVd},
};

}  // namespace

std::span<const Route> maintenanceDirectRoutes()
{
    return kMaintDirect;
}

KRT_U32 adapterFwDownload(SimAdapter &ad, const KRT_U32 (&cmd)[16], std::span<const KRT_U8> data)
{
    return download(ad.fwStage, cmd[10], cmd[11], data, ad.info.MaxFlashSize);
}

KRT_U32 adapterFwCommit(SimAdapter &ad, const KRT_U32 (&cmd)[16], KRT_U64 now)
{
    const int slots = std::max(1, (ad.frmw >> 1) & 7);
    KRT_U8 slot = 0;
    bool activateNow = false, atReset = false;
    KRT_U32 status = commit(ad.fwStage, ad.fwSlots, slots, ad.activeFwSlot, cmd[10], &ad.info.FirmwareVersion, &slot,
                            &activateNow, &atReset);
    if (status != 0)
        return status;
    addEvent(ad, now, "Firmware committed to slot %u", slot);
    // A controller that cannot activate without a reset (FRMW bit 4 clear)
    // keeps the image for the next one and says so.
    if (activateNow && !(ad.frmw & 0x10)) {
        ad.nextFwSlot = slot;
        return 0x10B;  // Firmware Activation Requires Conventional Reset
    }
    if (activateNow)
        activateAdapterSlot(ad, slot, now);
    if (atReset)
        ad.nextFwSlot = slot;
    return 0;
}

void adapterFwSlotLog(const SimAdapter &ad, std::span<KRT_U8> out)
{
    slotLog(ad.activeFwSlot, ad.nextFwSlot, ad.fwSlots, out);
}

void pdFwSlotLog(const SimPd &pd, std::span<KRT_U8> out)
{
    slotLog(pd.activeSlot, pd.nextSlot, pd.fwSlots, out);
}

KRT_U32 diskCommandToDisk(SimAdapter &ad, const KRT_U32 (&cmd)[16], std::span<const KRT_U8> data, KRT_U64 now)
{
    if (!pdOnline(ad, cmd[1]))
        return (SCT_VENDOR << 8) | VS_INVALID_HD;
    SimPd &pd = ad.pds[cmd[1]];
    const KRT_U8 opcode = static_cast<KRT_U8>(cmd[14] & 0xFF);
    if (opcode == NVME_ADMIN_FW_DOWNLOAD)
        return download(pd.stage, cmd[10], cmd[11], data, 0);
    if (opcode != NVME_ADMIN_FW_COMMIT)
        return SC_INVALID_OPCODE;
    KRT_U8 slot = 0;
    bool activateNow = false, atReset = false;
    KRT_U32 status =
        commit(pd.stage, pd.fwSlots, 3, pd.activeSlot, cmd[10] & 0x3F, nullptr, &slot, &activateNow, &atReset);
    if (status != 0)
        return status;
    if (activateNow)
        activatePdSlot(pd, slot);
    if (atReset)
        pd.nextSlot = slot;
    addEvent(ad, now, "PD %u firmware committed to slot %u", cmd[1], slot);
    return 0;
}

void rebootMachine(SimState &state, KRT_U64 now)
{
    for (KRT_U32 i = 0; i < state.adapterCount && i < kMaxAdapters; ++i) {
        SimAdapter &ad = state.adapters[i];
        // What was downloaded but not committed lives in controller memory.
        ad.fwStage = SimFwStage{};
        ad.mailboxPending = 0;
        if (ad.nextFwSlot != 0 && ad.nextFwSlot <= kFwSlots && ad.fwSlots[ad.nextFwSlot - 1][0] != '\0')
            activateAdapterSlot(ad, ad.nextFwSlot, now);
        ad.nextFwSlot = 0;
        for (SimPd &pd : ad.pds) {
            if (!pd.present)
                continue;
            pd.stage = SimFwStage{};
            ++pd.powerCycles;
            if (pd.nextSlot != 0 && pd.nextSlot <= kFwSlots && pd.fwSlots[pd.nextSlot - 1][0] != '\0')
                activatePdSlot(pd, pd.nextSlot);
            pd.nextSlot = 0;
        }
        addEvent(ad, now, "Controller started");
    }
}

}  // namespace krtsim
