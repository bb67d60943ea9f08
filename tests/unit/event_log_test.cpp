// The event and log commands fed with what no simulated controller sends:
// rings in odd orders, lines and pages that break the format, and an SPI log
// chunk that claims more text than it holds.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/event.h"
#include "device/device_management.h"
#include "stream_capture.h"
#include "transport_fake_driver.h"
#include "util/state.h"

namespace {

using Texts = std::vector<std::string>;

TEST(EventRing, NewestFirstWhereverTheRingWrapped)
{
    const Texts wrapped = {"5", "6", "7", "1", "2", "3", "4"}, all = {"7", "6", "5", "4", "3", "2", "1"};
    const struct {
        Texts stored;
        int count;
        Texts shown;
    } cases[] = {
        {wrapped, 0, all},
        {wrapped, 2, {"7", "6"}},
        {wrapped, 8, all},  // more than there are: all
        {{"1", "2", "3"}, 0, {"3", "2", "1"}},
        {{"4", "1", "2", "3"}, 0, {"4", "3", "2", "1"}},
        {{}, 0, {}},
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

TEST(EventParser, FieldsLimitsAndRefusals)
{
    const struct {
        std::string line;
        std::string seq;
        KRT_U32 time;
        std::string msg;
    } read[] = {
        {"[SEQ]12[TIME]1700000000[MSG]VD 0 created", "12", 1700000000, "VD 0 created"},
        // Texts longer than a controller's record, kept up to the limits.
        {"[SEQ]" + std::string(25, '7') + "[TIME]5[MSG]" + std::string(90, 'm'), std::string(20, '7'), 5,
         std::string(80, 'm')},
        // Times: not a number, past 32 bits, longer than 80 characters.
        {"[SEQ]1[TIME]soon[MSG]x", "1", 0, "x"},
        {"[SEQ]1[TIME]4294967296[MSG]x", "1", 4294967295u, "x"},
        {"[SEQ]1[TIME]" + std::string(79, '0') + "77[MSG]x", "1", 7, "x"},
        // Markers the wrong way round give empty texts.
        {"[TIME]3[SEQ]4[MSG]late", "", 3, "late"},
    };
    for (const auto &r : read) {
        _NVME_SA_Evt_Item item{};
        ASSERT_TRUE(_eventParser(r.line, item)) << r.line;
        EXPECT_EQ(item.seq, r.seq);
        EXPECT_EQ(item.time, r.time) << r.line;
        EXPECT_EQ(item.msg, r.msg);
    }
    for (const std::string line : {"[SEQ]1[TIME]2 no message", "[TIME]2[MSG]x", "[SEQ]1[MSG]x", "junk"}) {
        _NVME_SA_Evt_Item item{};
        testing::internal::CaptureStdout();
        EXPECT_FALSE(_eventParser(line, item)) << line;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Command format has error: " + line + "\n");
    }
}

TEST(EventPage, LinesUpToTheFirstShortPiece)
{
    std::string full = "[SEQ]1[TIME]2[MSG]";
    full.resize(sizeof(_NVME_Event_Page::text), 'z');  // no line feed, no terminator
    const struct {
        std::string text;
        Texts messages;
    } cases[] = {
        {"[SEQ]1[TIME]0[MSG]a\n[SEQ]2[TIME]0[MSG]b\n", {"a", "b"}},
        {"", {}},
        // A short piece ends the page; a bad line is only skipped.
        {"[SEQ]1[TIME]0[MSG]a\nx\n[SEQ]2[TIME]0[MSG]b\n", {"a"}},
        {"[SEQ]1[TIME]0[MSG]a\n\n[SEQ]2[TIME]0[MSG]b\n", {"a"}},
        {"bad line\n[SEQ]2[TIME]0[MSG]b", {"b"}},
        // A NUL after a line feed reads as a blank: the text goes on past it.
        {std::string("[SEQ]1[TIME]0[MSG]a\n\0[SEQ]2[TIME]0[MSG]b\n", 41), {"a", "b"}},
        {full, {std::string(80, 'z')}},
    };
    for (const auto &c : cases) {
        _NVME_Event_Page page{};
        std::memcpy(page.text, c.text.data(), c.text.size());
        std::vector<_NVME_SA_Evt_Item> events;
        testing::internal::CaptureStdout();
        readEventPage(page, events);
        testing::internal::GetCapturedStdout();
        Texts messages;
        for (const auto &e : events)
            messages.emplace_back(e.msg);
        EXPECT_EQ(messages, c.messages) << c.text;
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
