// The record printers of info, fed with what no simulated controller sends:
// member ids at the edge of the missing mark, over-long member lists, an
// activity in an unknown state, one-base numbering, and no controller at all.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "commands/info.h"
#include "stream_capture.h"
#include "text.h"
#include "util/state.h"

namespace {

using krt_test::has;

// What `print` writes on the output stream.
template <class Print>
std::string printed(Print print)
{
    krt_unit::StreamCapture out;
    print();
    return out.text();
}

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

}  // namespace
