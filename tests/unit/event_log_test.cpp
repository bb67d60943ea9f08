// The event and log commands fed with what no simulated controller sends:
// rings in odd orders, lines and pages that break the format, and an SPI log
// chunk that claims more text than its reply holds.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/event.h"
#include "device/device_management.h"
#include "transport_fake_driver.h"
#include "unit_support.h"
#include "util/state.h"

namespace {

using Texts = std::vector<std::string>;

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
