// The shared text routines and the status line the user sees for a failed
// request, at the edges the commands rarely reach.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "api/krt_api.h"
#include "api/status.h"
#include "stream_capture.h"
#include "util/text.h"

namespace {

TEST(TextRoutines, IsNumberStrlwrAndRaidModes)
{
    EXPECT_TRUE(isNumber(""));  // an empty word counts as a number
    EXPECT_TRUE(isNumber("0123456789"));
    for (const char *word : {"-1", "+1", " 1", "1 ", "0x1", "1a", "１"})
        EXPECT_FALSE(isNumber(word)) << word;

    // The letters' neighbours stay as they are.
    char text[] = "AZ@[`{HeLLo-World_09\xC3\x84";
    EXPECT_EQ(strlwr(text), text);
    EXPECT_STREQ(text, "az@[`{hello-world_09\xC3\x84");

    const struct {
        const char *typed;
        KRT_U8 code;
        const char *text;
    } modes[] = {{"0", 0x00, "RAID0"},   {"1", 0x01, "RAID1"}, {"10", 0x10, "RAID10"}, {"5", 0x05, "RAID5"},
                 {"50", 0x50, "RAID50"}, {"6", 0x06, "RAID6"}, {"60", 0x60, "RAID60"}, {"JBOD", 0x0F, "JBOD"}};
    for (const auto &m : modes) {
        EXPECT_EQ(chooseRaidMode(m.typed), m.code) << m.typed;
        EXPECT_STREQ(RaidModeStr(m.code), m.text) << m.typed;
    }
    for (const char *typed : {"jbod", "2", "01", "", "RAID1", "100"})
        EXPECT_EQ(chooseRaidMode(typed), 0xFF) << typed;
    for (int code : {0x02, 0x0E, 0xFF})
        EXPECT_STREQ(RaidModeStr(static_cast<KRT_U8>(code)), "unknown") << code;
}

TEST(TextRoutines, NoQuoteStrncpyStripsEnclosingQuotes)
{
    const struct {
        const char *src;
        std::size_t n;
        const char *expected;  // dst starts filled with 'X'
    } cases[] = {
        {"abcdef", 3, "abc"},
        // Terminated one past the copied text: the byte between keeps its value.
        {"\"a b\"", 5, "a bX"},
        {"\"abc\"de", 5, "abc\"dX"},
        // The closing quote is looked for at the caller's limit only.
        {"\"a b\"", 4, "\"a b"},
        // A limit beyond the argument never reads past its end.
        {"\"ab", 10, "\"ab"},
    };
    for (const auto &c : cases) {
        std::array<char, 32> dst{};
        dst.fill('X');
        EXPECT_EQ(noQuoteStrncpy(dst.data(), c.src, c.n), 0) << c.src;
        EXPECT_STREQ(dst.data(), c.expected) << c.src << " n=" << c.n;
    }
    std::array<char, 8> dst{};
    dst.fill('X');
    testing::internal::CaptureStdout();
    EXPECT_EQ(noQuoteStrncpy(dst.data(), "'abc'", 5), 1);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Please use double quotation mark to include strings.");
    EXPECT_EQ(dst[0], 'X');
}

TEST(TextRoutines, DumpContentPrintsRowsOfSixteen)
{
    std::array<unsigned char, 20> data{};
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(0xF0 + i);
    const std::string header = "[RAW Data]\n      00 01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 \n";
    krt_unit::StreamCapture out;
    dumpContent(data.data(), static_cast<long>(data.size()));
    dumpContent(nullptr, 0);
    dumpContent(nullptr, -5);
    EXPECT_EQ(out.text(), header +
                              "\n0000  f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff "
                              "\n0016  00 01 02 03 \n" +
                              header + "\n" + header + "\n");
}

TEST(TextRoutines, StatusLines)
{
    const struct {
        KRT_U32 status;
        const char *line;
    } cases[] = {
        {0, ""},  // success prints nothing
        {0x0106, "Invalid Firmware Slot (Status Code: 0x106)\n"},
        {0x0107, "Invalid Firmware Image (Status Code: 0x107)\n"},
        {0x0702, "Unknown error (Status Code: 0x702)\n"},
        {static_cast<KRT_U32>(-22), "Unknown error (Status Code: 0xffffffea)\n"},
        {1, "Invalid Command Opcode (Status Code: 0x1)\n"},
        {0x0200, "Unknown Status (Status Code: 0x200)\n"},
        {132, "Format In Progress (Status Code: 0x84)\n"},
        {0x0733, "LD is not redundant (Status Code: 0x733)\n"},
        {0x0301, "Invalid Queue Identifier (Status Code: 0x301)\n"},  // SCT 3 has bit 8 set
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStdout();
        _showStatusCode(c.status);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.line) << std::hex << c.status;
    }
}

}  // namespace
