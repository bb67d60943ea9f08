// info -o vd: the virtual disks and their background activity.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "commands/info.h"
#include "commands/verdict.h"
#include "util/fields.h"
#include "util/state.h"
#include "util/text.h"

namespace {

// The member list is cut to 127 characters, the line the listing has always
// used: 32 members of five digits would not fit in it.
constexpr std::size_t kMemberTextMax = 127;

std::string memberText(const _NVME_VD_Info &vd, int base)
{
    std::string text;
    const int members = std::min<int>(vd.MemberCount, KRT_VD_MAX_MEMBERS);
    for (int i = 0; i < members; ++i) {
        // A member the controller cannot see any more is shown as "?".
        std::string word = vd.PDIDs[i] > 65534 ? "? " : std::to_string(vd.PDIDs[i] + base) + " ";
        text += word;
    }
    if (text.size() > kMemberTextMax) {
        text.resize(kMemberTextMax);
    }
    return text;
}

// The members for a script: every one, null where the text shows "?".
json_output::Value memberIds(const _NVME_VD_Info &vd, int base)
{
    std::vector<json_output::Value> ids;
    const int members = std::min<int>(vd.MemberCount, KRT_VD_MAX_MEMBERS);
    for (int i = 0; i < members; ++i) {
        ids.push_back(vd.PDIDs[i] > 65534 ? json_output::Value::null()
                                          : json_output::Value::number(vd.PDIDs[i] + base));
    }
    return json_output::Value::array(ids);
}

const char *stripeText(KRT_U16 blocks)
{
    switch (blocks) {
        case 256:
            return "128K";
        case 512:
            return "256K";
        case 1024:
            return "512K";
        default:
            return "Unknown";
    }
}

const char *bgaActionText(KRT_U8 type)
{
    switch (type) {
        case KRT_BGA_INIT:
        case KRT_BGA_INIT_FULL:
            return "Initializing";
        case KRT_BGA_REBUILD:
            return "Rebuilding";
        case KRT_BGA_SYNC:
            return "Synchronizing";
        case KRT_BGA_MIGRATE:
            return "Migrating";
        case KRT_BGA_MEDIA_PATROL:
            return "Media Patrol";
        default:
            return "unknown BGA action";
    }
}

}  // namespace

const char *VDStatusStr(KRT_U8 status)
{
    static const char *const texts[] = {"Functional",     "Degrade",           "Deleted",    "Missing",
                                        "Offline",        "Partially Optimal", "Foreign",    "Importable",
                                        "Not Importable", "Initialization",    "Rebuilding", "Error Handling"};
    return status < std::size(texts) ? texts[status] : "N.A";
}

void LD_PrintInfo(const _NVME_VD_Info &vd)
{
    const FieldWriter out(stream, KRT_VD_LABEL_WIDTH);
    const int base = g_oneBaseMode == 1 ? 1 : 0;
    char text[32];

    out.beginRecord("virtual_disk");
    out.num("VD ID:", vd.ID + base);
    out.str("Name:", boundedText(vd.Name, sizeof(vd.Name)));
    out.choice("Status:", VDStatusStr(vd.Status), vd.Status);
    out.yesNo("Importable:", vd.Importable == 1);
    out.choice("RAID Mode:", RaidModeStr(vd.RaidMode), vd.RaidMode);
    out.gigabytes("size:", sizeInGigabytes(vd.SectorSize, vd.LBA));
    out.extra("size_bytes", json_output::Value::number(sizeInBytes(vd.SectorSize, vd.LBA)));
    out.num("PD Count:", vd.MemberCount);
    out.typed("PDs:", memberText(vd, base), memberIds(vd, base), "pd_ids");
    // Only the double-parity levels say how many parity disks they carry.
    if (vd.RaidMode == KRT_RAID6 || vd.RaidMode == KRT_RAID60) {
        out.num("Parity Disk Number:", vd.NumParityDisk);
    }
    // The stripe travels in 512-byte blocks.
    out.typed("Stripe Block Size:", stripeText(vd.StripBlockSize), json_output::Value::number(vd.StripBlockSize / 2),
              "stripe_size_kib");
    if (vd.SectorSize != 0) {
        std::snprintf(text, sizeof(text), "%d bytes", static_cast<int>(vd.SectorSize));
        out.typed("Sector Size:", text, json_output::Value::number(vd.SectorSize), "sector_size_bytes");
    }
    out.endRecord();
}

void VD_PrintBGAStatus(const _NVME_BGA_STATUS &bga, KRT_U16 vdId)
{
    const char *state = nullptr;
    if (bga.BgaStatus == KRT_NVME_BGA_STATUS_RUNNING) {
        state = "running";
    } else if (bga.BgaStatus == KRT_NVME_BGA_STATUS_PAUSE) {
        state = "pause";
    } else {
        return;
    }
    char text[64];
    std::snprintf(text, sizeof(text), "%s is %s in %d%%", bgaActionText(bga.BgaType), state, bga.Percentage);
    const FieldWriter out(stream, KRT_VD_LABEL_WIDTH);
    out.beginRecord("background_activity");
    out.extra("vd_id", json_output::Value::number(vdId + (g_oneBaseMode == 1 ? 1 : 0)));
    out.str("BGA progress:", text);
    out.extra("activity", json_output::Value::text(bgaActionText(bga.BgaType)));
    out.extra("activity_code", json_output::Value::number(bga.BgaType));
    out.extra("percent", json_output::Value::number(bga.Percentage));
    out.extra("state", json_output::Value::text(state));
    out.extra("state_code", json_output::Value::number(bga.BgaStatus));
    out.endRecord();
}

int getOneLDInfoSA(KRT_U16 id)
{
    auto reply = newReply();
    if (!sendInfoQuery(gCurrentAdapter, {KRT_CLASS_VD, 0, 0, true, id}, *reply)) {
        return 1;
    }
    if (reply->cmd_status != 0) {
        return reply->cmd_status;
    }
    _NVME_VD_Info vd;
    std::memcpy(&vd, reply->data, sizeof(vd));
    LD_PrintInfo(vd);

    // The activity shares the buffer; a silent controller leaves it zeroed,
    // which reads as "no activity".
    std::memset(reply.get(), 0, sizeof(*reply));
    sendInfoQuery(gCurrentAdapter, {KRT_CLASS_BGA, 2, 0, true, id}, *reply);
    if (reply->cmd_status != 0) {
        return reply->cmd_status;
    }
    _NVME_BGA_STATUS bga;
    std::memcpy(&bga, reply->data, sizeof(bga));
    VD_PrintBGAStatus(bga, id);
    return 0;
}

void getLDInfoSA(int id)
{
    if (id != KRT_ALL_IDS) {
        if (getOneLDInfoSA(static_cast<KRT_U16>(id)) != 0) {
            tell(Verdict::NotFound, "\nUnable to get info of VD\n");
        }
        return;
    }

    std::fputs("\n", stream);
    // The probe is bounded by the port count, not by MaxVD: that is what the
    // listing has always asked, and scripts compare its output.
    const int probes = currentAdapterInfo().PortCount;
    int found = 0;
    for (int vd = 0; vd < probes; ++vd) {
        if (getOneLDInfoSA(static_cast<KRT_U16>(vd)) == 0) {
            std::fputs("\n", stream);
            ++found;
        }
    }
    if (found == 0) {
        tell(Verdict::Ok, "No virtual disk is found.\n");
        return;
    }
    FieldWriter(stream, KRT_TOTAL_WIDTH).num("Total # of VD:", found);
    std::fputs("\n", stream);
}
