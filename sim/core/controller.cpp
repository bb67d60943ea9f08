#include "controller.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "fixture.h"
#include "krt/admin.h"
#include "krt/identify.h"
#include "krt/smart_log.h"
#include "request.h"
#include "store.h"

namespace krtsim {

namespace {

// While the SPI log is on, the firmware writes each event into it too; a
// full log drops its oldest bytes.
void spiLogEvent(SimAdapter &ad, const SimEvent &e)
{
    char line[96];
    const int n = std::snprintf(line, sizeof line, "event %u: %.*s\n", e.seq, static_cast<int>(sizeof e.msg), e.msg);
    if (n <= 0)
        return;
    const KRT_U32 len = std::min<KRT_U32>(static_cast<KRT_U32>(n), sizeof line - 1);
    KRT_U32 kept = std::min<KRT_U32>(ad.spiLogLength, kSpiLogSize);
    if (kept + len > kSpiLogSize) {
        const KRT_U32 drop = kept + len - kSpiLogSize;
        std::memmove(ad.spiLog, ad.spiLog + drop, kept - drop);
        kept -= drop;
        ad.spiLogCursor = ad.spiLogCursor > drop ? ad.spiLogCursor - drop : 0;
    }
    std::memcpy(ad.spiLog + kept, line, len);
    ad.spiLogLength = kept + len;
}

const char *bgaEventName(KRT_U8 type)
{
    switch (type) {
        case KRT_BGA_REBUILD:
            return "rebuild";
        case KRT_BGA_SYNC:
            return "synchronization";
        case KRT_BGA_MIGRATE:
            return "migration";
        case KRT_BGA_MEDIA_PATROL:
            return "media patrol";
        default:
            return "initialization";
    }
}

}  // namespace

void addEvent(SimAdapter &ad, KRT_U64 nowMillis, const char *format, ...)
{
    SimEvent &e = ad.events[ad.eventCount % kMaxEvents];
    e = SimEvent{};
    e.seq = ad.eventCount + 1;
    e.time = static_cast<KRT_U32>(nowMillis / 1000);
    va_list args;
    va_start(args, format);
    std::vsnprintf(e.msg, sizeof e.msg, format, args);
    va_end(args);
    ++ad.eventCount;
    if (ad.spiLogOn)
        spiLogEvent(ad, e);
}

_NVME_PD_Info pdRecord(const SimPd &pd, int id, bool overlong)
{
    _NVME_PD_Info r{};
    r.ID = static_cast<KRT_U16>(id);
    r.Status = pd.status;
    std::memcpy(r.Model, pd.model, sizeof r.Model);
    std::memcpy(r.SerialNo, pd.serial, sizeof r.SerialNo);
    std::memcpy(r.FWVersion, pd.fw, sizeof r.FWVersion);
    r.SectorSize = pd.sectorSize;
    r.LBA = pd.lba;
    r.SSDAdapterID = pd.slot;
    r.SSDNSID = pd.nsid;
    r.Temperature = pd.temperature;
    if (overlong) {
        fillText(r.Model);
        fillText(r.SerialNo);
        fillText(r.FWVersion);
    }
    return r;
}

namespace {

// Members a VD can lose before its data is gone.
int toleratedLosses(const SimVd &vd)
{
    switch (vd.raidMode) {
        case KRT_RAID1:
            return vd.memberCount > 0 ? vd.memberCount - 1 : 0;
        case KRT_RAID5:
        case KRT_RAID10:
        case KRT_RAID50:
            return 1;
        case KRT_RAID6:
        case KRT_RAID60:
            return 2;
        default:
            return 0;
    }
}

// A member whose slot is switched off or held in reset is not seen: the
// record shows it missing, and the VD as it stands without it. Once the SSD
// is back the VD is whole again; nothing is stored.
void reportUnseenMembers(const SimAdapter &ad, const SimVd &vd, _NVME_VD_Info &r)
{
    int unseen = 0, missing = 0;
    for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m) {
        const KRT_U16 pd = vd.members[m];
        if (pd == KRT_PD_MISSING) {
            ++missing;
        } else if (pdExists(ad, pd) && !pdOnline(ad, pd)) {
            r.PDIDs[m] = KRT_PD_MISSING;
            ++unseen;
        }
    }
    if (unseen == 0)
        return;
    switch (vd.status) {
        case KRT_VD_FOREIGN:
        case KRT_VD_IMPORTABLE:
            // Disks from elsewhere are taken over only all together.
            r.Status = KRT_VD_NOT_IMPORTABLE;
            r.Importable = 0;
            break;
        case KRT_VD_FUNCTIONAL:
        case KRT_VD_DEGRADE:
        case KRT_VD_PARTIALLY_OPTIMAL:
            r.Status = unseen + missing > toleratedLosses(vd) ? KRT_VD_OFFLINE : KRT_VD_DEGRADE;
            break;
        default:
            break;
    }
}

}  // namespace

_NVME_VD_Info vdRecord(const SimAdapter &ad, int id, bool overlong)
{
    const SimVd &vd = ad.vds[id];
    _NVME_VD_Info r{};
    r.ID = static_cast<KRT_U16>(id);
    r.Status = vd.status;
    r.Importable = vd.importable;
    r.RaidMode = vd.raidMode;
    r.MemberCount = vd.memberCount;
    r.BGAIndex = vd.bga.type;
    r.LBA = vd.lba;
    std::memcpy(r.PDIDs, vd.members, sizeof r.PDIDs);
    r.NumParityDisk = vd.numParity;
    r.StripBlockSize = vd.stripBlocks;
    r.SectorSize = vd.sectorSize;
    std::memcpy(r.Name, vd.name, sizeof r.Name);
    size_t n = 0;
    for (const SimNs &ns : ad.ns)
        if (ns.nsid != 0 && ns.deviceType == 1 && ns.parent == id && n < sizeof r.NSIDs)
            r.NSIDs[n++] = ns.nsid;
    reportUnseenMembers(ad, vd, r);
    if (overlong) {
        r.MemberCount = 255;
        fillText(r.Name);
        std::memset(r.NSIDs, 0xFF, sizeof r.NSIDs);
    }
    return r;
}

_NVME_NS_Info nsRecord(const SimAdapter &ad, const SimNs &ns, bool overlong)
{
    _NVME_NS_Info r{};
    r.NSID = ns.nsid;
    r.device_type = ns.deviceType;
    r.ID = ns.parent;
    r.Status = ns.status;
    // The state its VD reports, members out of sight included.
    if (ns.deviceType == 1 && vdExists(ad, ns.parent))
        r.VDStatus = vdRecord(ad, ns.parent, false).Status;
    r.LBADataSize = ns.lbaDataSize;
    r.SectorSize = ns.sectorSize;
    r.LBA = ns.lba;
    if (overlong)
        r.Status = 0xFF;
    return r;
}

_NVME_BGA_STATUS bgaRecord(const SimBga &bga, int id)
{
    _NVME_BGA_STATUS r{};
    r.ID = static_cast<KRT_U8>(id);
    // An idle object reports no activity at all, also once one has finished.
    if (bga.status == KRT_NVME_BGA_STATUS_NONE)
        return r;
    r.BgaType = bga.type;
    r.Percentage = static_cast<KRT_U8>(std::min<KRT_U32>(bga.progress / 1000, 100));
    r.BgaStatus = bga.status;
    return r;
}

void advanceActivities(SimAdapter &ad, KRT_U64 now)
{
    KRT_U64 finishedAt = now;  // when the activity that just finished reached 100 %
    auto step = [now, &finishedAt](SimBga &bga) -> bool {
        if (bga.status != KRT_NVME_BGA_STATUS_RUNNING || now <= bga.lastMillis) {
            bga.lastMillis = std::max(bga.lastMillis, now);
            return false;
        }
        KRT_U64 per = bga.millisPerPercent == 0 ? 1000 : bga.millisPerPercent;
        const KRT_U64 left = kProgressFull - std::min(bga.progress, kProgressFull);
        finishedAt = std::min(now, bga.lastMillis + (left * per + 999) / 1000);
        KRT_U64 gained = (now - bga.lastMillis) * 1000 / per;
        bga.lastMillis = now;
        KRT_U64 progress = std::min<KRT_U64>(bga.progress + gained, kProgressFull);
        bga.progress = static_cast<KRT_U32>(progress);
        if (progress < kProgressFull)
            return false;
        bga.status = KRT_NVME_BGA_STATUS_NONE;
        return true;
    };
    for (int id = 0; id < kMaxVds; ++id) {
        SimVd &vd = ad.vds[id];
        if (!vd.present || !step(vd.bga))
            continue;
        addEvent(ad, finishedAt, "VD %d %s completed", id, bgaEventName(vd.bga.type));
        // A finished rebuild puts its target in the missing member's place.
        if (vd.bga.type == KRT_BGA_REBUILD && vd.bga.target < kMaxPds && ad.pds[vd.bga.target].present) {
            for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m) {
                if (vd.members[m] != KRT_PD_MISSING)
                    continue;
                vd.members[m] = vd.bga.target;
                ad.pds[vd.bga.target].status |= KRT_PD_ASSIGNED;
                break;
            }
        }
        bool missing = false;
        for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m)
            missing |= vd.members[m] == KRT_PD_MISSING;
        if (vd.status == KRT_VD_INITIALIZATION || vd.status == KRT_VD_REBUILDING || vd.status == KRT_VD_DEGRADE)
            vd.status = missing ? KRT_VD_DEGRADE : KRT_VD_FUNCTIONAL;
    }
    for (int id = 0; id < kMaxPds; ++id) {
        SimPd &pd = ad.pds[id];
        if (!pd.present || !step(pd.bga))
            continue;
        pd.status &= static_cast<KRT_U8>(~KRT_PD_MEDIA_PATROL);
        addEvent(ad, finishedAt, "PD %d media patrol completed", id);
    }
}

namespace {

KRT_U8 dispatch(std::initializer_list<std::span<const Route>> tables, Request &r)
{
    for (std::span<const Route> table : tables)
        for (const Route &route : table)
            if (route.cls == r.cls && route.sub == r.sub)
                return route.handler(r);
    return VS_NOT_SUPPORTED;
}

// Envelope effects of a fault rule on a reply buffer.
void applyEnvelopeFault(Buffer &reply, const FaultAction &fault)
{
    if (fault.effect == FAULT_BAD_SIGN) {
        reply[0] = 'B';
        reply[1] = 'A';
        reply[2] = 'D';
    } else if (fault.effect == FAULT_ENVELOPE_STATUS) {
        reply[4] = static_cast<KRT_U8>(fault.value);
    }
}

void startReply(Buffer &reply)
{
    reply.fill(0);
    reply[0] = 'K';
    reply[1] = 'R';
    reply[2] = 'T';
}

void copyOut(const Buffer &reply, KRT_U8 direction, std::span<KRT_U8> data)
{
    if (direction != XFER_FROM_DEV)
        return;
    if (!data.empty())
        std::memcpy(data.data(), reply.data(), std::min(data.size(), reply.size()));
}

// ---------------------------------------------------------------- identify

template <size_t N, size_t M>
void putText(KRT_U8 (&field)[N], const char (&text)[M])
{
    static_assert(M <= N);
    std::memcpy(field, text, M);
}

// What the controller and its SSDs have in common in Identify Controller:
// queue entry sizes, limits and commands of an NVMe 1.3 device.
void identifyCommon(_krt_id_ctrl &id)
{
    id.rab = 6;
    id.mdts = 5;  // 128 KiB transfers
    id.acl = 3;
    id.aerl = 3;
    id.elpe = 63;
    id.wctemp = 343;  // 70 C
    id.cctemp = 358;  // 85 C
    id.sqes = 0x66;
    id.cqes = 0x44;
    id.oncs = 0x0006;  // Write Uncorrectable, Dataset Management
    id.nvscc = 1;
}

void identifyController(const SimAdapter &ad, _krt_id_ctrl &id, bool overlong)
{
    if (ad.identifyOwn) {
        // A controller taken from a capture answers with its own data; the
        // fields the model keeps (a firmware activation changes FR) lie over it.
        static_assert(sizeof id == sizeof ad.identify);
        std::memcpy(&id, ad.identify, sizeof id);
    } else {
        identifyCommon(id);
        id.vid = ad.info.VID;
        id.ieee[0] = 0x6B;
        id.ieee[1] = 0x1E;
        id.ver = 0x00010400;                                        // NVMe 1.4
        id.oacs = static_cast<KRT_U16>(ad.raid ? 0x000E : 0x0006);  // format, firmware, NS management
        id.lpa = 0x0E;
        id.avscc = 1;
        id.nn = ad.info.MaxNS;
        id.vwc = ad.info.Cache != 0 ? 1 : 0;
    }
    id.ssvid = ad.ssvid;
    putText(id.sn, ad.sn);
    putText(id.mn, ad.mn);
    putText(id.fr, ad.fr);
    id.cntlid = ad.cntlid;
    id.frmw = ad.frmw;
    id.tnvmcap[0] = ad.tnvmcap;
    id.unvmcap[0] = ad.unvmcap;
    std::memcpy(id.subnqn, ad.subnqn, sizeof id.subnqn);
    if (overlong) {
        std::memset(id.sn, 'X', sizeof id.sn);
        std::memset(id.mn, 'X', sizeof id.mn);
        std::memset(id.fr, 'X', sizeof id.fr);
        std::memset(id.subnqn, 'X', sizeof id.subnqn);
    }
}

// A back-end SSD's own Identify Controller data.
void identifyDisk(const SimPd &pd, int pdId, _krt_id_ctrl &id)
{
    identifyCommon(id);
    std::memcpy(&id.vid, pd.vid, sizeof id.vid);
    id.ssvid = id.vid;
    // The disk's own texts where they differ from its record.
    putText(id.sn, (pd.idOwn & ID_OWN_SERIAL) ? pd.idSerial : pd.serial);
    putText(id.mn, (pd.idOwn & ID_OWN_MODEL) ? pd.idModel : pd.model);
    putText(id.fr, (pd.idOwn & ID_OWN_FR) ? pd.idFr : pd.fw);
    id.ieee[0] = 0x6B;
    id.ieee[1] = 0x1E;
    id.cntlid = 1;
    id.ver = 0x00010300;  // NVMe 1.3
    id.oacs = 0x0006;     // format, firmware
    id.frmw = pd.idFrmw;
    id.lpa = 0x02;
    id.npss = 4;
    id.tnvmcap[0] = pd.lba * pd.sectorSize;
    id.nn = 1;
    id.vwc = 1;
    if (pd.idSubnqn[0] != 0)
        std::memcpy(id.subnqn, pd.idSubnqn, sizeof id.subnqn);
    else
        std::snprintf(reinterpret_cast<char *>(id.subnqn), sizeof id.subnqn, "nqn.2026-01.io.krt:ssd:%02d:%.20s", pdId,
                      pd.serial);
}

// The LBA formats a namespace can take: 512 and 4096 bytes, each bare or
// with 8 metadata bytes, 4096 the fastest. Returns the one in use for a
// data size of 2^lbaDataSize bytes.
KRT_U8 lbaFormats(_krt_id_ns &ns, KRT_U8 lbaDataSize)
{
    constexpr _krt_lba_format kFormats[] = {{0, 9, 2}, {8, 9, 3}, {0, 12, 0}, {8, 12, 1}};
    std::memcpy(ns.lbaf, kFormats, sizeof kFormats);
    ns.nlbaf = std::size(kFormats) - 1;  // 0-based
    return lbaDataSize == 12 ? 2 : 0;
}

KRT_U32 identify(SimAdapter &ad, const KRT_U32 (&cmd)[16], Buffer &b, bool overlong)
{
    b.fill(0);
    const KRT_U32 cns = cmd[10] & 0xFF;
    if (cns == NVME_CNS_CONTROLLER) {
        _krt_id_ctrl id{};
        identifyController(ad, id, overlong);
        std::memcpy(b.data(), &id, sizeof id);
        return 0;
    }
    if (cns == NVME_CNS_NAMESPACE) {
        for (const SimNs &n : ad.ns) {
            if (n.nsid == 0 || n.nsid != cmd[1])
                continue;
            if (n.identifyLength != 0) {
                // Its own data (a capture); sharing, which the model
                // changes, in NMIC bit 0.
                std::memcpy(b.data(), n.identify, sizeof n.identify);
                KRT_U8 &nmic = b[offsetof(_krt_id_ns, nmic)];
                nmic = static_cast<KRT_U8>((nmic & ~1u) | (n.shared ? 1u : 0u));
                return 0;
            }
            _krt_id_ns ns{};
            ns.nsze = n.lba;
            ns.ncap = n.lba;
            ns.nuse = n.lba;
            ns.flbas = lbaFormats(ns, n.lbaDataSize);
            ns.nmic = n.shared ? 1 : 0;
            ns.fpi = 0x80;  // reports format progress
            std::memcpy(ns.eui64, ad.eui64, 7);
            ns.eui64[7] = n.nsid;  // unique per namespace
            std::memcpy(b.data(), &ns, sizeof ns);
            return 0;
        }
        return SC_INVALID_NAMESPACE;
    }
    if (cns == NVME_CNS_ACTIVE_NS_LIST || cns == NVME_CNS_ALLOCATED_NS_LIST) {
        // IDs above the one in CDW1, ascending: attached ones, or all.
        std::span<KRT_U8> s(b);
        size_t at = 0;
        for (KRT_U32 nsid = cmd[1] + 1; nsid <= 0xFF && nsid > cmd[1]; ++nsid) {
            for (const SimNs &n : ad.ns) {
                if (n.nsid == nsid && (cns == NVME_CNS_ALLOCATED_NS_LIST || (n.status & KRT_NS_ACTIVE))) {
                    put(s, at, nsid);
                    at += sizeof nsid;
                }
            }
        }
        return 0;
    }
    if (cns == NVME_CNS_CONTROLLER_LIST) {
        // This controller is the only one there is.
        std::span<KRT_U8> s(b);
        put(s, 0, KRT_U16{1});
        put(s, 2, ad.cntlid);
        return 0;
    }
    if (cns == NVME_CNS_PRIMARY_CTRL_CAPS) {
        std::span<KRT_U8> s(b);
        put(s, 0, ad.cntlid);
        return 0;
    }
    return SC_INVALID_FIELD;
}

// ---------------------------------------------------------------- pairs

KRT_U32 pairSend(SimState &st, SimAdapter &ad, const KRT_U32 (&cmd)[16], KRT_U8 direction, std::span<const KRT_U8> data,
                 const FaultAction &fault)
{
    if (cmd[10] != KRT_PAIR_CDW10 || cmd[11] != KRT_PAIR_CDW11 || cmd[15] != KRT_PAIR_CDW15 || direction != XFER_TO_DEV)
        return SC_INVALID_FIELD;
    Buffer reply;
    startReply(reply);
    _NVMESendData head{};
    KRT_U8 status = VS_INVALID_REQUEST;
    if (data.size() >= KRT_PAIR_DATA_OFFSET) {
        std::memcpy(&head, data.data(), KRT_PAIR_DATA_OFFSET);
        bool signOk = head.sign[0] == 'K' && head.sign[1] == 'R' && head.sign[2] == 'T';
        if (signOk && head.cmd_length >= 2 && head.cmd_length <= KRT_PAIR_MAX_WORDS) {
            size_t inLen = std::min<size_t>(
                {head.data_length, data.size() - KRT_PAIR_DATA_OFFSET, KRT_BUFFER_SIZE - KRT_PAIR_DATA_OFFSET});
            Request r{st,
                      ad,
                      static_cast<KRT_U8>(head.vendor_cmd[0]),
                      static_cast<KRT_U8>(head.vendor_cmd[1]),
                      0,
                      0,
                      0,
                      static_cast<KRT_U16>(head.cmd_length > 2 ? head.vendor_cmd[2] : 0),
                      data.subspan(KRT_PAIR_DATA_OFFSET, inLen),
                      std::span<KRT_U8>(reply).subspan(KRT_REPLY_DATA_OFFSET, kReplyData),
                      fault.effect == FAULT_OVERLONG,
                      clockMillis(st.clock),
                      0};
            // Class and sub-command must agree with the send command's CDW12.
            if (head.vendor_cmd[0] > 0xFF || head.vendor_cmd[1] > 0xFF ||
                cmd[12] != ((static_cast<KRT_U32>(head.vendor_cmd[1]) << 16) | head.vendor_cmd[0]))
                status = VS_INVALID_REQUEST;
            else
                status = dispatch({infoPairedRoutes(), arrayPairedRoutes()}, r);
        }
    }
    reply[4] = status;
    applyEnvelopeFault(reply, fault);
    std::memcpy(ad.mailbox, reply.data(), reply.size());
    ad.mailboxPending = 1;
    return 0;
}

KRT_U32 pairReceive(SimAdapter &ad, const KRT_U32 (&cmd)[16], KRT_U8 direction, std::span<KRT_U8> data,
                    const FaultAction &fault)
{
    if (cmd[15] != KRT_PAIR_CDW15)
        return SC_INVALID_FIELD;
    Buffer reply;
    if (ad.mailboxPending) {
        std::memcpy(reply.data(), ad.mailbox, reply.size());
        ad.mailboxPending = 0;
    } else {
        startReply(reply);
        reply[4] = VS_INVALID_REQUEST;  // nothing was asked
    }
    applyEnvelopeFault(reply, fault);
    copyOut(reply, direction, data);
    return 0;
}

// ---------------------------------------------------------------- logs

// Adds to a 16-byte little-endian SMART counter.
void addCounter(KRT_U8 (&field)[16], SimU128 value)
{
    SimU128 sum = 0;
    std::memcpy(&sum, field, sizeof field);
    sum += value;
    std::memcpy(field, &sum, sizeof field);
}

// SMART / Health Information of the SSDs in a mask (bit n: PD n), summed:
// worst warning, hottest temperature, least spare, most wear.
void smartOfDisks(const SimAdapter &ad, KRT_U32 mask, Buffer &b)
{
    b.fill(0);
    _krt_smart_log log{};
    KRT_U16 hottest = 0;  // kept apart: the log's own field is unaligned
    KRT_U16 sensors[8] = {};
    bool ownSensors = false;
    int disks = 0;
    for (int id = 0; id < kMaxPds; ++id) {
        const SimPd &pd = ad.pds[id];
        if (!pdOnline(pd) || !(mask & (1u << id)))
            continue;
        const auto wide = [](KRT_U64 low, KRT_U64 high) { return (static_cast<SimU128>(high) << 64) | low; };
        const auto own = [&pd](KRT_U32 bit) { return (pd.smartOwn & bit) != 0; };
        const SimU128 unitsRead = wide(pd.dataUnitsRead, pd.dataUnitsReadHigh);
        const SimU128 unitsWritten = wide(pd.dataUnitsWritten, pd.dataUnitsWrittenHigh);
        const SimU128 powerOnHours = wide(pd.powerOnHours, pd.powerOnHoursHigh);
        const SimU128 mediaErrors = wide(pd.mediaErrors, pd.mediaErrorsHigh);
        const SimU128 unsafeShutdowns = wide(pd.unsafeShutdowns, pd.unsafeShutdownsHigh);
        const KRT_U16 temperature = own(SMART_OWN_TEMPERATURE) ? pd.smartTemperature : pd.temperature;
        log.critical_warning |= pd.criticalWarning;
        hottest = std::max(hottest, temperature);
        log.avail_spare = disks > 0 ? std::min(log.avail_spare, pd.availSpare) : pd.availSpare;
        log.spare_thresh = std::max<KRT_U8>(log.spare_thresh, own(SMART_OWN_SPARE_THRESHOLD) ? pd.spareThreshold : 10);
        log.percent_used = std::max(log.percent_used, pd.percentUsed);
        addCounter(log.data_units_read, unitsRead);
        addCounter(log.data_units_written, unitsWritten);
        // About 16 KiB a read and 30 KiB a write (a data unit is 512,000 bytes).
        addCounter(log.host_reads, own(SMART_OWN_HOST_READS) ? wide(pd.hostReads[0], pd.hostReads[1]) : unitsRead * 31);
        addCounter(log.host_writes,
                   own(SMART_OWN_HOST_WRITES) ? wide(pd.hostWrites[0], pd.hostWrites[1]) : unitsWritten * 17);
        // Minutes: busy 2.5 % of the time.
        addCounter(log.ctrl_busy_time,
                   own(SMART_OWN_BUSY) ? wide(pd.busyMinutes[0], pd.busyMinutes[1]) : powerOnHours * 3 / 2);
        addCounter(log.power_cycles, wide(pd.powerCycles, pd.powerCyclesHigh));
        addCounter(log.power_on_hours, powerOnHours);
        addCounter(log.unsafe_shutdowns, unsafeShutdowns);
        addCounter(log.media_errors, mediaErrors);
        addCounter(log.num_err_log_entries, own(SMART_OWN_ERROR_ENTRIES)
                                                ? wide(pd.errorLogEntries[0], pd.errorLogEntries[1])
                                                : mediaErrors + unsafeShutdowns);
        log.warning_temp_time += pd.warningTempMinutes;
        if (own(SMART_OWN_CRITICAL_TEMP))
            log.critical_comp_time += pd.criticalTempMinutes;
        if (own(SMART_OWN_THERMAL)) {
            log.tmt1tc += pd.thermal[0];
            log.tmt2tc += pd.thermal[1];
            log.ttftmt1 += pd.thermal[2];
            log.ttftmt2 += pd.thermal[3];
        }
        // One disk alone reports its own sensors.
        ownSensors = own(SMART_OWN_TEMP_SENSORS);
        if (ownSensors)
            std::memcpy(sensors, pd.tempSensors, sizeof sensors);
        ++disks;
    }
    if (disks != 1 || !ownSensors) {
        std::fill(std::begin(sensors), std::end(sensors), KRT_U16{0});
        sensors[0] = hottest;
    }
    log.temperature = hottest;
    std::memcpy(log.temp_sensor, sensors, sizeof sensors);
    std::memcpy(b.data(), &log, sizeof log);
}

// One SSD, or the whole controller (onlyPd < 0).
void smartPage(const SimAdapter &ad, int onlyPd, Buffer &b)
{
    smartOfDisks(ad, onlyPd < 0 ? ~0u : 1u << onlyPd, b);
}

// The SMART log of a namespace (0xE2 with CDW12 = NSID << 16 | 0x08E5):
// that of the disks under it, as a bare 512-byte page.
KRT_U32 namespaceSmart(const SimAdapter &ad, KRT_U32 nsid, Buffer &b)
{
    for (const SimNs &ns : ad.ns) {
        if (ns.nsid == 0 || ns.nsid != nsid)
            continue;
        KRT_U32 mask = 0;
        if (ns.deviceType == 0) {
            mask = 1u << (ns.parent % 32);
        } else if (vdExists(ad, ns.parent)) {
            const SimVd &vd = ad.vds[ns.parent];
            for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m)
                if (vd.members[m] < kMaxPds)
                    mask |= 1u << vd.members[m];
        }
        smartOfDisks(ad, mask, b);
        return 0;
    }
    return SC_INVALID_NAMESPACE;
}

// A controller taken from a capture reports its own figures over those of
// its SSDs.
void controllerSmart(const SimAdapter &ad, Buffer &b)
{
    if (ad.smartOwn == 0)
        return;
    _krt_smart_log log;
    std::memcpy(&log, b.data(), sizeof log);
    if (ad.smartOwn & ADAPTER_SMART_CRITICAL)
        log.critical_warning = ad.smartCriticalWarning;
    if (ad.smartOwn & ADAPTER_SMART_TEMPERATURE)
        log.temperature = ad.smartTemperature;
    if (ad.smartOwn & ADAPTER_SMART_SPARE)
        log.avail_spare = ad.smartSpare;
    if (ad.smartOwn & ADAPTER_SMART_SPARE_THRESHOLD)
        log.spare_thresh = ad.smartSpareThreshold;
    if (ad.smartOwn & ADAPTER_SMART_PERCENT_USED)
        log.percent_used = ad.smartPercentUsed;
    std::memcpy(b.data(), &log, sizeof log);
}

KRT_U32 getLogPage(const SimAdapter &ad, const KRT_U32 (&cmd)[16], Buffer &b)
{
    const KRT_U32 logId = cmd[10] & 0xFF;
    if (logId == 0x02) {
        smartPage(ad, -1, b);
        controllerSmart(ad, b);
        return 0;
    }
    if (logId == 0x03) {
        b.fill(0);
        adapterFwSlotLog(ad, b);
        return 0;
    }
    if (logId == 0xC0) {  // the SPI data area
        b.fill(0);
        std::memcpy(b.data(), ad.spi, sizeof ad.spi);
        return 0;
    }
    return SC_INVALID_LOG_PAGE;
}

KRT_U32 spiWrite(SimAdapter &ad, const KRT_U32 (&cmd)[16], std::span<const KRT_U8> data)
{
    if (cmd[12] != 0x08E0 || data.empty())
        return SC_INVALID_FIELD;
    std::memset(ad.spi, 0, sizeof ad.spi);
    std::memcpy(ad.spi, data.data(), std::min(data.size(), sizeof ad.spi));
    return 0;
}

// A command forwarded to a back-end SSD (data from the disk): CDW1 names
// the disk, CDW14 carries the forwarded command dword 0, CDW15 its NSID.
// The disk answers what an NVMe 1.3 SSD answers; anything else it does not
// know is an invalid opcode.
KRT_U32 diskCommand(const SimAdapter &ad, const KRT_U32 (&cmd)[16], Buffer &b)
{
    if (!pdOnline(ad, cmd[1]))
        return (SCT_VENDOR << 8) | VS_INVALID_HD;
    const SimPd &pd = ad.pds[cmd[1]];
    const KRT_U8 opcode = static_cast<KRT_U8>(cmd[14] & 0xFF);
    const KRT_U32 nsid = cmd[15];
    b.fill(0);
    if (opcode == NVME_ADMIN_GET_LOG_PAGE) {
        if ((cmd[10] & 0xFF) == 0x03) {
            pdFwSlotLog(pd, b);
            return 0;
        }
        if ((cmd[10] & 0xFF) != NVME_LOG_SMART)
            return SC_INVALID_LOG_PAGE;
        smartPage(ad, static_cast<int>(cmd[1]), b);
        return 0;
    }
    if (opcode != NVME_ADMIN_IDENTIFY)
        return SC_INVALID_OPCODE;
    switch (cmd[10] & 0xFF) {
        case NVME_CNS_CONTROLLER: {
            _krt_id_ctrl id{};
            identifyDisk(pd, static_cast<int>(cmd[1]), id);
            std::memcpy(b.data(), &id, sizeof id);
            return 0;
        }
        case NVME_CNS_NAMESPACE: {
            // The disk's one namespace, or all of them (0xFFFFFFFF) alike.
            if (nsid != pd.nsid && nsid != 0xFFFFFFFF)
                return SC_INVALID_NAMESPACE;
            _krt_id_ns ns{};
            ns.nsze = pd.lba;
            ns.ncap = pd.lba;
            ns.nuse = pd.lba;
            ns.flbas = lbaFormats(ns, pd.sectorSize == 4096 ? 12 : 9);
            ns.dlfeat = 0x09;  // deallocated blocks read as zeroes
            std::memcpy(b.data(), &ns, sizeof ns);
            return 0;
        }
        case NVME_CNS_ACTIVE_NS_LIST: {
            // Active namespace IDs above the NSID given.
            const KRT_U32 active = pd.nsid;
            if (active > nsid)
                std::memcpy(b.data(), &active, sizeof active);
            return 0;
        }
        default:
            return SC_INVALID_FIELD;
    }
}

// Namespace Attachment: SEL 0 attaches, 1 detaches, for the controllers in
// the list (this controller is the only one there is).
KRT_U32 attachNamespace(SimAdapter &ad, const KRT_U32 (&cmd)[16], std::span<const KRT_U8> list, KRT_U64 now)
{
    SimNs *ns = nullptr;
    for (SimNs &n : ad.ns)
        if (n.nsid != 0 && n.nsid == cmd[1])
            ns = &n;
    if (ns == nullptr)
        return SC_INVALID_NAMESPACE;
    const KRT_U32 sel = cmd[10] & 0xF;
    if (sel > 1 || list.size() < 4)
        return SC_INVALID_FIELD;
    KRT_U16 count = 0;
    std::memcpy(&count, list.data(), 2);
    if (count == 0 || count > (list.size() - 2) / 2)
        return SC_CONTROLLER_LIST_INVALID;
    for (KRT_U16 i = 0; i < count; ++i) {
        KRT_U16 id = 0;
        std::memcpy(&id, list.data() + 2 + 2 * i, 2);
        if (id != ad.cntlid)
            return SC_CONTROLLER_LIST_INVALID;
    }
    // A private namespace goes to the controller that keeps it, and no other.
    if (sel == 0 && !ns->shared && ns->hasOwner && ns->owner != ad.cntlid)
        return SC_NS_IS_PRIVATE;
    const bool attached = ns->status & KRT_NS_ACTIVE;
    if (sel == 0 && attached)
        return SC_NS_ALREADY_ATTACHED;
    if (sel == 1 && !attached)
        return SC_NS_NOT_ATTACHED;
    ns->status = static_cast<KRT_U8>(sel == 0 ? ns->status | KRT_NS_ACTIVE : ns->status & ~KRT_NS_ACTIVE);
    addEvent(ad, now, "NS %u %s", ns->nsid, sel == 0 ? "attached" : "detached");
    return 0;
}

}  // namespace

KRT_U32 executeAdmin(SimState &st, int index, const KRT_U32 (&cmd)[16], KRT_U8 direction, std::span<KRT_U8> data,
                     const FaultAction &fault)
{
    if (fault.effect == FAULT_STATUS)
        return fault.value;
    SimAdapter &ad = st.adapters[index];
    advanceActivities(ad, clockMillis(st.clock));
    const KRT_U8 opcode = static_cast<KRT_U8>(cmd[0] & 0xFF);
    const bool overlong = fault.effect == FAULT_OVERLONG;
    Buffer reply;
    switch (opcode) {
        case NVME_ADMIN_IDENTIFY: {
            KRT_U32 status = identify(ad, cmd, reply, overlong);
            // Identify data has no envelope: only the over-long effect applies.
            if (status == 0)
                copyOut(reply, direction, data);
            return status;
        }
        case KRT_VENDOR_OPCODE: {
            if ((cmd[12] & 0xFFFF) == 0x08E5) {
                KRT_U32 status = namespaceSmart(ad, cmd[12] >> 16, reply);
                if (status == 0)
                    copyOut(reply, direction, data);
                return status;
            }
            // The GPIO inversion state comes back bare, in byte 0.
            if (cmd[12] == 0x1AE0) {
                reply.fill(0);
                reply[0] = ad.gpioInverse;
                copyOut(reply, direction, data);
                return 0;
            }
            startReply(reply);
            Request r{st,
                      ad,
                      static_cast<KRT_U8>(cmd[12] & 0xFF),
                      static_cast<KRT_U8>((cmd[12] >> 8) & 0xFF),
                      static_cast<KRT_U16>(cmd[12] >> 16),
                      cmd[13],
                      cmd[14],
                      0,
                      direction == XFER_TO_DEV ? std::span<const KRT_U8>(data) : std::span<const KRT_U8>(),
                      std::span<KRT_U8>(reply).subspan(KRT_REPLY_DATA_OFFSET, kReplyData),
                      overlong,
                      clockMillis(st.clock),
                      cmd[15]};
            reply[4] =
                dispatch({infoDirectRoutes(), arrayDirectRoutes(), logDirectRoutes(), maintenanceDirectRoutes()}, r);
            // A request that reads no reply learns its outcome from the
            // completion: the vendor status as a vendor-specific status code.
            if (reply[4] != VS_OK && (direction != XFER_FROM_DEV || data.empty()))
                return (SCT_VENDOR << 8) | reply[4];
            applyEnvelopeFault(reply, fault);
            copyOut(reply, direction, data);
            return 0;
        }
        case NVME_ADMIN_GET_LOG_PAGE: {
            KRT_U32 status = getLogPage(ad, cmd, reply);
            if (status == 0)
                copyOut(reply, direction, data);
            return status;
        }
        case NVME_ADMIN_NS_ATTACH:
            return attachNamespace(ad, cmd, direction == XFER_TO_DEV ? data : std::span<KRT_U8>(),
                                   clockMillis(st.clock));
        case KRT_PD_CMD_FROM_DISK: {
            KRT_U32 status = diskCommand(ad, cmd, reply);
            if (status == 0)
                copyOut(reply, direction, data);
            return status;
        }
        case NVME_ADMIN_FW_DOWNLOAD:
            return adapterFwDownload(ad, cmd, direction == XFER_TO_DEV ? data : std::span<KRT_U8>());
        case NVME_ADMIN_FW_COMMIT:
            return adapterFwCommit(ad, cmd, clockMillis(st.clock));
        case KRT_PD_CMD_TO_DISK:
            return diskCommandToDisk(ad, cmd, direction == XFER_TO_DEV ? data : std::span<KRT_U8>(),
                                     clockMillis(st.clock));
        case NVME_ADMIN_VENDOR_C7:
            return spiWrite(ad, cmd, direction == XFER_TO_DEV ? data : std::span<KRT_U8>());
        case KRT_PAIR_SEND_WIRE:
            return pairSend(st, ad, cmd, direction, data, fault);
        case KRT_PAIR_RECEIVE_WIRE:
            return pairReceive(ad, cmd, direction, data, fault);
        default:
            return SC_INVALID_OPCODE;
    }
}

}  // namespace krtsim
