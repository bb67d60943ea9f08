// The record printers of info and identify, fed with what no simulated
// controller sends: member ids at the edge of the missing mark, over-long
// member lists, an activity in an unknown state, one-base numbering, no
// controller at all, texts cut short or holding control bytes, capacities
// past 2^64, a wrapping LBA format count.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "commands/identify.h"
#include "commands/info.h"
#include "text.h"
#include "unit_support.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_unit::printed;

_NVME_VD_Info makeVD(KRT_U8 raidMode)
{
    _NVME_VD_Info vd{};
    vd.ID = 2;
    vd.RaidMode = raidMode;
    vd.MemberCount = 2;
    vd.PDIDs[0] = 65534;  // the highest real id; 65535 marks a missing member
    vd.PDIDs[1] = KRT_PD_MISSING;
    vd.NumParityDisk = 2;
    return vd;
}

TEST(InfoPrinters, MemberListsParityAndActivityState)
{
    std::string text = printed([] { LD_PrintInfo(makeVD(KRT_RAID60)); });
    EXPECT_TRUE(has(text, "PDs:                 65534 ? \nParity Disk Number:  2\n")) << text;

    // No more than 32 members, on a line cut to 127 characters.
    _NVME_VD_Info vd = makeVD(KRT_RAID0);
    vd.MemberCount = 255;
    for (KRT_U16 &pd : vd.PDIDs)
        pd = 60000;
    std::string members;
    for (int i = 0; i < KRT_VD_MAX_MEMBERS; ++i)
        members += "60000 ";
    EXPECT_TRUE(has(printed([&] { LD_PrintInfo(vd); }), "PDs:                 " + members.substr(0, 127) + "\n"));

    // Only a running or paused activity is shown.
    _NVME_BGA_STATUS bga{};
    bga.BgaType = KRT_BGA_REBUILD;
    bga.BgaStatus = 3;
    EXPECT_EQ(printed([&] { VD_PrintBGAStatus(bga, 0); }), "");
}

TEST(InfoPrinters, OneBaseNumberingShiftsIdsButNotNamespaces)
{
    const AdapterLookups lookups{[](KRT_U16) { return ""; }, [](KRT_U16) { return ""; }, [](KRT_U16) { return "nqn"; },
                                 [](KRT_U16, const _NVME_Adapter_Info &) { return 0; },
                                 [](KRT_U16) -> KRT_U16 { return 7; }};
    _NVME_PD_Info pd{};
    pd.ID = 4;
    pd.SSDAdapterID = 5;
    pd.SSDNSID = 1;
    _NVME_NS_Info ns{};
    ns.NSID = 3;
    ns.ID = 1;
    g_oneBaseMode = 1;
    const std::string text = printed([&] {
        Adapter_PrintInfo(_NVME_Adapter_Info{}, 0, lookups);
        LD_PrintInfo(makeVD(KRT_RAID1));
        HD_PrintInfo(pd, false);
        NS_PrintInfo(ns, true);
    });
    g_oneBaseMode = 0;
    for (const char *line :
         {"NVMe Controller ID:                  1\n", "Host ID:                             8\n",
          "VD ID:               3\n", "PDs:                 65535 ? \n", "PD ID:                           5\n",
          "SSD backend RC/Slot ID:          6\n", "SSD backend Namespace ID:        1\n", "NS ID:               3\n",
          "Parent VD ID:        2\n"}) {
        EXPECT_TRUE(has(text, line)) << line;
    }
}

// With no controller registered every request fails locally.
TEST(InfoWithoutController, ListingsAndLookupsReportTheirFailure)
{
    const std::string out = printed([] {
        getAdapterInfoSA(0);
        getAdapterInfoSA(KRT_ALL_IDS);
        getHDInfoSA(KRT_ALL_IDS);
        getNSInfoSA(KRT_ALL_IDS);
        getNSInfoOfVDSA(KRT_ALL_IDS, 0);
        EXPECT_EQ(get_hostID(0), 0);
    });
    EXPECT_EQ(out,
              "\nUnable to get info of NVMe Controller\nTotal # of HBA:      0\n\n\nNo physical disk is found.\n"
              "Get MaxNS from adapter info fail.\n\nUnable to get info of VD\n\nFailed to get controller.\n");
}

TEST(IdentifyDisplay, ControllerTextsCapacitiesAndSubnqn)
{
    _krt_id_ctrl id{};
    std::memcpy(id.mn, "   Model X  ", 12);  // leading blanks
    std::memcpy(id.fr, "1.2.3\0zz", 8);      // ends early
    id.tnvmcap[0] = 3ull << 30;
    id.tnvmcap[1] = 9;  // above 2^64: shown in hex only
    id.unvmcap[0] = 0xFFFFFFFFFFFFFFFFull;
    std::memcpy(id.subnqn, "nqn.x\x01\x7F\xFF", 8);
    id.subnqn[59] = 'Z';
    const KRT_U32 tail = 4096;
    std::memcpy(id.subnqn + KRT_ID_SUBNQN_TEXT, &tail, sizeof tail);
    const std::string text = printed([&] { _showIDDetail(id); });
    EXPECT_TRUE(has(text, "MN:                      Model X  \nFR:                      1.2.3\n"));
    EXPECT_TRUE(has(text,
                    "TNVMCAP_LOW:             0xc0000000\nTNVMCAP_HIGH:            0x9\n"
                    "UNVMCAP_LOW:             0xffffffffffffffff\nUNVMCAP_HIGH:            0x0\n"
                    "TNVMCAP(Bytes):          3221225472\nTNVMCAP(GB):             3\n"
                    "UNVMCAP(Bytes):          18446744073709551615\nUNVMCAP(GB):             17179869183\n"));
    // Control bytes show as blanks; the number behind the text follows it.
    EXPECT_TRUE(text.ends_with("SUBNQN:                  nqn.x   " + std::string(51, ' ') + "Z4096\n\n")) << text;
    EXPECT_EQ(occurrences(text, "\n"), 44);
}

// The LBA formats of a namespace, as many as the count says.
TEST(IdentifyDisplay, LbaFormatCountThatWraps)
{
    _krt_id_ns ns{};
    // 255 formats + 1 wraps to none; 254 lists all 255, the last far past
    // the 64 NVMe defines but inside the page.
    ns.nlbaf = 255;
    EXPECT_EQ(occurrences(printed([&] { _showNSDetail(ns, 1); }), "[LBAF]"), 0);
    ns.nlbaf = 254;
    ns.lbaf[254].ds = 0x77;
    const std::string text = printed([&] { _showNSDetail(ns, 1); });
    EXPECT_EQ(occurrences(text, "[LBAF]"), 255);
    EXPECT_TRUE(has(text, "[LBAF]               254\n  MS:                0x0\n  DS:                0x77\n"));
}

}  // namespace
