// Requests that read the controller's information: the adapter record,
// PDs, VDs, activities, namespaces and settings.
#include <algorithm>

#include "request.h"

namespace krtsim {

namespace {

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
    if (!pdOnline(r.ad, r.cdw14))
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

// The activity the controller is busy with: the one on the lowest-numbered
// VD that has one, running or paused (a paused activity keeps its place
// until it is resumed or stopped). -1 when it has none.
int currentActivityVd(const SimAdapter &ad)
{
    for (int id = 0; id < kMaxVds; ++id)
        if (ad.vds[id].present && ad.vds[id].bga.status != KRT_NVME_BGA_STATUS_NONE)
            return id;
    return -1;
}

// CDW14 names the VD. A query without one (CDW14 0) asks what the controller
// is doing, and is also the query about VD 0: the two cannot be told apart.
// The answer names the current activity with its VD in ID; while VD 0 exists
// and is idle (the current activity is elsewhere), its status is NONE, as
// VD 0's own progress reads it.
KRT_U8 getVdBga(Request &r)
{
    if (r.cdw14 != 0) {
        if (!vdExists(r.ad, r.cdw14))
            return VS_INVALID_LD;
        put(r.out, 0, bgaRecord(r.ad.vds[r.cdw14].bga, static_cast<int>(r.cdw14)));
        return VS_OK;
    }
    const int current = currentActivityVd(r.ad);
    if (current < 0) {
        put(r.out, 0, bgaRecord(SimBga{}, 0));
        return VS_OK;
    }
    _NVME_BGA_STATUS record = bgaRecord(r.ad.vds[current].bga, current);
    if (current != 0 && vdExists(r.ad, 0))
        record.BgaStatus = KRT_NVME_BGA_STATUS_NONE;
    put(r.out, 0, record);
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
        // A namespace of an SSD the controller cannot see is not offered.
        const bool unseen = ns.nsid != 0 && ns.deviceType == 0 && ns.parent < kMaxPds && !pdOnline(r.ad.pds[ns.parent]);
        if (unseen && !r.overlong)
            continue;
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
constexpr Route kInfoDirect[] = {
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
        r, kMaxPds, [&](int id) { return pdOnline(r.ad.pds[id]); },
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
        r, kMaxPds, [&](int id) { return pdOnline(r.ad.pds[id]); },
        [&](int id) { return bgaRecord(r.ad.pds[id].bga, id); });
}

KRT_U8 pairedVdBga(Request &r)
{
    return listReply<_NVME_BGA_STATUS>(
        r, kMaxVds, [&](int id) { return r.ad.vds[id].present != 0; },
        [&](int id) { return bgaRecord(r.ad.vds[id].bga, id); });
}

constexpr Route kInfoPaired[] = {
    {KRT_CLASS_ADAPTER, 0, getAdapterInfo},  {KRT_CLASS_ADAPTER, 1, pairedGetConfig},
    {KRT_CLASS_ADAPTER, 2, pairedSetConfig}, {KRT_CLASS_PD, 0, pairedPdList},
    {KRT_CLASS_VD, 0, pairedVdList},         {KRT_CLASS_BGA, 1, pairedPdBga},
    {KRT_CLASS_BGA, 2, pairedVdBga},         {KRT_CLASS_NS, 1, getVdNsPaired},
};

}  // namespace

std::span<const Route> infoDirectRoutes()
{
    return kInfoDirect;
}
std::span<const Route> infoPairedRoutes()
{
    return kInfoPaired;
}

}  // namespace krtsim
