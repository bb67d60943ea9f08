// The size arithmetic, the bounded readers of device texts and the exact
// 128-bit counters, at their edges no simulated controller reaches, and what
// the writer's JSON-minded fields leave in the text.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "util/fields.h"

namespace {

TEST(Fields, SizeWrapsInsteadOfOverflowing)
{
    // 2^31 * 2^33 wraps to 0 in 64 bits.
    EXPECT_EQ(sizeInGigabytes(0x80000000u, 0x200000000ull), 0);
}

TEST(Fields, LeadingBlanksOfDeviceTextsAreDropped)
{
    const KRT_U8 padded[8] = {' ', ' ', 'S', 'N', '1', ' ', ' ', ' '};
    EXPECT_EQ(boundedTextNoLeadingBlanks(padded, sizeof(padded)), "SN1   ");
    const KRT_U8 blank[3] = {' ', ' ', ' '};
    EXPECT_EQ(boundedTextNoLeadingBlanks(blank, sizeof(blank)), "");
}

TEST(Fields, CountersWiderThan64BitsAreExact)
{
    const struct {
        KRT_U8 bytes[16];
        const char *decimal;
    } cases[] = {
        {{}, "0"},
        {{1}, "1"},
        {{0, 0, 0, 0, 0, 0, 0, 0, 1}, "18446744073709551616"},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
         "340282366920938463463374607431768211455"},
        {{0x15, 0xCD, 0x5B, 0x07}, "123456789"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(decimal128(c.bytes), c.decimal);
}

// The text of a writer's lines, through a memory stream.
template <class Write>
std::string written(int width, Write write)
{
    char *buffer = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&buffer, &size);
    write(FieldWriter(out, width));
    std::fclose(out);
    std::string text(buffer, size);
    std::free(buffer);
    return text;
}

TEST(Fields, JsonMindedFieldsPrintTheirTextAlone)
{
    using json_output::Value;
    EXPECT_EQ(written(6, [](const FieldWriter &out) { out.typed("PDs:", "0 ? ", Value::null(), "pd_ids"); }),
              "PDs:   0 ? \n");
    EXPECT_EQ(written(7, [](const FieldWriter &out) { out.choice("Cache:", "On ", 1); }), "Cache:  On \n");
    EXPECT_EQ(written(0,
                      [](const FieldWriter &out) {
                          out.extra("index", Value::number(1));
                          out.heading("== heading ==\n");
                          out.beginRecord("x");
                          out.endRecord();
                      }),
              "== heading ==\n");
    // No stream: a record only the JSON output shows.
    const FieldWriter none(nullptr, 4);
    none.num("A:", 1);
    none.str("B:", "b");
    none.heading("c\n");
}

}  // namespace
