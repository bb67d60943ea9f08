// info -o ns: namespaces reported to the host, and namespaces of VDs.
#include <algorithm>
#include <cstring>

#include "commands/info.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"

namespace {

const char *VDStatusOfNS(KRT_U8 status)
{
    return (status == KRT_VD_DEGRADE || status == KRT_VD_REBUILDING) ? "Unhealthy" : "Healthy";
}

// Shows the records picked by `wanted` and returns how many there were.
template <typename Pick>
int printNamespaces(const _NVMEReceiveData &reply, KRT_U8 maxNS, bool isRaid, Pick wanted)
{
    int shown = 0;
    for (std::size_t i = 0; i < nsRecordCount(maxNS); ++i) {
        const _NVME_NS_Info ns = nsRecordAt(reply, i);
        if (wanted(ns)) {
            NS_PrintInfo(ns, isRaid);
            ++shown;
        }
    }
    return shown;
}

void printTotal(int shown)
{
    if (shown == 0) {
        tell(Verdict::Ok, "No Namespace Info Exist.\n");
        return;
    }
    FieldWriter(stream, KRT_TOTAL_WIDTH).num("Total # of NS:", shown);
    std::fputs("\n", stream);
}

}  // namespace

std::size_t nsRecordCount(KRT_U8 maxNS)
{
    // A controller may claim more namespaces than one reply can carry; only
    // the records that are really in the buffer are read.
    return std::min<std::size_t>(maxNS, KRT_NS_RECORDS_PER_REPLY);
}

_NVME_NS_Info nsRecordAt(const _NVMEReceiveData &reply, std::size_t index)
{
    _NVME_NS_Info ns{};
    if (index < KRT_NS_RECORDS_PER_REPLY) {
        std::memcpy(&ns, reply.data + index * sizeof(ns), sizeof(ns));
    }
    return ns;
}

void NS_PrintInfo(const _NVME_NS_Info &ns, bool isRaid)
{
    const FieldWriter out(stream, KRT_NS_LABEL_WIDTH);
    const int base = g_oneBaseMode == 1 ? 1 : 0;

    out.beginRecord("namespace");
    out.num("NS ID:", ns.NSID);
    out.gigabytes("Size:", sizeInGigabytes(ns.SectorSize, ns.LBA));
    out.extra("size_bytes", json_output::Value::number(sizeInBytes(ns.SectorSize, ns.LBA)));
    out.extra("sector_size_bytes", json_output::Value::number(ns.SectorSize));
    out.num(isRaid ? "Parent VD ID:" : "Parent PD ID:", ns.ID + base);
    out.yesNo("Valid:", ns.Status & KRT_NS_VALID);
    out.yesNo("Active:", ns.Status & KRT_NS_ACTIVE);
    if (isRaid) {
        out.choice("VD status:", VDStatusOfNS(ns.VDStatus), ns.VDStatus);
    }
    out.endRecord();
    std::fputs("\n", stream);
}

void getNSInfoSA(int id)
{
    const _NVME_Adapter_Info &adapter = currentAdapterInfo();
    if (adapter.MaxNS == 0) {
        tell(Verdict::NotFound, "Get MaxNS from adapter info fail.\n");
        return;
    }

    auto reply = newReply();
    sendInfoQuery(gCurrentAdapter, {KRT_CLASS_NS, 0, 0, false, 0}, *reply);
    if (!replyGood(*reply)) {
        tell(Verdict::NotFound, "\nUnable to get info of NS\n");
        return;
    }

    const bool isRaid = adapterIsRaid(adapter);
    if (id == KRT_ALL_IDS) {
        printTotal(
            printNamespaces(*reply, adapter.MaxNS, isRaid, [](const _NVME_NS_Info &ns) { return ns.Status != 0; }));
        return;
    }
    if (printNamespaces(*reply, adapter.MaxNS, isRaid,
                        [id](const _NVME_NS_Info &ns) { return ns.NSID == id && ns.Status != 0; }) == 0) {
        tell(Verdict::NotFound, "\nUnable to get info of NS\n");
    }
}

void getNSInfoOfVDSA(int id, int vdid)
{
    const _NVME_Adapter_Info &adapter = currentAdapterInfo();
    auto reply = newReply();
    sendInfoQuery(gCurrentAdapter, {KRT_CLASS_NS, 1, static_cast<KRT_U8>(vdid), true, 0}, *reply);
    if (!replyGood(*reply)) {
        tell(Verdict::NotFound, "\nUnable to get info of VD\n");
        return;
    }

    const bool isRaid = adapterIsRaid(adapter);
    if (id == KRT_ALL_IDS) {
        // Per VD a slot is listed only when marked valid, not merely in use.
        printTotal(printNamespaces(*reply, adapter.MaxNS, isRaid,
                                   [](const _NVME_NS_Info &ns) { return (ns.Status & KRT_NS_VALID) != 0; }));
        return;
    }
    if (printNamespaces(*reply, adapter.MaxNS, isRaid,
                        [id](const _NVME_NS_Info &ns) { return ns.NSID == id && ns.Status != 0; }) == 0) {
        tell(Verdict::NotFound, "\nUnable to get info of NS\n");
    }
}
