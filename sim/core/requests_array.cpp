// Requests that change the arrays: create and delete virtual disks, start
// and stop background activities, make namespaces. Each checks what the
// firmware checks and refuses with its vendor status codes.
#include <algorithm>
#include <bit>

#include "fixture.h"
#include "request.h"

namespace krtsim {

namespace {

// Background activity actions carried in CDW14 bits 16-23.
constexpr KRT_U8 kBgaPause = 1;
constexpr KRT_U8 kBgaResume = 2;
constexpr KRT_U8 kBgaStop = 3;

bool memberCountFits(KRT_U8 mode, int n)
{
    switch (mode) {
        case KRT_RAID0:
            return n >= 1;
        case KRT_JBOD:
            return n == 1;
        case KRT_RAID1:
            return n == 2;
        case KRT_RAID5:
            return n >= 3;
        case KRT_RAID6:
            return n >= 4;
        case KRT_RAID10:
            return n >= 4 && n % 2 == 0;
        case KRT_RAID50:
            return n >= 6 && n % 2 == 0;
        case KRT_RAID60:
            return n >= 8 && n % 2 == 0;
        default:
            return false;
    }
}

// The adapter's SupportRAIDMode bit of a RAID mode code; 0 for unknown codes.
KRT_U16 supportBit(KRT_U8 mode)
{
    switch (mode) {
        case KRT_RAID0:
            return 0x01;
        case KRT_RAID1:
            return 0x02;
        case KRT_JBOD:
            return 0x04;
        case KRT_RAID10:
            return 0x08;
        case KRT_RAID5:
            return 0x10;
        case KRT_RAID50:
            return 0x20;
        case KRT_RAID6:
            return 0x40;
        case KRT_RAID60:
            return 0x80;
        default:
            return 0;
    }
}

bool redundant(KRT_U8 mode)
{
    return mode != KRT_RAID0 && mode != KRT_JBOD;
}

// Bits of the adapter's SupportBGAFeature.
constexpr KRT_U8 kFeatureInit = 0x01;
constexpr KRT_U8 kFeatureRebuild = 0x02;
constexpr KRT_U8 kFeatureMediaPatrol = 0x10;

bool supports(const SimAdapter &ad, KRT_U8 feature)
{
    return (ad.info.SupportBGAFeature & feature) != 0;
}

bool missesMember(const SimVd &vd)
{
    for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m)
        if (vd.members[m] == KRT_PD_MISSING)
            return true;
    return false;
}

int freeNsSlots(const SimAdapter &ad)
{
    int n = 0;
    for (const SimNs &ns : ad.ns)
        n += ns.nsid == 0;
    return n;
}

KRT_U8 nextNsid(const SimAdapter &ad)
{
    for (int id = 1; id < 256; ++id) {
        bool used = false;
        for (const SimNs &ns : ad.ns)
            used |= ns.nsid == id;
        if (!used)
            return static_cast<KRT_U8>(id);
    }
    return 0;
}

// A new namespace, valid but not yet attached to the host.
SimNs *addNamespace(SimAdapter &ad, KRT_U8 deviceType, KRT_U16 parent, KRT_U64 lba, KRT_U32 sectorSize)
{
    KRT_U8 nsid = nextNsid(ad);
    for (SimNs &ns : ad.ns) {
        if (ns.nsid != 0 || nsid == 0)
            continue;
        ns = SimNs{};
        ns.nsid = nsid;
        ns.deviceType = deviceType;
        ns.parent = parent;
        ns.status = KRT_NS_VALID;
        ns.sectorSize = sectorSize;
        ns.lbaDataSize = sectorSize == 4096 ? 12 : 9;
        ns.lba = lba;
        return &ns;
    }
    return nullptr;
}

void removeNamespaces(SimAdapter &ad, KRT_U8 deviceType, KRT_U16 parent)
{
    for (SimNs &ns : ad.ns)
        if (ns.nsid != 0 && ns.deviceType == deviceType && ns.parent == parent)
            ns = SimNs{};
}

void startBga(SimBga &bga, KRT_U8 type, KRT_U64 now)
{
    bga = SimBga{};
    bga.type = type;
    bga.status = KRT_NVME_BGA_STATUS_RUNNING;
    bga.lastMillis = now;
    bga.millisPerPercent = 1000;
}

bool bgaActive(const SimBga &bga)
{
    return bga.status != KRT_NVME_BGA_STATUS_NONE;
}

// CDW12 byte 2: stripe code (0 128K, 1 256K, 2 512K); byte 3: RAID mode;
// CDW13: member bitmap; CDW14: namespaces to create (0: one).
KRT_U8 createVd(Request &r)
{
    SimAdapter &ad = r.ad;
    if (!ad.raid)
        return VS_NOT_SUPPORTED;
    const KRT_U8 stripe = static_cast<KRT_U8>(r.unit & 0xFF);
    const KRT_U8 mode = static_cast<KRT_U8>(r.unit >> 8);
    const int members = std::popcount(r.cdw13);
    const int nsCount = (r.cdw14 & 0xFF) == 0 ? 1 : static_cast<int>(r.cdw14 & 0xFF);
    if (stripe > 2 || (ad.info.StripeSizeSupported & (1u << stripe)) == 0)
        return VS_INVALID_SBS;
    if ((supportBit(mode) & ad.info.SupportRAIDMode) == 0)
        return VS_INVALID_RAID_MODE;
    if (members == 0 || members > ad.info.MaxPDPerVD || !memberCountFits(mode, members))
        return VS_INVALID_HD_COUNT;
    KRT_U64 minLba = ~0ull;
    KRT_U32 sectorSize = 0;
    for (int id = 0; id < 32; ++id) {
        if (!(r.cdw13 & (1u << id)))
            continue;
        if (!pdOnline(ad, static_cast<KRT_U32>(id)) || (ad.pds[id].status & KRT_PD_FAILED))
            return VS_INVALID_HD;
        const SimPd &pd = ad.pds[id];
        if (pd.status & KRT_PD_ASSIGNED)
            return VS_HD_ASSIGNED;
        if (sectorSize != 0 && pd.sectorSize != sectorSize)
            return VS_SECTOR_SIZE_MISMATCH;
        sectorSize = pd.sectorSize;
        minLba = std::min(minLba, pd.lba);
    }
    if (nsCount > ad.info.MaxNSPerVD && ad.info.MaxNSPerVD != 0)
        return VS_INVALID_NS_COUNT;
    if (nsCount > freeNsSlots(ad))
        return VS_NO_RESOURCE;
    int id = 0;
    int vdCount = 0;
    for (const SimVd &vd : ad.vds)
        vdCount += vd.present;
    while (id < kMaxVds && ad.vds[id].present)
        ++id;
    if (id >= kMaxVds || (ad.info.MaxVD != 0 && vdCount >= ad.info.MaxVD))
        return VS_NO_AVAILABLE_ID;

    SimVd &vd = ad.vds[id];
    vd = SimVd{};
    vd.present = 1;
    vd.raidMode = mode;
    vd.memberCount = static_cast<KRT_U8>(members);
    int m = 0;
    for (int pid = 0; pid < 32; ++pid) {
        if (!(r.cdw13 & (1u << pid)))
            continue;
        vd.members[m++] = static_cast<KRT_U16>(pid);
        ad.pds[pid].status |= KRT_PD_ASSIGNED;
    }
    vd.numParity = defaultParity(mode);
    vd.stripBlocks = static_cast<KRT_U16>(256u << stripe);
    vd.sectorSize = sectorSize;
    vd.lba = raidCapacity(mode, members, minLba);
    std::snprintf(reinterpret_cast<char *>(vd.name), sizeof vd.name, "VD_%d", id);
    // Parity arrays initialise in the background before they are optimal.
    if (vd.numParity > 0) {
        vd.status = KRT_VD_INITIALIZATION;
        startBga(vd.bga, KRT_BGA_INIT, r.now);
    }
    for (int i = 0; i < nsCount; ++i)
        addNamespace(ad, 1, static_cast<KRT_U16>(id), vd.lba / static_cast<KRT_U64>(nsCount), sectorSize);
    addEvent(ad, r.now, "VD %d created", id);
    return VS_OK;
}

// CDW12 bytes 2-3: the VD id.
KRT_U8 deleteVd(Request &r)
{
    SimAdapter &ad = r.ad;
    const KRT_U16 id = r.unit;
    if (!vdExists(ad, id))
        return VS_INVALID_LD;
    SimVd &vd = ad.vds[id];
    for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m)
        if (pdExists(ad, vd.members[m]))
            ad.pds[vd.members[m]].status &= static_cast<KRT_U8>(~KRT_PD_ASSIGNED);
    if (vd.bga.type == KRT_BGA_REBUILD && bgaActive(vd.bga) && pdExists(ad, vd.bga.target))
        ad.pds[vd.bga.target].status &= static_cast<KRT_U8>(~KRT_PD_ASSIGNED);
    removeNamespaces(ad, 1, id);
    vd = SimVd{};
    addEvent(ad, r.now, "VD %d deleted", id);
    return VS_OK;
}

// CDW14 bits 0-15: VD id; bits 16-23: initialisation kind (1 quick, 2 full).
KRT_U8 startInit(Request &r)
{
    const KRT_U32 id = r.cdw14 & 0xFFFF;
    if (!supports(r.ad, kFeatureInit))
        return VS_NOT_SUPPORTED;
    if (!vdExists(r.ad, id))
        return VS_INVALID_LD;
    SimVd &vd = r.ad.vds[id];
    if (bgaActive(vd.bga))
        return VS_LD_HAS_BGA;
    // Consistent parity needs every member: a degraded array is rebuilt first.
    if (missesMember(vd))
        return VS_LD_NOT_FUNCTIONAL;
    KRT_U8 kind = static_cast<KRT_U8>((r.cdw14 >> 16) & 0xFF);
    startBga(vd.bga, kind == KRT_BGA_INIT_FULL ? KRT_BGA_INIT_FULL : KRT_BGA_INIT, r.now);
    vd.status = KRT_VD_INITIALIZATION;
    addEvent(r.ad, r.now, "VD %u initialization started", id);
    return VS_OK;
}

KRT_U8 startMediaPatrol(Request &r)
{
    const KRT_U32 id = r.cdw14 & 0xFFFF;
    if (!supports(r.ad, kFeatureMediaPatrol))
        return VS_NOT_SUPPORTED;
    if (!vdExists(r.ad, id))
        return VS_INVALID_LD;
    SimVd &vd = r.ad.vds[id];
    if (!redundant(vd.raidMode))
        return VS_LD_NOT_REDUNDANT;
    if (bgaActive(vd.bga))
        return VS_LD_HAS_BGA;
    // Patrol repairs from the redundancy that a missing member has taken away.
    if (missesMember(vd))
        return VS_LD_NOT_FUNCTIONAL;
    startBga(vd.bga, KRT_BGA_MEDIA_PATROL, r.now);
    addEvent(r.ad, r.now, "VD %u media patrol started", id);
    return VS_OK;
}

// CDW14 bits 0-15: VD id; bits 16-31: the PD to rebuild onto.
KRT_U8 startRebuild(Request &r)
{
    SimAdapter &ad = r.ad;
    const KRT_U32 id = r.cdw14 & 0xFFFF;
    const KRT_U32 pdId = r.cdw14 >> 16;
    if (!supports(ad, kFeatureRebuild))
        return VS_NOT_SUPPORTED;
    if (!vdExists(ad, id))
        return VS_INVALID_LD;
    SimVd &vd = ad.vds[id];
    if (!redundant(vd.raidMode))
        return VS_LD_NOT_REDUNDANT;
    bool missing = false;
    KRT_U64 memberLba = 0;
    for (int m = 0; m < vd.memberCount && m < KRT_VD_MAX_MEMBERS; ++m) {
        if (vd.members[m] == KRT_PD_MISSING)
            missing = true;
        else if (pdExists(ad, vd.members[m]))
            memberLba = std::max(memberLba, ad.pds[vd.members[m]].lba);
    }
    if (!missing)
        return VS_LD_FUNCTIONAL;
    if (bgaActive(vd.bga))
        return VS_LD_HAS_BGA;
    if (!pdOnline(ad, pdId) || (ad.pds[pdId].status & KRT_PD_FAILED))
        return VS_INVALID_HD;
    SimPd &pd = ad.pds[pdId];
    if (pd.status & KRT_PD_ASSIGNED)
        return VS_HD_ASSIGNED;
    if (pd.lba < memberLba)
        return VS_REBUILD_TARGET_TOO_SMALL;
    startBga(vd.bga, KRT_BGA_REBUILD, r.now);
    vd.bga.target = static_cast<KRT_U8>(pdId);
    vd.status = KRT_VD_REBUILDING;
    pd.status |= KRT_PD_ASSIGNED;
    addEvent(ad, r.now, "VD %u rebuild onto PD %u started", id, pdId);
    return VS_OK;
}

// CDW14 bits 0-15: VD id; bits 16-23: 3 stop, 1 pause, 2 resume.
KRT_U8 controlBga(Request &r)
{
    SimAdapter &ad = r.ad;
    const KRT_U32 id = r.cdw14 & 0xFFFF;
    const KRT_U8 action = static_cast<KRT_U8>((r.cdw14 >> 16) & 0xFF);
    if (!vdExists(ad, id))
        return VS_INVALID_LD;
    SimVd &vd = ad.vds[id];
    if (!bgaActive(vd.bga))
        return VS_NO_BGA;
    if (action == kBgaPause || action == kBgaResume) {
        vd.bga.status = action == kBgaPause ? KRT_NVME_BGA_STATUS_PAUSE : KRT_NVME_BGA_STATUS_RUNNING;
        vd.bga.lastMillis = r.now;
        return VS_OK;
    }
    if (action != kBgaStop)
        return VS_INVALID_BGA_ACTION;
    const KRT_U8 type = vd.bga.type;
    if (type == KRT_BGA_REBUILD) {
        if (pdExists(ad, vd.bga.target))
            ad.pds[vd.bga.target].status &= static_cast<KRT_U8>(~KRT_PD_ASSIGNED);
        vd.status = KRT_VD_DEGRADE;
    } else if (type == KRT_BGA_INIT || type == KRT_BGA_INIT_FULL) {
        vd.status = KRT_VD_FUNCTIONAL;
    }
    vd.bga = SimBga{};
    addEvent(ad, r.now, "VD %u background activity stopped", id);
    return VS_OK;
}

// A namespace on a PD must sit in a slot of the host namespace list, which
// holds MaxNS of them.
bool hostNsSlotFree(const SimAdapter &ad)
{
    const int slots = std::min<int>(ad.info.MaxNS, kMaxNs);
    for (int i = 0; i < slots; ++i)
        if (ad.ns[i].nsid == 0)
            return true;
    return false;
}

// JBOF: CDW12 byte 2 the PD id, CDW14 the number of namespaces the disk is
// initialized for. Its earlier namespaces go; create makes the new ones.
KRT_U8 initNamespaces(Request &r)
{
    SimAdapter &ad = r.ad;
    if (ad.raid)
        return VS_NOT_SUPPORTED;
    const KRT_U32 pdId = r.unit & 0xFF;
    const int count = static_cast<int>(r.cdw14 & 0xFF);
    if (!pdExists(ad, pdId) || (ad.pds[pdId].status & KRT_PD_FAILED))
        return VS_INVALID_HD;
    if (count == 0 || (ad.info.MaxNSPerVD != 0 && count > ad.info.MaxNSPerVD))
        return VS_INVALID_NS_COUNT;
    removeNamespaces(ad, 0, static_cast<KRT_U16>(pdId));
    ad.pds[pdId].nsLimit = static_cast<KRT_U8>(count);
    addEvent(ad, r.now, "PD %u initialized for %d namespaces", pdId, count);
    return VS_OK;
}

// CDW12 byte 2 the namespace id; CDW14 1 shares it, otherwise bits 8-23 name
// the controller that keeps it private.
KRT_U8 shareNamespace(Request &r)
{
    for (SimNs &ns : r.ad.ns) {
        if (ns.nsid == 0 || ns.nsid != (r.unit & 0xFF))
            continue;
        const bool shared = r.cdw14 == 1;
        ns.shared = shared ? 1 : 0;
        ns.hasOwner = shared ? 0 : 1;
        ns.owner = shared ? 0 : static_cast<KRT_U16>(r.cdw14 >> 8);
        if (shared)
            addEvent(r.ad, r.now, "NS %u shared", ns.nsid);
        else
            addEvent(r.ad, r.now, "NS %u private to controller %u", ns.nsid, ns.owner);
        return VS_OK;
    }
    return VS_INVALID_PARAMETER;
}

// JBOF: CDW12 byte 2 the PD id plus 1, byte 3 the controller the namespace is
// made for (private to it, not yet attached); CDW13/CDW14 the size in sectors.
KRT_U8 createNamespace(Request &r)
{
    SimAdapter &ad = r.ad;
    if (ad.raid)
        return VS_NOT_SUPPORTED;  // a RAID controller's namespaces come with its VDs
    const KRT_U32 byte2 = r.unit & 0xFF;
    if (byte2 == 0 || !pdExists(ad, byte2 - 1) || (ad.pds[byte2 - 1].status & KRT_PD_FAILED))
        return VS_INVALID_HD;
    const KRT_U32 pdId = byte2 - 1;
    const KRT_U64 size = (static_cast<KRT_U64>(r.cdw14) << 32) | r.cdw13;
    const SimPd &pd = ad.pds[pdId];
    KRT_U64 used = 0;
    int count = 0;
    for (const SimNs &ns : ad.ns) {
        if (ns.nsid != 0 && ns.deviceType == 0 && ns.parent == pdId) {
            used += ns.lba;
            ++count;
        }
    }
    const int limit = pd.nsLimit != 0 ? pd.nsLimit : ad.info.MaxNSPerVD;
    if (limit != 0 && count >= limit)
        return VS_INVALID_NS_COUNT;
    if (size == 0 || used > pd.lba || size > pd.lba - used)
        return VS_NS_CAP_OUT_OF_RANGE;
    if (!hostNsSlotFree(ad))
        return VS_NO_RESOURCE;
    SimNs *ns = addNamespace(ad, 0, static_cast<KRT_U16>(pdId), size, pd.sectorSize);
    if (ns == nullptr)
        return VS_NO_RESOURCE;
    ns->hasOwner = 1;
    ns->owner = static_cast<KRT_U16>(r.unit >> 8);
    addEvent(ad, r.now, "NS %u created on PD %u", ns->nsid, pdId);
    return VS_OK;
}

// ---- the same actions in the paired (class) form

template <typename T>
bool readInput(const Request &r, T &out)
{
    if (r.in.size() < sizeof(T))
        return false;
    std::memcpy(&out, r.in.data(), sizeof(T));
    return true;
}

// Input: VD id (u16), 0 (u16).
KRT_U8 pairedDeleteVd(Request &r)
{
    KRT_U16 id = 0;
    if (!readInput(r, id))
        return VS_INVALID_PARAMETER;
    r.unit = id;
    return deleteVd(r);
}

// Input: _NVME_Rebuild.
KRT_U8 pairedRebuild(Request &r)
{
    _NVME_Rebuild rb{};
    if (!readInput(r, rb))
        return VS_INVALID_PARAMETER;
    r.cdw14 = rb.VDID | static_cast<KRT_U32>(rb.PDID) << 16;
    return startRebuild(r);
}

// Input: a request header naming the VD in `start`; the action is the
// third command word.
KRT_U8 pairedVdBgaControl(Request &r)
{
    _RequestHeader h{};
    if (!readInput(r, h))
        return VS_INVALID_PARAMETER;
    r.cdw14 = h.start | static_cast<KRT_U32>(r.param & 0xFF) << 16;
    return controlBga(r);
}

constexpr Route kArrayPaired[] = {
    {KRT_CLASS_VD, 4, pairedDeleteVd},
    {KRT_CLASS_BGA, 4, pairedVdBgaControl},
    {KRT_CLASS_BGA, 7, pairedRebuild},
};

constexpr Route kArrayDirect[] = {
    {KRT_CLASS_VD, 3, createVd},       {KRT_CLASS_VD, 4, deleteVd},       {KRT_CLASS_BGA, 4, controlBga},
    {KRT_CLASS_BGA, 6, startInit},     {KRT_CLASS_BGA, 7, startRebuild},  {KRT_CLASS_BGA, 0x0A, startMediaPatrol},
    {KRT_CLASS_NS, 2, initNamespaces}, {KRT_CLASS_NS, 3, shareNamespace}, {KRT_CLASS_NS, 4, createNamespace},
};

}  // namespace

std::span<const Route> arrayDirectRoutes()
{
    return kArrayDirect;
}
std::span<const Route> arrayPairedRoutes()
{
    return kArrayPaired;
}

}  // namespace krtsim
