#include "controller.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "fixture.h"
#include "krt/admin.h"
#include "store.h"

namespace krtsim {

namespace {

using Buffer = std::array<KRT_U8, kBufferSize>;

// Room for records after the reply envelope's 8-byte head.
constexpr size_t kReplyData = kBufferSize - KRT_REPLY_DATA_OFFSET;

template <typename T>
void put(std::span<KRT_U8> out, size_t offset, const T &value)
{
    if (offset + sizeof(T) <= out.size())
        std::memcpy(out.data() + offset, &value, sizeof(T));
}

// Over-long text: every byte used, no terminator, no blank to trim.
template <size_t N>
void fillText(KRT_U8 (&field)[N])
{
    std::memset(field, 'X', N);
}

// ---------------------------------------------------------------- records

}  // namespace

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
    if (ns.deviceType == 1 && ns.parent < kMaxVds)
        r.VDStatus = ad.vds[ns.parent].status;
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
    r.BgaType = bga.type;
    r.ID = static_cast<KRT_U8>(id);
    r.Percentage = static_cast<KRT_U8>(std::min<KRT_U32>(bga.progress / 1000, 100));
    r.BgaStatus = bga.status;
    return r;
}

void advanceActivities(SimAdapter &ad, KRT_U64 now)
{
    auto step = [now](SimBga &bga) -> bool {
        if (bga.status != KRT_NVME_BGA_STATUS_RUNNING || now <= bga.lastMillis) {
            bga.lastMillis = std::max(bga.lastMillis, now);
            return false;
        }
        KRT_U64 per = bga.millisPerPercent == 0 ? 1000 : bga.millisPerPercent;
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
    for (SimPd &pd : ad.pds) {
        if (!pd.present)
            continue;
        if (step(pd.bga))
            pd.status &= static_cast<KRT_U8>(~KRT_PD_MEDIA_PATROL);
    }
}

namespace {

// ---------------------------------------------------------------- requests

// One vendor request as the controller sees it, whichever way it came.
struct Request {
    SimState &state;
    SimAdapter &ad;
    KRT_U8 cls;
    KRT_U8 sub;
    KRT_U16 unit;   // direct: CDW12 bytes 2-3
    KRT_U32 cdw13;  // direct only
    KRT_U32 cdw14;  // direct only
    KRT_U16 param;  // paired: third command word
    std::span<const KRT_U8> in;
    std::span<KRT_U8> out;  // reply data, after the envelope head
    bool overlong;
};

using Handler = KRT_U8 (*)(Request &);

struct Route {
    KRT_U8 cls;
    KRT_U8 sub;
    Handler handler;
};

_NVME_Adapter_Info adapterInfo(const Request &r)
{
    _NVME_Adapter_Info info = r.ad.info;
    if (r.overlong) {
        info.PortCount = info.MaxPD = info.MaxVD = info.MaxNS = 255;
        info.MaxPDPerVD = info.MaxNSPerVD = 255;
        std::memset(info.BuildDate, 'X', sizeof info.BuildDate);
        for (auto &link : info.PCIeInfo)
            link = {0, 0xFF, 0xFF, 0xFF};
    }
    return info;
}

bool pdExists(const SimAdapter &ad, KRT_U32 id)
{
    return id < kMaxPds && ad.pds[id].present;
}
bool vdExists(const SimAdapter &ad, KRT_U32 id)
{
    return id < kMaxVds && ad.vds[id].present;
}

KRT_U8 getAdapterInfo(Request &r)
{
    put(r.out, 0, adapterInfo(r));
    return VS_OK;
}

KRT_U8 setDebugLevel(Request &r)
{
    if (r.unit > 1)
        return VS_INVALID_PARAMETER;
    r.ad.debugLevel[r.unit] = static_cast<KRT_U8>(r.cdw14);
    return VS_OK;
}

KRT_U8 getPd(Request &r)
{
    if (!pdExists(r.ad, r.cdw14))
        return VS_INVALID_HD;
    put(r.out, 0, pdRecord(r.ad.pds[r.cdw14], static_cast<int>(r.cdw14), r.overlong));
    return VS_OK;
}

KRT_U8 getVd(Request &r)
{
    if (!vdExists(r.ad, r.cdw14))
        return VS_INVALID_LD;
    put(r.out, 0, vdRecord(r.ad, static_cast<int>(r.cdw14), r.overlong));
    return VS_OK;
}

KRT_U8 getVdBga(Request &r)
{
    if (!vdExists(r.ad, r.cdw14))
        return VS_INVALID_LD;
    put(r.out, 0, bgaRecord(r.ad.vds[r.cdw14].bga, static_cast<int>(r.cdw14)));
    return VS_OK;
}

// Namespace slots in table order; a record per slot up to MaxNS, as far as
// the reply holds them.
KRT_U8 getHostNs(Request &r)
{
    size_t slots = std::min<size_t>(r.ad.info.MaxNS, r.out.size() / sizeof(_NVME_NS_Info));
    if (r.overlong)
        slots = r.out.size() / sizeof(_NVME_NS_Info);
    for (size_t i = 0; i < slots && i < kMaxNs; ++i) {
        const SimNs &ns = r.ad.ns[i];
        if (ns.nsid != 0 || r.overlong)
            put(r.out, i * sizeof(_NVME_NS_Info), nsRecord(r.ad, ns, r.overlong));
    }
    return VS_OK;
}

// Namespaces of one VD (or of every VD for 255), packed from the start.
KRT_U8 nsOfVd(Request &r, KRT_U16 vdid)
{
    if (vdid != 0xFF && !vdExists(r.ad, vdid))
        return VS_INVALID_LD;
    size_t room = r.out.size() / sizeof(_NVME_NS_Info);
    size_t n = 0;
    for (const SimNs &ns : r.ad.ns) {
        if (n >= room)
            break;
        if (ns.nsid == 0 || ns.deviceType != 1 || (vdid != 0xFF && ns.parent != vdid))
            continue;
        put(r.out, n++ * sizeof(_NVME_NS_Info), nsRecord(r.ad, ns, r.overlong));
    }
    return VS_OK;
}

KRT_U8 getVdNs(Request &r)
{
    return nsOfVd(r, r.unit);
}
KRT_U8 getVdNsPaired(Request &r)
{
    return nsOfVd(r, r.param);
}

// The direct requests (opcode 0xE2): class and sub-command from CDW12.
constexpr Route kDirect[] = {
    {KRT_CLASS_ADAPTER, 0x00, getAdapterInfo},
    {KRT_CLASS_ADAPTER, 0x12, setDebugLevel},
    {KRT_CLASS_PD, 0x00, getPd},
    {KRT_CLASS_VD, 0x00, getVd},
    {KRT_CLASS_BGA, 0x02, getVdBga},
    {KRT_CLASS_NS, 0x00, getHostNs},
    {KRT_CLASS_NS, 0x01, getVdNs},
};

// ---- paired (class-form) requests

KRT_U8 pairedGetConfig(Request &r)
{
    put(r.out, 0, r.ad.config);
    return VS_OK;
}

KRT_U8 pairedSetConfig(Request &r)
{
    if (r.in.size() < sizeof(_NVME_Adapter_Config))
        return VS_INVALID_PARAMETER;
    std::memcpy(&r.ad.config, r.in.data(), sizeof r.ad.config);
    return VS_OK;
}

// A list request: the header names the first ID and how many records are
// wanted; the reply repeats the header with numReturned and nextStart
// (the ID to ask for next, 0xFFFF when nothing follows) and the records.
template <typename Record, typename Exists, typename Make>
KRT_U8 listReply(Request &r, int limit, Exists exists, Make make)
{
    if (r.in.size() < sizeof(_RequestHeader))
        return VS_INVALID_PARAMETER;
    _RequestHeader h{};
    std::memcpy(&h, r.in.data(), sizeof h);
    size_t room = (r.out.size() - sizeof h) / sizeof(Record);
    size_t want = std::min<size_t>(h.numRequested, room);
    size_t n = 0;
    int id = h.start;
    for (; id < limit && n < want; ++id) {
        if (!exists(id))
            continue;
        put(r.out, sizeof h + n * sizeof(Record), make(id));
        ++n;
    }
    while (id < limit && !exists(id))
        ++id;
    h.numReturned = static_cast<KRT_U8>(n);
    h.nextStart = static_cast<KRT_U16>(id < limit ? id : 0xFFFF);
    if (r.overlong)
        h.numReturned = 255;
    put(r.out, 0, h);
    return VS_OK;
}

KRT_U8 pairedPdList(Request &r)
{
    return listReply<_NVME_PD_Info>(
        r, kMaxPds, [&](int id) { return r.ad.pds[id].present != 0; },
        [&](int id) { return pdRecord(r.ad.pds[id], id, r.overlong); });
}

KRT_U8 pairedVdList(Request &r)
{
    return listReply<_NVME_VD_Info>(
        r, kMaxVds, [&](int id) { return r.ad.vds[id].present != 0; },
        [&](int id) { return vdRecord(r.ad, id, r.overlong); });
}

KRT_U8 pairedPdBga(Request &r)
{
    return listReply<_NVME_BGA_STATUS>(
        r, kMaxPds, [&](int id) { return r.ad.pds[id].present != 0; },
        [&](int id) { return bgaRecord(r.ad.pds[id].bga, id); });
}

KRT_U8 pairedVdBga(Request &r)
{
    return listReply<_NVME_BGA_STATUS>(
        r, kMaxVds, [&](int id) { return r.ad.vds[id].present != 0; },
        [&](int id) { return bgaRecord(r.ad.vds[id].bga, id); });
}

constexpr Route kPaired[] = {
    {KRT_CLASS_ADAPTER, 0, getAdapterInfo},  {KRT_CLASS_ADAPTER, 1, pairedGetConfig},
    {KRT_CLASS_ADAPTER, 2, pairedSetConfig}, {KRT_CLASS_PD, 0, pairedPdList},
    {KRT_CLASS_VD, 0, pairedVdList},         {KRT_CLASS_BGA, 1, pairedPdBga},
    {KRT_CLASS_BGA, 2, pairedVdBga},         {KRT_CLASS_NS, 1, getVdNsPaired},
};

template <size_t N>
KRT_U8 dispatch(const Route (&table)[N], Request &r)
{
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
    std::memcpy(data.data(), reply.data(), std::min(data.size(), reply.size()));
}

// ---------------------------------------------------------------- identify

template <size_t N>
void putText(Buffer &b, size_t offset, const char (&text)[N])
{
    std::memcpy(b.data() + offset, text, N);
}

KRT_U32 identify(SimAdapter &ad, const KRT_U32 (&cmd)[16], Buffer &b, bool overlong)
{
    b.fill(0);
    const KRT_U32 cns = cmd[10] & 0xFF;
    if (cns == NVME_CNS_CONTROLLER) {
        std::span<KRT_U8> s(b);
        put(s, NVME_ID_VID, ad.info.VID);
        put(s, NVME_ID_SSVID, ad.ssvid);
        putText(b, NVME_ID_SN, ad.sn);
        putText(b, NVME_ID_MN, ad.mn);
        putText(b, NVME_ID_FR, ad.fr);
        b[72] = 6;  // RAB
        b[73] = 0x6B;
        b[74] = 0x1E;  // IEEE OUI
        b[77] = 5;     // MDTS: 128 KiB
        put(s, NVME_ID_CNTLID, ad.cntlid);
        put(s, 80, KRT_U32{0x00010400});                               // NVMe 1.4
        put(s, 256, static_cast<KRT_U16>(ad.raid ? 0x000E : 0x0006));  // OACS: format, firmware, NS management
        b[NVME_ID_FRMW] = ad.frmw;
        b[261] = 0x0E;  // LPA
        put(s, NVME_ID_TNVMCAP, ad.tnvmcap);
        put(s, NVME_ID_UNVMCAP, ad.unvmcap);
        put(s, 516, KRT_U32{ad.info.MaxNS});  // NN
        std::memcpy(b.data() + NVME_ID_SUBNQN, ad.subnqn, sizeof ad.subnqn);
        if (overlong) {
            std::memset(b.data() + NVME_ID_SN, 'X', 20 + 40 + 8);
            std::memset(b.data() + NVME_ID_SUBNQN, 'X', 256);
        }
        return 0;
    }
    if (cns == NVME_CNS_NAMESPACE) {
        for (const SimNs &ns : ad.ns) {
            if (ns.nsid == 0 || ns.nsid != cmd[1])
                continue;
            std::span<KRT_U8> s(b);
            put(s, 0, ns.lba);                     // NSZE
            put(s, 8, ns.lba);                     // NCAP
            put(s, 16, ns.lba);                    // NUSE
            b[25] = 1;                             // NLBAF: two formats (0-based)
            b[26] = ns.lbaDataSize == 12 ? 1 : 0;  // FLBAS
            std::memcpy(b.data() + 120, ad.eui64, 7);
            b[127] = ns.nsid;                 // EUI64, unique per namespace
            put(s, 128, KRT_U32{9u << 16});   // LBAF0: 512-byte data
            put(s, 132, KRT_U32{12u << 16});  // LBAF1: 4096-byte data
            return 0;
        }
        return SC_INVALID_NAMESPACE;
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
                      fault.effect == FAULT_OVERLONG};
            // Class and sub-command must agree with the send command's CDW12.
            if (head.vendor_cmd[0] > 0xFF || head.vendor_cmd[1] > 0xFF ||
                cmd[12] != ((static_cast<KRT_U32>(head.vendor_cmd[1]) << 16) | head.vendor_cmd[0]))
                status = VS_INVALID_REQUEST;
            else
                status = dispatch(kPaired, r);
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
                      overlong};
            reply[4] = dispatch(kDirect, r);
            applyEnvelopeFault(reply, fault);
            copyOut(reply, direction, data);
            return 0;
        }
        case KRT_PAIR_SEND_WIRE:
            return pairSend(st, ad, cmd, direction, data, fault);
        case KRT_PAIR_RECEIVE_WIRE:
            return pairReceive(ad, cmd, direction, data, fault);
        default:
            return SC_INVALID_OPCODE;
    }
}

}  // namespace krtsim
