// The record printers of info, fed with crafted records.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "commands/info.h"
#include "util/state.h"

namespace {

// Captures everything printed on the output stream while it lives.
class Capture {
  public:
    Capture() : saved_(stream) { stream = open_memstream(&data_, &size_); }
    ~Capture()
    {
        text();
        std::free(data_);
    }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;
    const std::string &text()
    {
        if (stream != saved_) {
            std::fclose(stream);
            stream = saved_;
            text_.assign(data_, size_);
        }
        return text_;
    }

  private:
    std::FILE *saved_;
    char *data_ = nullptr;
    std::size_t size_ = 0;
    std::string text_;
};

class InfoPrinters : public ::testing::Test {
  protected:
    void SetUp() override { g_oneBaseMode = 0; }
    void TearDown() override { g_oneBaseMode = 0; }
    static bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }
};

_NVME_VD_Info makeVD(KRT_U8 raidMode)
{
    _NVME_VD_Info vd{};
    vd.ID = 2;
    vd.RaidMode = raidMode;
    vd.MemberCount = 2;
    vd.PDIDs[0] = 3;
    vd.PDIDs[1] = KRT_PD_MISSING;
    vd.NumParityDisk = 2;
    vd.StripBlockSize = 512;
    vd.SectorSize = 512;
    vd.LBA = 2097152 * 10ull;
    std::memcpy(vd.Name, "data", 4);
    return vd;
}

TEST_F(InfoPrinters, VirtualDiskBlock)
{
    Capture out;
    LD_PrintInfo(makeVD(KRT_RAID5));
    EXPECT_EQ(out.text(),
              "VD ID:               2\n"
              "Name:                data\n"
              "Status:              Functional\n"
              "Importable:          No\n"
              "RAID Mode:           RAID5\n"
              "size:                10 GB\n"
              "PD Count:            2\n"
              "PDs:                 3 ? \n"
              "Stripe Block Size:   256K\n"
              "Sector Size:         512 bytes\n");
}

TEST_F(InfoPrinters, ParityLineOnlyForDoubleParityLevels)
{
    struct Case {
        KRT_U8 mode;
        bool parity;
    };
    for (const Case &c : {Case{KRT_RAID0, false}, Case{KRT_RAID1, false}, Case{KRT_RAID5, false},
                          Case{KRT_RAID50, false}, Case{KRT_RAID6, true}, Case{KRT_RAID60, true}}) {
        Capture out;
        LD_PrintInfo(makeVD(c.mode));
        EXPECT_EQ(has(out.text(), "Parity Disk Number:  2\n"), c.parity) << int(c.mode);
    }
}

TEST_F(InfoPrinters, VirtualDiskValueTexts)
{
    Capture out;
    _NVME_VD_Info vd = makeVD(0x42);
    vd.Status = 12;
    vd.Importable = 2;  // only 1 means importable
    vd.StripBlockSize = 128;
    vd.SectorSize = 0;
    LD_PrintInfo(vd);
    const std::string text = out.text();
    EXPECT_TRUE(has(text, "Status:              N.A\n"));
    EXPECT_TRUE(has(text, "Importable:          No\n"));
    EXPECT_TRUE(has(text, "RAID Mode:           unknown\n"));
    EXPECT_TRUE(has(text, "Stripe Block Size:   Unknown\n"));
    EXPECT_FALSE(has(text, "Sector Size:"));
    EXPECT_STREQ(VDStatusStr(5), "Partially Optimal");
    EXPECT_STREQ(VDStatusStr(11), "Error Handling");
}

TEST_F(InfoPrinters, UntrustedVirtualDiskCountsAndNames)
{
    Capture out;
    _NVME_VD_Info vd = makeVD(KRT_RAID0);
    std::memset(vd.Name, 'N', sizeof(vd.Name));  // no terminator
    std::memset(vd.NSIDs, 'X', sizeof(vd.NSIDs));
    vd.MemberCount = 255;
    for (KRT_U16 &pd : vd.PDIDs) {
        pd = 60000;
    }
    LD_PrintInfo(vd);
    const std::string text = out.text();
    EXPECT_TRUE(has(text, "Name:                NNNNNNNNNNNNNNNN\n"));
    EXPECT_TRUE(has(text, "PD Count:            255\n"));
    // 32 members at most, and the list cut at 127 characters.
    std::string members;
    for (int i = 0; i < 32; ++i) {
        members += "60000 ";
    }
    EXPECT_TRUE(has(text, "PDs:                 " + members.substr(0, 127) + "\n"));
}

TEST_F(InfoPrinters, BackgroundActivityLine)
{
    struct Case {
        KRT_U8 type, percent, status;
        const char *line;
    };
    const Case cases[] = {
        {KRT_BGA_REBUILD, 40, KRT_NVME_BGA_STATUS_PAUSE, "BGA progress:        Rebuilding is pause in 40%\n"},
        {KRT_BGA_INIT, 7, KRT_NVME_BGA_STATUS_RUNNING, "BGA progress:        Initializing is running in 7%\n"},
        {KRT_BGA_INIT_FULL, 0, KRT_NVME_BGA_STATUS_RUNNING, "BGA progress:        Initializing is running in 0%\n"},
        {KRT_BGA_SYNC, 99, KRT_NVME_BGA_STATUS_RUNNING, "BGA progress:        Synchronizing is running in 99%\n"},
        {KRT_BGA_MIGRATE, 5, KRT_NVME_BGA_STATUS_PAUSE, "BGA progress:        Migrating is pause in 5%\n"},
        {KRT_BGA_MEDIA_PATROL, 100, KRT_NVME_BGA_STATUS_RUNNING,
         "BGA progress:        Media Patrol is running in 100%\n"},
        {6, 1, KRT_NVME_BGA_STATUS_RUNNING, "BGA progress:        unknown BGA action is running in 1%\n"},
        {KRT_BGA_REBUILD, 50, KRT_NVME_BGA_STATUS_NONE, ""},
        {KRT_BGA_REBUILD, 50, 3, ""},
    };
    for (const Case &c : cases) {
        Capture out;
        _NVME_BGA_STATUS bga{};
        bga.BgaType = c.type;
        bga.Percentage = c.percent;
        bga.BgaStatus = c.status;
        VD_PrintBGAStatus(bga);
        EXPECT_EQ(out.text(), c.line);
    }
}

_NVME_PD_Info makePD(KRT_U8 status)
{
    _NVME_PD_Info pd{};
    pd.ID = 4;
    pd.Status = status;
    std::memset(pd.Model, ' ', sizeof(pd.Model));
    std::memcpy(pd.Model + 2, "SSD 960", 7);
    std::memset(pd.SerialNo, 'S', sizeof(pd.SerialNo));  // fills the field, no terminator
    std::memcpy(pd.FWVersion, "  1.2", 5);
    pd.SectorSize = 512;
    pd.LBA = 1875385008;
    pd.SSDAdapterID = 5;
    pd.SSDNSID = 1;
    return pd;
}

TEST_F(InfoPrinters, PhysicalDiskBlock)
{
    Capture out;
    HD_PrintInfo(makePD(KRT_PD_ASSIGNED), false);
    EXPECT_EQ(out.text(),
              "PD ID:                           4\n"
              "Model:                           SSD 960" +
                  std::string(31, ' ') +
                  "\n"
                  "Serial:                          SSSSSSSSSSSSSSSSSSSS\n"
                  "Sector Size:                     512 bytes\n"
                  "LBA:                             1875385008\n"
                  "Size:                            894 GB\n"
                  "SSD backend RC/Slot ID:          5\n"
                  "SSD backend Namespace ID:        1\n"
                  "Firmware version:                1.2\n"
                  "Status:                          Idle\n"
                  "Assigned:                        Yes\n"
                  "SMART Critical Warning:          No\n");
}

TEST_F(InfoPrinters, PhysicalDiskStatusTexts)
{
    struct Case {
        KRT_U8 status;
        const char *text;
    };
    for (const Case &c :
         {Case{0, "Idle"}, Case{KRT_PD_MEDIA_PATROL, "Media Patrol Executing"}, Case{KRT_PD_FAILED, "Fail"},
          Case{KRT_PD_FAILED | KRT_PD_MEDIA_PATROL, "Fail"}, Case{KRT_PD_ASSIGNED | KRT_PD_IMPORTABLE, "Idle"}}) {
        Capture out;
        HD_PrintInfo(makePD(c.status), true);
        const std::string text = out.text();
        EXPECT_TRUE(has(text, std::string("Status:                          ") + c.text + "\n")) << text;
        EXPECT_TRUE(has(text, std::string("Importable:                      ") +
                                  ((c.status & KRT_PD_IMPORTABLE) ? "Yes" : "No") + "\n"));
    }
    Capture out;
    HD_PrintInfo(makePD(KRT_PD_SMART_CRITICAL), false);
    const std::string text = out.text();
    EXPECT_TRUE(has(text, "SMART Critical Warning:          Yes\n"));
    EXPECT_FALSE(has(text, "Importable:"));  // RAID controllers do not say
}

_NVME_NS_Info makeNS(KRT_U8 nsid, KRT_U8 status, KRT_U8 vdStatus)
{
    _NVME_NS_Info ns{};
    ns.NSID = nsid;
    ns.device_type = 1;
    ns.ID = 1;
    ns.Status = status;
    ns.VDStatus = vdStatus;
    ns.SectorSize = 4096;
    ns.LBA = 262144 * 3ull;
    return ns;
}

TEST_F(InfoPrinters, NamespaceBlockOnRaidAndJbof)
{
    Capture out;
    NS_PrintInfo(makeNS(3, KRT_NS_VALID | KRT_NS_ACTIVE, KRT_VD_FUNCTIONAL), true);
    NS_PrintInfo(makeNS(4, KRT_NS_VALID, KRT_VD_FUNCTIONAL), false);
    EXPECT_EQ(out.text(),
              "NS ID:               3\n"
              "Size:                3 GB\n"
              "Parent VD ID:        1\n"
              "Valid:               Yes\n"
              "Active:              Yes\n"
              "VD status:           Healthy\n"
              "\n"
              "NS ID:               4\n"
              "Size:                3 GB\n"
              "Parent PD ID:        1\n"
              "Valid:               Yes\n"
              "Active:              No\n"
              "\n");
}

TEST_F(InfoPrinters, NamespaceParentHealth)
{
    for (KRT_U8 vdStatus = 0; vdStatus < 13; ++vdStatus) {
        Capture out;
        NS_PrintInfo(makeNS(1, KRT_NS_VALID, vdStatus), true);
        const bool unhealthy = vdStatus == KRT_VD_DEGRADE || vdStatus == KRT_VD_REBUILDING;
        EXPECT_TRUE(has(out.text(), unhealthy ? "VD status:           Unhealthy\n" : "VD status:           Healthy\n"))
            << int(vdStatus);
    }
}

TEST(InfoNamespaceWalk, OnlyRecordsThatFitInTheReplyAreRead)
{
    EXPECT_EQ(nsRecordCount(0), 0u);
    EXPECT_EQ(nsRecordCount(16), 16u);
    EXPECT_EQ(nsRecordCount(42), 42u);
    EXPECT_EQ(nsRecordCount(43), 42u);
    EXPECT_EQ(nsRecordCount(255), 42u);

    auto reply = newReply();
    for (std::size_t i = 0; i < KRT_NS_RECORDS_PER_REPLY; ++i) {
        reply->data[i * sizeof(_NVME_NS_Info)] = static_cast<KRT_U8>(i + 1);
    }
    EXPECT_EQ(nsRecordAt(*reply, 0).NSID, 1);
    EXPECT_EQ(nsRecordAt(*reply, 41).NSID, 42);
    // Past the reply: an empty slot, nothing read.
    EXPECT_EQ(nsRecordAt(*reply, 42).NSID, 0);
    EXPECT_EQ(nsRecordAt(*reply, 254).Status, 0);
}

// Fakes for the controller block's registry and request values.
const char *fakeFun(KRT_U16)
{
    return "0000:03:00.0";
}
const char *fakePath(KRT_U16)
{
    return "vmhba1";
}
const char *fakeSubnqn(KRT_U16)
{
    return "nqn.2026-01.example:raid";
}
const char *noSubnqn(KRT_U16)
{
    return "\x01";
}
int twoDisks(KRT_U16, const _NVME_Adapter_Info &)
{
    return 2;
}
int noDisks(KRT_U16, const _NVME_Adapter_Info &)
{
    return 0;
}
KRT_U16 hostSeven(KRT_U16)
{
    return 7;
}

_NVME_Adapter_Info makeAdapter(bool raid)
{
    _NVME_Adapter_Info info{};
    info.FirmwareVersion = {1, 0, 3, 42};
    info.VID = 0x1E6B;
    info.SVID = 0x1E6B;
    info.DID = 0x7A10;
    info.SDID = 0x1;
    info.RevisionID = 0x12;
    info.SKUID = 1;
    info.PortCount = 4;
    info.MaxPDPerVD = 4;
    info.MaxVD = 4;
    info.MaxPD = 4;
    info.MaxNSPerVD = 8;
    info.MaxNS = 32;
    info.SupportRAIDMode = 0x01 | 0x02 | 0x08 | 0x10;
    info.Cache = 1;
    info.SupportBGAFeature = 0x1F;
    info.StripeSizeSupported = 0x07;
    info.Features = (raid ? KRT_FEATURE_RAID : 0) | KRT_FEATURE_NS_MGMT | KRT_FEATURE_IMPORT;
    info.PCIeInfo[0] = {0, 0, 3, 8};
    info.PCIeInfo[1] = {1, 2, 2, 4};
    info.PCIeInfo[2] = {7, 9, 9, 9};  // an unknown kind is passed over
    info.PCIeInfo[3] = {1, 3, 9, 16};
    info.PCIeInfo[4] = {255, 0, 0, 0};
    info.PCIeInfo[5] = {0, 5, 1, 1};  // after the end marker: not shown
    return info;
}

// Prints a controller block with that record cached as the addressed
// controller's, whose kind decides the block's layout.
void printAdapter(const _NVME_Adapter_Info &info, int index, const AdapterLookups &lookups)
{
    _NVME_Adapter_Info cached = info;
    g_pAdInfos = &cached;
    gNumAdaptersFound = 1;
    gCurrentAdapter = 0;
    Adapter_PrintInfo(info, index, lookups);
    g_pAdInfos = nullptr;
    gNumAdaptersFound = 0;
}

TEST_F(InfoPrinters, RaidControllerBlock)
{
    Capture out;
    const AdapterLookups lookups{fakeFun, fakePath, fakeSubnqn, twoDisks, hostSeven};
    printAdapter(makeAdapter(true), 0, lookups);
    EXPECT_EQ(out.text(),
              "NVMe Controller ID:                  0\n"
              "Bus Device Fun:                      0000:03:00.0\n"
              "Device:                              vmhba1\n"
              "SUBNQN:                              nqn.2026-01.example:raid\n"
              "Firmware Version:                    1.0.3.0042\n"
              "VID:                                 0x1e6b\n"
              "SVID:                                0x1e6b\n"
              "DID:                                 0x7a10\n"
              "SDID:                                0x1\n"
              "RevisionID:                          A2D\n"
              "Port Count:                          4\n"
              "Max PD of Per VD:                    4\n"
              "Max VD:                              4\n"
              "Max PD:                              4\n"
              "Max NS of Per VD:                    8\n"
              "Max NS:                              32\n"
              "Host ID:                             7\n"
              "Supported RAID Mode:                 RAID0 RAID1 RAID5 RAID10 \n"
              "Cache:                               On \n"
              "Supported BGA Features:              Initialization Rebuild Sync Migrate MediaPatrol \n"
              "Support Stripe Size:                 128KB 256KB 512KB \n"
              "Supported Features:                  Import RAID Namespace \n"
              "End Point:                           0\n"
              "  Link width:                        8x\n"
              "  Max PCIe speed:                    8Gb/s\n"
              "Root Complex:                        2\n"
              "  Link width:                        4x\n"
              "  Max PCIe speed:                    5Gb/s\n"
              "Root Complex:                        3\n"
              "  Link width:                        Unknown\n"
              "  Max PCIe speed:                    Unknown\n");
}

TEST_F(InfoPrinters, JbofControllerBlock)
{
    Capture out;
    const AdapterLookups lookups{fakeFun, fakePath, noSubnqn, twoDisks, hostSeven};
    _NVME_Adapter_Info info = makeAdapter(false);
    info.Cache = 0;
    info.Features |= KRT_FEATURE_DUMP | KRT_FEATURE_NMIC;
    printAdapter(info, 1, lookups);
    const std::string text = out.text();
    EXPECT_TRUE(has(text, "SUBNQN:                              Not found\n"));
    EXPECT_TRUE(has(text,
                    "Port Count:                          4\n"
                    "Max PD:                              4\n"
                    "Max NS of Per PD:                    8\n"
                    "Max NS:                              32\n"));
    EXPECT_TRUE(has(text, "Supported RAID Mode:                 Not Support\n"));
    EXPECT_TRUE(has(text, "Cache:                               Off \n"));
    EXPECT_TRUE(has(text, "Supported Features:                  Import JBOF Namespace Dump NMIC \n"));
    EXPECT_FALSE(has(text, "Max VD:"));
    EXPECT_FALSE(has(text, "Supported BGA Features:"));
    EXPECT_FALSE(has(text, "Support Stripe Size:"));
}

TEST_F(InfoPrinters, SubnqnMissingWithoutDisks)
{
    Capture out;
    const AdapterLookups lookups{fakeFun, fakePath, noSubnqn, noDisks, hostSeven};
    printAdapter(makeAdapter(true), 0, lookups);
    EXPECT_TRUE(
        has(out.text(), "SUBNQN:                              Not found, make sure SSD is already installed\n"));
}

TEST_F(InfoPrinters, RevisionAndSkuTexts)
{
    struct Case {
        KRT_U8 revision, sku;
        const char *text;
    };
    const Case cases[] = {{0x11, 0, "A1V"}, {0x1F, 3, "A15A"}, {0x23, 2, "B3B"}, {0x30, 1, "A0D"},
                          {0x05, 0, "V"},   {0x21, 4, "B1"},   {0x00, 9, ""}};
    const AdapterLookups lookups{fakeFun, fakePath, fakeSubnqn, twoDisks, hostSeven};
    for (const Case &c : cases) {
        Capture out;
        _NVME_Adapter_Info info = makeAdapter(true);
        info.RevisionID = c.revision;
        info.SKUID = c.sku;
        printAdapter(info, 0, lookups);
        EXPECT_TRUE(has(out.text(), std::string("RevisionID:                          ") + c.text + "\n")) << c.text;
    }
}

TEST_F(InfoPrinters, RaidModeWordsFollowTheirFixedOrder)
{
    Capture out;
    const AdapterLookups lookups{fakeFun, fakePath, fakeSubnqn, twoDisks, hostSeven};
    _NVME_Adapter_Info info = makeAdapter(true);
    info.SupportRAIDMode = 0xFF;
    info.Cache = 2;
    printAdapter(info, 0, lookups);
    const std::string text = out.text();
    EXPECT_TRUE(has(text, "Supported RAID Mode:                 RAID0 RAID1 RAID5 RAID6 RAID10 RAID50 RAID60 JBOD \n"));
    EXPECT_TRUE(has(text, "Cache:                               Unknown\n"));
}

TEST_F(InfoPrinters, OneBaseNumberingShiftsIdsButNotNamespaces)
{
    Capture out;
    g_oneBaseMode = 1;
    LD_PrintInfo(makeVD(KRT_RAID1));
    HD_PrintInfo(makePD(0), false);
    NS_PrintInfo(makeNS(3, KRT_NS_VALID, 0), true);
    const AdapterLookups lookups{fakeFun, fakePath, fakeSubnqn, twoDisks, hostSeven};
    printAdapter(makeAdapter(true), 0, lookups);
    const std::string text = out.text();
    EXPECT_TRUE(has(text, "VD ID:               3\n"));
    EXPECT_TRUE(has(text, "PDs:                 4 ? \n"));  // a missing member stays "?"
    EXPECT_TRUE(has(text, "PD ID:                           5\n"));
    EXPECT_TRUE(has(text, "SSD backend RC/Slot ID:          6\n"));
    EXPECT_TRUE(has(text, "SSD backend Namespace ID:        1\n"));
    EXPECT_TRUE(has(text, "NS ID:               3\n"));
    EXPECT_TRUE(has(text, "Parent VD ID:        2\n"));
    EXPECT_TRUE(has(text, "NVMe Controller ID:                  1\n"));
    EXPECT_TRUE(has(text, "Host ID:                             8\n"));
}

TEST_F(InfoPrinters, OneBaseMemberAtTheTopOfTheRange)
{
    Capture out;
    g_oneBaseMode = 1;
    _NVME_VD_Info vd = makeVD(KRT_RAID1);
    vd.PDIDs[0] = 65534;  // the last real id, shown one higher
    LD_PrintInfo(vd);
    EXPECT_TRUE(has(out.text(), "PDs:                 65535 ? \n"));
}

// With no controller registered every request fails locally.
TEST(InfoWithoutController, ListingsAndLookupsReportTheirFailure)
{
    struct Case {
        void (*call)();
        const char *out;
    };
    const Case cases[] = {
        {[] { getAdapterInfoSA(0); }, "\nUnable to get info of NVMe Controller\n"},
        {[] { getAdapterInfoSA(KRT_ALL_IDS); }, "Total # of HBA:      0\n\n"},
        {[] { getHDInfoSA(KRT_ALL_IDS); }, "\nNo physical disk is found.\n"},
        {[] { getHDInfoSA(3); }, "\nUnable to get info of PD\n"},
        {[] { getLDInfoSA(KRT_ALL_IDS); }, "\nNo virtual disk is found.\n"},
        {[] { getLDInfoSA(0); }, "\nUnable to get info of VD\n"},
        {[] { getNSInfoSA(KRT_ALL_IDS); }, "Get MaxNS from adapter info fail.\n"},
        {[] { getNSInfoOfVDSA(KRT_ALL_IDS, 0); }, "\nUnable to get info of VD\n"},
        {[] { EXPECT_EQ(get_hostID(0), 0); }, "\nFailed to get controller.\n"},
    };
    for (const Case &c : cases) {
        Capture out;
        c.call();
        EXPECT_EQ(out.text(), c.out);
    }
}

}  // namespace
