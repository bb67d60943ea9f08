// The raw-image checksum and the CRC of controller firmware against known
// values, with images no user would make.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "firmware/image.h"

namespace {

using Bytes = std::vector<KRT_U8>;

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
