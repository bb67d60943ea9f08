// The shared text routines, the status line of a failed request, the JSON
// output's key rule, escaping and records, the labelled-field writer, and the
// firmware image's checksum and CRC, at the edges no command or controller
// reaches.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "api/krt_api.h"
#include "api/status.h"
#include "firmware/image.h"
#include "unit_support.h"
#include "util/fields.h"
#include "util/json_output.h"
#include "util/text.h"

namespace {

using nlohmann::json;
using Bytes = std::vector<KRT_U8>;

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

// Single quotes are refused end to end (adapter -s 'x').
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
}

TEST(TextRoutines, EmptyDumpAndStatusLines)
{
    const struct {
        KRT_U32 status;
        const char *line;
    } cases[] = {
        // Success prints nothing; the rest are the corners no controller's answer reaches.
        {0, ""},
        {0x0106, "Invalid Firmware Slot (Status Code: 0x106)\n"},
        {static_cast<KRT_U32>(-22), "Unknown error (Status Code: 0xffffffea)\n"},
        {0x0200, "Unknown Status (Status Code: 0x200)\n"},
        {132, "Format In Progress (Status Code: 0x84)\n"},
        {0x0733, "LD is not redundant (Status Code: 0x733)\n"},
        {0x0301, "Invalid Queue Identifier (Status Code: 0x301)\n"},  // SCT 3 has bit 8 set
    };
    // A dump of nothing is its header alone (rows of sixteen show end to end).
    EXPECT_EQ(krt_unit::printed([] { dumpContent(nullptr, -5); }),
              "[RAW Data]\n      00 01 02 03 04 05 06 07 08 09 10 11 12 13 14 15 \n\n");
    for (const auto &c : cases) {
        testing::internal::CaptureStdout();
        _showStatusCode(c.status);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.line) << std::hex << c.status;
    }
}

std::string asJson(std::string_view bytes)
{
    std::string out;
    json_output::appendString(out, bytes);
    return out;
}

TEST(JsonText, KeysFromLabelsAndTextAsValidUtf8)
{
    const std::pair<const char *, const char *> keys[] = {{"BGA progress:", "bga_progress"},
                                                          {"SSD backend RC/Slot ID:", "ssd_backend_rc_slot_id"},
                                                          {"  Link width:", "link_width"},
                                                          {"eui64[3]:", "eui64_3"},
                                                          {"TNVMCAP(GB):", "tnvmcap_gb"},
                                                          {"Total # of PD:", "total_of_pd"},
                                                          {"size_gb", "size_gb"},
                                                          {"AZ@[`{z", "az_z"},
                                                          {"Gr\u00f6\u00dfe", "gr_e"},
                                                          {":", "value"}};
    for (const auto &[label, key] : keys)
        EXPECT_EQ(json_output::keyOf(label), key) << label;

    const std::pair<std::string, std::string> texts[] = {
        {"a\"b\\c", R"("a\"b\\c")"},
        {std::string("\n\t\x01\x7f\0", 5), R"("\n\t\u0001\u007f\u0000")"},
        // Valid sequences stay as they are.
        {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\""},
        // C1 controls are escaped; bytes outside a sequence are Latin-1:
        // overlong, a surrogate, past U+10FFFF, cut short.
        {"\xc2\x85", R"("\u0085")"},
        {"\xff\xfe", R"("\u00ff\u00fe")"},
        {"\xc0\xaf", R"("\u00c0\u00af")"},
        {"\xed\xa0\x80", R"("\u00ed\u00a0\u0080")"},
        {"\xf4\x90\x80\x80", R"("\u00f4\u0090\u0080\u0080")"},
        {"ab\xe2\x82", R"("ab\u00e2\u0082")"},
    };
    for (const auto &[bytes, text] : texts)
        EXPECT_EQ(asJson(bytes), text);
    // Every byte string gives a string a strict reader takes back.
    std::string all;
    for (int i = 0; i < 512; ++i)
        all += static_cast<char>(i);
    EXPECT_TRUE(json::parse(asJson(all)).is_string());

    EXPECT_EQ(json_output::trimmed(std::string_view("  On \0\0", 7)), "On");
    EXPECT_EQ(json_output::trimmed(std::string_view("\0 \0", 3)), "");
}

// Records cut short still close; keys that repeat stay apart. What other
// tests in this process left noted goes first into a document nobody reads.
TEST(JsonText, RecordsCutShortStillCloseAndKeysStayApart)
{
    json_output::setDestination(std::tmpfile());
    json_output::writeDocument({}, 0, std::nullopt);
    json_output::closeDestination();
    std::FILE *file = std::tmpfile();
    json_output::setDestination(file);
    json_output::numberField("Total # of PD:", "4");  // outside any record
    json_output::beginListing("outer");
    json_output::beginRecord("controller");
    json_output::stringField("Name:", "a");
    json_output::stringField("Name:", "b");
    json_output::beginListing("PCIe links");
    json_output::beginRecord("pcie_link");
    json_output::boolField("Up:", true);
    // No end of the link, the listing or the record: the listing was cut short.
    EXPECT_TRUE(json_output::writeDocument({"info"}, 1, std::nullopt));
    std::rewind(file);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    json_output::closeDestination();
    EXPECT_EQ(text.find('\n'), text.size() - 1);  // one line
    EXPECT_EQ(json::parse(text)["records"], json::parse(R"([{"record": "summary", "total_of_pd": 4},
        {"record": "controller", "name": "a", "name_2": "b", "pcie_links": [{"record": "pcie_link", "up": true}]}])"));
}

// The labelled fields themselves show in every command's output; the sizes and
// counters here are past what a simulated controller reports.
TEST(Fields, DeviceTextsCountersAndSizes)
{
    // 2^31 * 2^33 wraps to 0 in 64 bits.
    EXPECT_EQ(sizeInGigabytes(0x80000000u, 0x200000000ull), 0);
    const KRT_U8 padded[8] = {' ', ' ', 'S', 'N', '1', ' ', ' ', ' '};
    EXPECT_EQ(boundedTextNoLeadingBlanks(padded, sizeof(padded)), "SN1   ");
    EXPECT_EQ(boundedTextNoLeadingBlanks(padded, 2), "");
    const struct {
        KRT_U8 bytes[16];
        const char *decimal;
    } counters[] = {
        {{}, "0"},
        {{0x15, 0xCD, 0x5B, 0x07}, "123456789"},
        {{0, 0, 0, 0, 0, 0, 0, 0, 1}, "18446744073709551616"},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
         "340282366920938463463374607431768211455"},
    };
    for (const auto &c : counters)
        EXPECT_EQ(decimal128(c.bytes), c.decimal);
}

// An image of `length` bytes starting with these little-endian words.
Bytes words(std::initializer_list<KRT_U32> values, std::size_t length)
{
    Bytes image(length, 0);
    std::size_t at = 0;
    for (KRT_U32 v : values) {
        for (int b = 0; b < 4; ++b)
            image[at + b] = static_cast<KRT_U8>(v >> (8 * b));
        at += 4;
    }
    return image;
}

TEST(FirmwareImage, ChecksumAndCrc)
{
    // The wrapping sum of the words, 0 for a good image; 1 for no whole blocks.
    const std::pair<Bytes, KRT_U32> sums[] = {
        {{}, 0},  // no words: nothing to object to
        {words({}, 5000), 1},
        {words({0xFFFFFFFF, 1}, 4096), 0},
        {words({0x01020304, 0x10}, 4096), 0x01020314},
    };
    for (const auto &[image, result] : sums)
        EXPECT_EQ(checksumResult(image.empty() ? nullptr : image.data(), image.size()), result) << image.size();
    EXPECT_EQ(checksumResult(nullptr, 4096), 1u) << "an image that could not be read";

    const std::string check = "123456789";
    const auto *digits = reinterpret_cast<const KRT_U8 *>(check.data());
    // The standard CRC-32 check value 0xCBF43926, without its final inversion.
    EXPECT_EQ(crc32(0xFFFFFFFF, digits, 9), 0x340BC6D9u);
    EXPECT_EQ(crc32(crc32(0xFFFFFFFF, digits, 4), digits + 4, 5), 0x340BC6D9u) << "a CRC carries on from its seed";
    // The controller's form: zero padding to whole blocks, bytes swapped.
    const Bytes zeros(4096, 0);
    EXPECT_EQ(crcMake(zeros.data(), 4096), 0xEEFFE338u);
    EXPECT_EQ(crcMake(zeros.data(), 1), 0xEEFFE338u) << "one byte padded to a block";
    EXPECT_EQ(crcMake(nullptr, 0), 0xFFFFFFFFu);
}

}  // namespace
