// The size arithmetic and the bounded readers of device texts, at their
// edges no simulated controller reaches.
#include <gtest/gtest.h>

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

}  // namespace
