// The event command's pieces: the order of a ring that may have wrapped,
// the line parser and page reader fed with what no simulated controller
// sends, and the event time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "commands/event.h"

namespace {

std::vector<_NVME_SA_Evt_Item> ring(const std::vector<std::string> &seqs)
{
    std::vector<_NVME_SA_Evt_Item> events;
    for (const std::string &s : seqs) {
        _NVME_SA_Evt_Item item{};
        std::snprintf(item.seq, sizeof item.seq, "%s", s.c_str());
        events.push_back(item);
    }
    return events;
}

std::vector<std::string> seqsOf(const std::vector<std::string> &stored, int count)
{
    const auto events = ring(stored);
    std::vector<std::string> shown;
    for (std::size_t i : eventShowOrder(events, count))
        shown.emplace_back(events[i].seq);
    return shown;
}

using Seqs = std::vector<std::string>;

TEST(EventRing, NewestFirstWhetherOrNotTheRingWrapped)
{
    const Seqs wrapped = {"5", "6", "7", "1", "2", "3", "4"};
    EXPECT_EQ(seqsOf(wrapped, 0), (Seqs{"7", "6", "5", "4", "3", "2", "1"}));
    EXPECT_EQ(seqsOf(wrapped, 2), (Seqs{"7", "6"}));
    EXPECT_EQ(seqsOf(wrapped, 8), seqsOf(wrapped, 0)) << "more than there are: all";
    EXPECT_EQ(seqsOf({"1", "2", "3"}, 0), (Seqs{"3", "2", "1"}));
    EXPECT_EQ(seqsOf({"9"}, 1), (Seqs{"9"}));
    EXPECT_TRUE(eventShowOrder({}, 0).empty());
    // The newest as the very first slot.
    EXPECT_EQ(seqsOf({"4", "1", "2", "3"}, 0), (Seqs{"4", "3", "2", "1"}));
}

TEST(EventRing, OddOrdersAndTextsThatAreNotNumbers)
{
    // Numbers that rise again walking back: the run ends at its highest.
    EXPECT_EQ(seqsOf({"1", "2", "9", "8", "3"}, 0), (Seqs{"9", "2", "1", "3", "8"}));
    // A lower number after the rise fixes the newest, whatever lies beyond.
    EXPECT_EQ(seqsOf({"50", "1", "7", "6", "5"}, 2), (Seqs{"7", "1"}));
    // Texts read as 0: no rise, so the last is the newest.
    EXPECT_EQ(seqsOf({"abc", "", "x1"}, 0), (Seqs{"x1", "", "abc"}));
    EXPECT_EQ(seqsOf({"2", "2", "2"}, 0), (Seqs{"2", "2", "2"}));
    // Numbers beyond 64 bits still compare.
    EXPECT_EQ(seqsOf({"99999999999999999999", "1"}, 1), (Seqs{"99999999999999999999"}));
}

// What the parser made of a line, and what it said on standard output.
struct Parsed {
    bool ok;
    _NVME_SA_Evt_Item item;
    std::string said;
};

Parsed parse(const std::string &line)
{
    Parsed p{};
    testing::internal::CaptureStdout();
    p.ok = _eventParser(line, p.item);
    p.said = testing::internal::GetCapturedStdout();
    return p;
}

TEST(EventParser, FieldsLimitsAndRefusals)
{
    Parsed p = parse("[SEQ]12[TIME]1700000000[MSG]VD 0 created");
    ASSERT_TRUE(p.ok);
    EXPECT_STREQ(p.item.seq, "12");
    EXPECT_EQ(p.item.time, 1700000000u);
    EXPECT_STREQ(p.item.msg, "VD 0 created");
    EXPECT_EQ(p.said, "");

    // Texts longer than a controller's record are kept up to the limits.
    p = parse("[SEQ]" + std::string(25, '7') + "[TIME]5[MSG]" + std::string(90, 'm'));
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(std::string(p.item.seq), std::string(20, '7'));
    EXPECT_EQ(std::string(p.item.msg), std::string(80, 'm'));

    // Times: not a number, past 32 bits, longer than 80 characters.
    EXPECT_EQ(parse("[SEQ]1[TIME]soon[MSG]x").item.time, 0u);
    EXPECT_EQ(parse("[SEQ]1[TIME]4294967296[MSG]x").item.time, 4294967295u);
    EXPECT_EQ(parse("[SEQ]1[TIME]" + std::string(79, '0') + "77[MSG]x").item.time, 7u);

    // Markers the wrong way round give empty texts, not a crash.
    p = parse("[TIME]3[SEQ]4[MSG]late");
    ASSERT_TRUE(p.ok);
    EXPECT_STREQ(p.item.seq, "");
    EXPECT_EQ(p.item.time, 3u);
    EXPECT_STREQ(p.item.msg, "late");

    for (const std::string line : {"[SEQ]1[TIME]2 no message", "[TIME]2[MSG]x", "[SEQ]1[MSG]x", "junk"}) {
        p = parse(line);
        EXPECT_FALSE(p.ok) << line;
        EXPECT_EQ(p.said, "Command format has error: " + line + "\n");
    }
}

_NVME_Event_Page page(const std::string &text)
{
    _NVME_Event_Page p{};
    std::memcpy(p.text, text.data(), std::min(text.size(), sizeof p.text));
    return p;
}

std::vector<std::string> messages(const _NVME_Event_Page &p)
{
    std::vector<_NVME_SA_Evt_Item> events;
    testing::internal::CaptureStdout();
    readEventPage(p, events);
    testing::internal::GetCapturedStdout();
    std::vector<std::string> out;
    for (const auto &e : events)
        out.emplace_back(e.msg);
    return out;
}

TEST(EventPage, LinesUpToTheFirstShortPiece)
{
    using Msgs = std::vector<std::string>;
    EXPECT_EQ(messages(page("[SEQ]1[TIME]0[MSG]a\n[SEQ]2[TIME]0[MSG]b\n")), (Msgs{"a", "b"}));
    EXPECT_EQ(messages(page("")), Msgs{});
    // A short piece ends the page; a bad line is only skipped.
    EXPECT_EQ(messages(page("[SEQ]1[TIME]0[MSG]a\nx\n[SEQ]2[TIME]0[MSG]b\n")), Msgs{"a"});
    EXPECT_EQ(messages(page("[SEQ]1[TIME]0[MSG]a\n\n[SEQ]2[TIME]0[MSG]b\n")), Msgs{"a"});
    EXPECT_EQ(messages(page("bad line\n[SEQ]2[TIME]0[MSG]b")), Msgs{"b"});
    // A NUL after a line feed reads as a blank: the text goes on past it.
    EXPECT_EQ(messages(page(std::string("[SEQ]1[TIME]0[MSG]a\n\0[SEQ]2[TIME]0[MSG]b\n", 41))), (Msgs{"a", "b"}));

    // A page filled to its last byte, with no line feed and no terminator.
    std::string full = "[SEQ]1[TIME]2[MSG]";
    full.resize(sizeof(_NVME_Event_Page::text), 'z');
    EXPECT_EQ(messages(page(full)), Msgs{std::string(80, 'z')});
}

// Runs with TZ set to a zone, and puts the host's zone back after.
class EventTime : public ::testing::Test {
  protected:
    void SetUp() override
    {
        if (const char *tz = std::getenv("TZ"))
            saved_ = tz, hadTz_ = true;
    }
    void TearDown() override
    {
        if (hadTz_)
            setenv("TZ", saved_.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    static void zone(const char *tz)
    {
        setenv("TZ", tz, 1);
        tzset();
    }

  private:
    std::string saved_;
    bool hadTz_ = false;
};

TEST_F(EventTime, CalendarInTheHostsZoneAfterTheStartOf2010)
{
    zone("UTC0");
    EXPECT_EQ(_showTime(0), "0 seconds from the boot time.");
    EXPECT_EQ(_showTime(1262304000), "1262304000 seconds from the boot time.");
    EXPECT_EQ(_showTime(1262304001), "2010-01-01 00:00:01");
    EXPECT_EQ(_showTime(4294967295ul), "2106-02-07 06:28:15");
    zone("JST-9");
    EXPECT_EQ(_showTime(1262304001), "2010-01-01 09:00:01");
}

}  // namespace
