// The printers and page readers of info, identify, event and log, fed with
// what no simulated controller sends.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/event.h"
#include "commands/identify.h"
#include "commands/info.h"
#include "device/device_management.h"
#include "text.h"
#include "transport_fake_driver.h"
#include "unit_support.h"
#include "util/state.h"

namespace {

using krt_test::has;
using krt_test::occurrences;
using krt_unit::printed;
using Texts = std::vector<std::string>;

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

// A wrapped ring shows end to end (the logs machine); here the odd orders.
TEST(EventRing, NewestFirstWhereverTheRingWrapped)
{
    const struct {
        Texts stored;
        int count;
        Texts shown;
    } cases[] = {
        {{"4", "1", "2", "3"}, 0, {"4", "3", "2", "1"}},  // the newest in the first slot
        // Numbers that rise again walking back: the run ends at its highest.
        {{"1", "2", "9", "8", "3"}, 0, {"9", "2", "1", "3", "8"}},
        // A lower number after the rise fixes the newest, whatever lies beyond.
        {{"50", "1", "7", "6", "5"}, 2, {"7", "1"}},
        // Texts read as 0, and an equal number is no rise: the last is the newest.
        {{"abc", "", "x1"}, 0, {"x1", "", "abc"}},
        // Numbers beyond 64 bits still compare.
        {{"99999999999999999999", "1"}, 1, {"99999999999999999999"}},
    };
    for (const auto &c : cases) {
        std::vector<_NVME_SA_Evt_Item> events(c.stored.size());
        for (std::size_t i = 0; i < events.size(); ++i)
            std::snprintf(events[i].seq, sizeof events[i].seq, "%s", c.stored[i].c_str());
        Texts shown;
        for (std::size_t i : eventShowOrder(events, c.count))
            shown.emplace_back(events[i].seq);
        EXPECT_EQ(shown, c.shown) << testing::PrintToString(c.stored) << " " << c.count;
    }
}

// Pages no controller sends; the limits of each field show end to end (an
// overlong page).
TEST(EventPage, OddLinesAndPieces)
{
    const std::pair<std::string, Texts> cases[] = {
        // A time that is no number, one longer than 80 characters (80 are
        // read), markers the wrong way round.
        {"[SEQ]1[TIME]soon[MSG]x\n[SEQ]2[TIME]" + std::string(79, '0') + "77[MSG]y\n[TIME]3[SEQ]4[MSG]late\n",
         {"1 0 x", "2 7 y", " 3 late"}},
        // A short piece ends the page; a line that lacks a marker is skipped.
        {"[SEQ]1[TIME]0[MSG]a\nx\n[SEQ]2[TIME]0[MSG]b\n", {"1 0 a"}},
        {"[SEQ]1[TIME]0[MSG]a\n\n[SEQ]2[TIME]0[MSG]b\n", {"1 0 a"}},
        {"[SEQ]1[TIME]2 no message\n[TIME]2[MSG]x\n[SEQ]1[MSG]x\n[SEQ]2[TIME]0[MSG]b", {"2 0 b"}},
        // A NUL after a line feed reads as a blank: the text goes on past it.
        {std::string("[SEQ]1[TIME]0[MSG]a\n\0[SEQ]2[TIME]0[MSG]b\n", 41), {"1 0 a", "2 0 b"}},
    };
    for (const auto &[text, shown] : cases) {
        _NVME_Event_Page page{};
        std::memcpy(page.text, text.data(), text.size());
        std::vector<_NVME_SA_Evt_Item> events;
        testing::internal::CaptureStdout();
        readEventPage(page, events);
        testing::internal::GetCapturedStdout();
        Texts read;
        for (const auto &e : events)
            read.push_back(std::string(e.seq) + " " + std::to_string(e.time) + " " + e.msg);
        EXPECT_EQ(read, shown) << text;
    }
}

// A chunk that claims one byte more than a reply can carry is refused
// before any of it is read.
TEST(SpiLog, ChunkLongerThanItsReplyIsRefused)
{
    fake::Installed installed;
    // Every vendor request gets this reply: the log on, and that length.
    fake::Adapter a = fake::managedAdapter("vmhba1");
    std::memcpy(a.adapterInfo.data(), KRT_SIGN, sizeof KRT_SIGN);
    const KRT_U32 length = KRT_SPI_LOG_MAX_CHUNK + 1;
    std::memcpy(a.adapterInfo.data() + 8, &length, sizeof length);
    fake::scan({a});
    gCurrentAdapter = 0;
    std::string words[] = {"log", "-a", "show"};
    char *argv[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    krt_unit::StreamCapture out;
    EXPECT_EQ(doSLog(3, argv, nullptr), 1);
    EXPECT_EQ(out.text(), "Error SPI data length: 4081\n");
    GetDeviceManagementInstance()->Final();
}

}  // namespace
