#include "show.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "controller.h"
#include "store.h"

namespace krtsim {

namespace {

void append(std::string &out, const char *format, ...) __attribute__((format(printf, 2, 3)));

void append(std::string &out, const char *format, ...)
{
    char buf[512];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    if (n > 0)
        out.append(buf, std::min<size_t>(static_cast<size_t>(n), sizeof buf - 1));
}

// Fixed-width device text, cut at a NUL and trailing blanks.
template <size_t N>
std::string text(const char (&field)[N])
{
    std::string_view v(field, N);
    v = v.substr(0, v.find('\0'));
    while (!v.empty() && v.back() == ' ')
        v.remove_suffix(1);
    return std::string(v);
}

template <size_t N>
std::string text(const KRT_U8 (&field)[N])
{
    std::string s;
    for (KRT_U8 c : field) {
        if (c == 0)
            break;
        s += (c >= 0x20 && c < 0x7F) ? static_cast<char>(c) : '?';
    }
    return s;
}

// The slots that hold an image, the running one and the one for the next
// reset marked, and an image being downloaded.
void showFirmwareSlots(std::string &out, const char (&slots)[kFwSlots][8], KRT_U8 active, KRT_U8 next,
                       const SimFwStage &stage, const char *indent = "  ")
{
    append(out, "%sfirmware slots:", indent);
    for (int i = 0; i < kFwSlots; ++i) {
        if (slots[i][0] == '\0')
            continue;
        append(out, " %d=%s%s%s", i + 1, text(slots[i]).c_str(), active == i + 1 ? " (active)" : "",
               next == i + 1 ? " (next)" : "");
    }
    if (stage.bytes != 0)
        append(out, "; %u bytes downloaded%s", stage.bytes, stage.broken ? " out of order" : "");
    out += "\n";
}

const char *bgaName(KRT_U8 type)
{
    switch (type) {
        case KRT_BGA_INIT:
        case KRT_BGA_INIT_FULL:
            return "init";
        case KRT_BGA_REBUILD:
            return "rebuild";
        case KRT_BGA_SYNC:
            return "sync";
        case KRT_BGA_MIGRATE:
            return "migrate";
        case KRT_BGA_MEDIA_PATROL:
            return "media_patrol";
        default:
            return "none";
    }
}

const char *ledName(KRT_U8 action)
{
    static const char *const names[] = {"off", "on", "sb", "qb"};
    return action < std::size(names) ? names[action] : "?";
}

void showBga(std::string &out, const SimBga &bga)
{
    if (bga.status == KRT_NVME_BGA_STATUS_NONE)
        return;
    append(out, " %s %s %u.%03u%%", bgaName(bga.type), bga.status == KRT_NVME_BGA_STATUS_PAUSE ? "paused" : "running",
           bga.progress / 1000, bga.progress % 1000);
}

}  // namespace

std::string showState(SimState &st)
{
    std::string out;
    const KRT_U64 now = clockMillis(st.clock);
    append(out, "clock: %s at %llu.%03llu s\n", st.clock.frozen ? "frozen" : "running",
           static_cast<unsigned long long>(now / 1000), static_cast<unsigned long long>(now % 1000));
    append(out, "firmware download pace: %u ms per MiB\n", st.fwPace);
    if (st.listFails)
        out += "fault: adapter list fails\n";
    for (const SimFault &f : st.faults) {
        if (f.effect == FAULT_NONE)
            continue;
        static const char *effects[] = {"none", "status", "bad-sign", "envelope-status", "overlong", "delay"};
        append(out, "fault: %s", effects[f.effect < 6 ? f.effect : 0]);
        if (f.effect == FAULT_STATUS || f.effect == FAULT_ENVELOPE_STATUS || f.effect == FAULT_DELAY)
            append(out, " 0x%x", f.value);
        if (f.adapter >= 0)
            append(out, " adapter=%d", f.adapter);
        if (f.matchOpcode)
            append(out, " opcode=0x%02x", f.opcode);
        if (f.matchCdw12)
            append(out, " cdw12=0x%08x", f.cdw12);
        if (f.remaining > 0)
            append(out, " count=%d", f.remaining);
        out += "\n";
    }
    append(out, "adapters: %u\n", st.adapterCount);
    for (KRT_U32 i = 0; i < st.adapterCount && i < kMaxAdapters; ++i) {
        SimAdapter &ad = st.adapters[i];
        advanceActivities(ad, now);
        const _NVME_Adapter_Info &info = ad.info;
        append(out, "[%u] %s %s vid=0x%04x did=0x%04x %s fw=%u.%u.%u.%04u pci=%02x:%02x.%x sn=%s%s\n", i,
               text(ad.name).c_str(), text(ad.signature).c_str(), info.VID, info.DID, ad.raid ? "RAID" : "JBOF",
               info.FirmwareVersion.MajorVersion, info.FirmwareVersion.MinorVersion, info.FirmwareVersion.OEMNumber,
               info.FirmwareVersion.BuildNumber, info.BusNumber, info.DeviceNumber, info.FunctionNumber,
               text(ad.sn).c_str(), ad.vanished ? " (vanished)" : "");
        append(out, "  events: %u logged, newest %u kept; SPI log %s, %u bytes\n", ad.eventCount,
               std::min<KRT_U32>(ad.eventCount, kMaxEvents), ad.spiLogOn ? "on" : "off", ad.spiLogLength);
        append(out, "  settings auto_rebuild=%u bga_rate=%u gpio8-11=%s ep_led=%s\n", ad.config.AutoRebuildOn,
               ad.config.BGARate, ad.gpioInverse ? "inverted" : "normal", ledName(ad.adapterLed));
        showFirmwareSlots(out, ad.fwSlots, ad.activeFwSlot, ad.nextFwSlot, ad.fwStage);
        for (int p = 0; p < kMaxPds; ++p) {
            const SimPd &pd = ad.pds[p];
            if (!pd.present)
                continue;
            append(out, "  PD %d slot=%u %s %s %llu x %u status=0x%02x", p, pd.slot, text(pd.model).c_str(),
                   text(pd.serial).c_str(), static_cast<unsigned long long>(pd.lba), pd.sectorSize, pd.status);
            append(out, " led=%s%s%s", ledName(pd.led), pd.powerOff ? " power=off" : "",
                   pd.resetHeld ? " reset=held" : "");
            showBga(out, pd.bga);
            out += "\n";
            if (pd.nextSlot != 0 || pd.stage.bytes != 0 || pd.fwSlots[1][0] != '\0' || pd.fwSlots[2][0] != '\0')
                showFirmwareSlots(out, pd.fwSlots, pd.activeSlot, pd.nextSlot, pd.stage, "    ");
        }
        for (int v = 0; v < kMaxVds; ++v) {
            const SimVd &vd = ad.vds[v];
            if (!vd.present)
                continue;
            append(out, "  VD %d '%s' raid=0x%02x status=%u members=", v, text(vd.name).c_str(), vd.raidMode,
                   vd.status);
            for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m)
                append(out, m ? ",%u" : "%u", vd.members[m]);
            append(out, " %llu sectors", static_cast<unsigned long long>(vd.lba));
            showBga(out, vd.bga);
            out += "\n";
        }
        for (const SimNs &ns : ad.ns) {
            if (ns.nsid == 0)
                continue;
            append(out, "  NS %u on %s %u %llu x %u%s%s%s", ns.nsid, ns.deviceType ? "VD" : "PD", ns.parent,
                   static_cast<unsigned long long>(ns.lba), ns.sectorSize, ns.status & KRT_NS_VALID ? " valid" : "",
                   ns.status & KRT_NS_ACTIVE ? " active" : "", ns.shared ? " shared" : "");
            if (!ns.shared && ns.hasOwner)
                append(out, " private to %u", ns.owner);
            out += "\n";
        }
    }
    return out;
}

}  // namespace krtsim
