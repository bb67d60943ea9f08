// info -o pd: the back-end SSDs.
#include <cstring>
#include <string>

#include "commands/info.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"

namespace {

const char *pdStatusText(KRT_U8 status)
{
    if (status & KRT_PD_FAILED) {
        return "Fail";
    }
    if (status & KRT_PD_MEDIA_PATROL) {
        return "Media Patrol Executing";
    }
    return "Idle";
}

}  // namespace

void HD_PrintInfo(const _NVME_PD_Info &pd, bool isJBOF)
{
    const FieldWriter out(stream, KRT_PD_LABEL_WIDTH);
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    char text[32];

    out.beginRecord("physical_disk");
    out.num("PD ID:", pd.ID + base);
    out.str("Model:", boundedTextNoLeadingBlanks(pd.Model, sizeof(pd.Model)));
    out.str("Serial:", boundedTextNoLeadingBlanks(pd.SerialNo, sizeof(pd.SerialNo)));
    std::snprintf(text, sizeof(text), "%d bytes", static_cast<int>(pd.SectorSize));
    out.typed("Sector Size:", text, json_output::Value::number(pd.SectorSize), "sector_size_bytes");
    // The text shows the count as a signed number; a script gets it as sent.
    out.typed("LBA:", std::to_string(static_cast<long>(pd.LBA)), json_output::Value::number(pd.LBA));
    out.gigabytes("Size:", sizeInGigabytes(pd.SectorSize, pd.LBA));
    out.extra("size_bytes", json_output::Value::number(sizeInBytes(pd.SectorSize, pd.LBA)));
    out.num("SSD backend RC/Slot ID:", pd.SSDAdapterID + base);
    out.num("SSD backend Namespace ID:", pd.SSDNSID);
    out.str("Firmware version:", boundedTextNoLeadingBlanks(pd.FWVersion, sizeof(pd.FWVersion)));
    out.str("Status:", pdStatusText(pd.Status));
    out.yesNo("Assigned:", pd.Status & KRT_PD_ASSIGNED);
    if (isJBOF) {
        out.yesNo("Importable:", pd.Status & KRT_PD_IMPORTABLE);
    }
    out.yesNo("SMART Critical Warning:", pd.Status & KRT_PD_SMART_CRITICAL);
    out.endRecord();
}

int getOneHDInfoSA(KRT_U16 id, bool isJBOF)
{
    auto reply = newReply();
    if (!sendInfoQuery(gCurrentAdapter, {KRT_CLASS_PD, 0, 0, true, id}, *reply)) {
        return 1;
    }
    if (reply->cmd_status != 0) {
        return reply->cmd_status;
    }
    _NVME_PD_Info pd;
    std::memcpy(&pd, reply->data, sizeof(pd));
    HD_PrintInfo(pd, isJBOF);
    return 0;
}

void getHDInfoSA(int id)
{
    const _NVME_Adapter_Info &adapter = currentAdapterInfo();
    const bool isJBOF = !adapterIsRaid(adapter);

    if (id != KRT_ALL_IDS) {
        if (getOneHDInfoSA(static_cast<KRT_U16>(id), isJBOF) != 0) {
            tell(Verdict::NotFound, "\nUnable to get info of PD\n");
        }
        return;
    }

    std::fputs("\n", stream);
    // Every port can carry up to MaxPD disks; ids that do not answer are gaps.
    const int probes = adapter.PortCount * adapter.MaxPD;
    KRT_U8 found = 0;
    for (int pd = 0; pd < probes; ++pd) {
        if (getOneHDInfoSA(static_cast<KRT_U16>(pd), isJBOF) == 0) {
            std::fputs("\n", stream);
            ++found;
        }
    }
    if (found == 0) {
        tell(Verdict::Ok, "No physical disk is found.\n");
        return;
    }
    FieldWriter(stream, KRT_PD_TOTAL_WIDTH).num("Total # of PD:", found);
    std::fputs("\n", stream);
}
