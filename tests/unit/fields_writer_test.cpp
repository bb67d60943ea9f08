// The labelled-field writer and the bounded readers of device texts.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "util/fields.h"

namespace {

std::string render(int width, void (*write)(const FieldWriter &))
{
    char *data = nullptr;
    std::size_t size = 0;
    std::FILE *out = open_memstream(&data, &size);
    write(FieldWriter(out, width));
    std::fclose(out);
    std::string text(data, size);
    std::free(data);
    return text;
}

TEST(FieldWriter, RendersEachFormatWithThePaddedLabel)
{
    EXPECT_EQ(render(10, [](const FieldWriter &w) { w.num("Count:", -3); }), "Count:     -3\n");
    EXPECT_EQ(render(10, [](const FieldWriter &w) { w.str("Name:", "abc"); }), "Name:      abc\n");
    EXPECT_EQ(render(6, [](const FieldWriter &w) { w.gigabytes("size:", 931); }), "size:  931 GB\n");
    EXPECT_EQ(render(4, [](const FieldWriter &w) { w.yesNo("A:", true); }), "A:   Yes\n");
    EXPECT_EQ(render(4, [](const FieldWriter &w) { w.yesNo("A:", false); }), "A:   No\n");
    // A label wider than the column is not cut.
    EXPECT_EQ(render(2, [](const FieldWriter &w) { w.num("Long label:", 1); }), "Long label: 1\n");
}

TEST(FieldWriter, SizeIsBytesShiftedToGigabytesAndWrapsInsteadOfOverflowing)
{
    EXPECT_EQ(sizeInGigabytes(512, 2097152), 1);
    EXPECT_EQ(sizeInGigabytes(4096, 1953506646ull), 7452);
    EXPECT_EQ(sizeInGigabytes(0, 123456789), 0);
    // 2^32 * 2^32 wraps to 0 in 64 bits.
    EXPECT_EQ(sizeInGigabytes(0x80000000u, 0x200000000ull), 0);
}

TEST(FieldWriter, DeviceTextsAreBoundedByTheirFieldWidth)
{
    const KRT_U8 unterminated[4] = {'A', 'B', 'C', 'D'};
    EXPECT_EQ(boundedText(unterminated, sizeof(unterminated)), "ABCD");
    const KRT_U8 terminated[6] = {'x', 'y', 0, 'z', 'z', 'z'};
    EXPECT_EQ(boundedText(terminated, sizeof(terminated)), "xy");
    const KRT_U8 padded[8] = {' ', ' ', 'S', 'N', '1', ' ', ' ', ' '};
    EXPECT_EQ(boundedTextNoLeadingBlanks(padded, sizeof(padded)), "SN1   ");
    const KRT_U8 blank[3] = {' ', ' ', ' '};
    EXPECT_EQ(boundedTextNoLeadingBlanks(blank, sizeof(blank)), "");
}

}  // namespace
