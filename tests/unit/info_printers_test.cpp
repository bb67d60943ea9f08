// The record printers of info, fed with records no simulated controller
// sends: unknown values, over-long member lists, one-base numbering, and
// the listings with no controller at all.
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
    vd.PDIDs[0] = 3;
    vd.PDIDs[1] = KRT_PD_MISSING;
    vd.NumParityDisk = 2;
    std::memcpy(vd.Name, "data", 4);
    return vd;
}

_NVME_PD_Info makePD(KRT_U8 status)
{
    _NVME_PD_Info pd{};
    pd.ID = 4;
    pd.Status = status;
    pd.SSDAdapterID = 5;
    pd.SSDNSID = 1;
    return pd;
}

_NVME_Adapter_Info makeAdapter(KRT_U8 revision = 0x12, KRT_U8 sku = 1)
{
    _NVME_Adapter_Info info{};
    info.RevisionID = revision;
    info.SKUID = sku;
    info.Cache = 1;
    info.Features = KRT_FEATURE_RAID | KRT_FEATURE_NS_MGMT | KRT_FEATURE_IMPORT;
    info.PCIeInfo[0] = {0, 0, 3, 8};
    info.PCIeInfo[1] = {7, 9, 9, 9};  // an unknown kind is passed over
    info.PCIeInfo[2] = {1, 3, 9, 16};
    info.PCIeInfo[3] = {255, 0, 0, 0};
    info.PCIeInfo[4] = {0, 5, 1, 1};  // after the end marker: not shown
    return info;
}

const AdapterLookups kFakes{[](KRT_U16) { return "0000:03:00.0"; }, [](KRT_U16) { return "vmhba1"; },
                            [](KRT_U16) { return "nqn.2026-01.example:raid"; },
                            [](KRT_U16, const _NVME_Adapter_Info &) { return 2; },
                            [](KRT_U16) -> KRT_U16 { return 7; }};

// A controller block with that record cached as the addressed controller's,
// whose kind decides the layout.
std::string adapterBlock(const _NVME_Adapter_Info &info, const AdapterLookups &lookups = kFakes)
{
    _NVME_Adapter_Info cached = info;
    g_pAdInfos = &cached;
    gNumAdaptersFound = 1;
    gCurrentAdapter = 0;
    const std::string text = printed([&] { Adapter_PrintInfo(info, 0, lookups); });
    g_pAdInfos = nullptr;
    gNumAdaptersFound = 0;
    return text;
}

TEST(InfoPrinters, VirtualDiskUnknownValuesParityAndLongMemberList)
{
    _NVME_VD_Info vd = makeVD(0x42);
    vd.Status = 12;
    vd.Importable = 2;  // only 1 means importable
    vd.StripBlockSize = 128;
    EXPECT_EQ(printed([&] { LD_PrintInfo(vd); }),
              "VD ID:               2\nName:                data\nStatus:              N.A\n"
              "Importable:          No\nRAID Mode:           unknown\nsize:                0 GB\n"
              "PD Count:            2\nPDs:                 3 ? \nStripe Block Size:   Unknown\n");
    EXPECT_TRUE(has(printed([&] { LD_PrintInfo(makeVD(KRT_RAID60)); }), "Parity Disk Number:  2\n"));

    vd.MemberCount = 255;
    for (KRT_U16 &pd : vd.PDIDs)
        pd = 60000;
    std::string members;
    for (int i = 0; i < KRT_VD_MAX_MEMBERS; ++i)
        members += "60000 ";
    EXPECT_TRUE(has(printed([&] { LD_PrintInfo(vd); }), "PDs:                 " + members.substr(0, 127) + "\n"));
}

TEST(InfoPrinters, BackgroundActivityDiskStatusAndParentHealth)
{
    const struct {
        KRT_U8 type, status;
        const char *line;
    } activities[] = {
        {KRT_BGA_MEDIA_PATROL, KRT_NVME_BGA_STATUS_RUNNING, "BGA progress:        Media Patrol is running in 9%\n"},
        {6, KRT_NVME_BGA_STATUS_RUNNING, "BGA progress:        unknown BGA action is running in 9%\n"},
        {KRT_BGA_REBUILD, KRT_NVME_BGA_STATUS_NONE, ""},
        {KRT_BGA_REBUILD, 3, ""},
    };
    for (const auto &c : activities) {
        _NVME_BGA_STATUS bga{};
        bga.BgaType = c.type;
        bga.Percentage = 9;
        bga.BgaStatus = c.status;
        EXPECT_EQ(printed([&] { VD_PrintBGAStatus(bga, 0); }), c.line);
    }
    const struct {
        KRT_U8 status;
        const char *lines;
    } disks[] = {
        {KRT_PD_MEDIA_PATROL, "Status:                          Media Patrol Executing\n"},
        {KRT_PD_FAILED | KRT_PD_MEDIA_PATROL, "Status:                          Fail\n"},
        {KRT_PD_ASSIGNED | KRT_PD_IMPORTABLE,
         "Status:                          Idle\nAssigned:                        Yes\n"
         "Importable:                      Yes\n"},
    };
    for (const auto &c : disks)
        EXPECT_TRUE(has(printed([&] { HD_PrintInfo(makePD(c.status), true); }), c.lines)) << c.lines;
    for (KRT_U8 status : {KRT_U8(KRT_VD_REBUILDING), KRT_U8(12)}) {
        _NVME_NS_Info ns{};
        ns.VDStatus = status;
        EXPECT_TRUE(has(printed([&] { NS_PrintInfo(ns, true); }),
                        status == 12 ? "VD status:           Healthy\n" : "VD status:           Unhealthy\n"));
    }
}

TEST(InfoPrinters, ControllerBlockValuesAndRevisionTexts)
{
    const std::string raid = adapterBlock(makeAdapter());
    EXPECT_EQ(raid.substr(raid.find("End Point:")),
              "End Point:                           0\n  Link width:                        8x\n"
              "  Max PCIe speed:                    8Gb/s\nRoot Complex:                        3\n"
              "  Link width:                        Unknown\n  Max PCIe speed:                    Unknown\n");

    _NVME_Adapter_Info info = makeAdapter();
    info.Cache = 0;
    info.Features = KRT_FEATURE_NS_MGMT | KRT_FEATURE_IMPORT | KRT_FEATURE_DUMP | KRT_FEATURE_NMIC;
    AdapterLookups lookups = kFakes;
    lookups.subnqn = [](KRT_U16) { return "\x01"; };
    const std::string jbof = adapterBlock(info, lookups);
    EXPECT_TRUE(has(jbof, "SUBNQN:                              Not found\n"));
    EXPECT_TRUE(has(jbof,
                    "Cache:                               Off \n"
                    "Supported Features:                  Import JBOF Namespace Dump NMIC \n"));

    info = makeAdapter();
    info.Cache = 2;
    lookups.pdCount = [](KRT_U16, const _NVME_Adapter_Info &) { return 0; };
    const std::string bare = adapterBlock(info, lookups);
    EXPECT_TRUE(has(bare, "SUBNQN:                              Not found, make sure SSD is already installed\n"));
    EXPECT_TRUE(has(bare, "Cache:                               Unknown\n"));

    const struct {
        KRT_U8 revision, sku;
        const char *text;
    } cases[] = {{0x1F, 3, "A15A"}, {0x23, 2, "B3B"}, {0x30, 1, "A0D"}, {0x05, 9, ""}};
    for (const auto &c : cases) {
        EXPECT_TRUE(has(adapterBlock(makeAdapter(c.revision, c.sku)),
                        std::string("RevisionID:                          ") + c.text + "\n"))
            << c.text;
    }
}

TEST(InfoPrinters, OneBaseNumberingShiftsIdsButNotNamespaces)
{
    g_oneBaseMode = 1;
    _NVME_VD_Info top = makeVD(KRT_RAID1);
    top.PDIDs[0] = 65534;  // the last real id, shown one higher
    _NVME_NS_Info ns{};
    ns.NSID = 3;
    ns.ID = 1;
    std::string text = adapterBlock(makeAdapter());
    text += printed([&] {
        LD_PrintInfo(makeVD(KRT_RAID1));
        LD_PrintInfo(top);
        HD_PrintInfo(makePD(0), false);
        NS_PrintInfo(ns, true);
    });
    g_oneBaseMode = 0;
    for (const char *line :
         {"VD ID:               3\n", "PDs:                 4 ? \n", "PDs:                 65535 ? \n",
          "PD ID:                           5\n", "SSD backend RC/Slot ID:          6\n",
          "SSD backend Namespace ID:        1\n", "NS ID:               3\n", "Parent VD ID:        2\n",
          "NVMe Controller ID:                  1\n", "Host ID:                             8\n"}) {
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
