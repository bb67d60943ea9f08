// Firmware images: the raw-image checksum, the CRC against known values,
// and the reader the download worker takes an image through.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "firmware/image.h"

namespace {

std::vector<KRT_U8> words(std::initializer_list<KRT_U32> values, std::size_t length)
{
    std::vector<KRT_U8> image(length, 0);
    std::size_t at = 0;
    for (KRT_U32 v : values) {
        for (int b = 0; b < 4; ++b)
            image[at + b] = static_cast<KRT_U8>(v >> (8 * b));
        at += 4;
    }
    return image;
}

std::string writeTemp(const std::string &name, const std::vector<KRT_U8> &bytes)
{
    const std::string path = ::testing::TempDir() + std::to_string(getpid()) + name;
    std::FILE *f = std::fopen(path.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return path;
}

TEST(FirmwareImage, ChecksumIsTheWrappingSumOfLittleEndianWords)
{
    EXPECT_EQ(checksumResult(nullptr, 0), 0u) << "no words: nothing to object to";
    EXPECT_EQ(checksumResult(words({}, 5000).data(), 5000), 1u) << "not whole blocks";
    EXPECT_EQ(checksumResult(words({}, 8192).data(), 8192), 0u);
    // 0xFFFFFFFF + 1 wraps to 0: a good image.
    EXPECT_EQ(checksumResult(words({0xFFFFFFFF, 1}, 4096).data(), 4096), 0u);
    EXPECT_EQ(checksumResult(words({0x01020304, 0x10}, 4096).data(), 4096), 0x01020314u);
    EXPECT_EQ(checksumResult(nullptr, 4096), 1u) << "an image that could not be read";
}

TEST(FirmwareImage, CrcAgainstKnownValues)
{
    const std::string check = "123456789";
    const auto *digits = reinterpret_cast<const KRT_U8 *>(check.data());
    // The standard CRC-32 check value 0xCBF43926, without its final inversion.
    EXPECT_EQ(crc32(0xFFFFFFFF, digits, 9), 0x340BC6D9u);
    EXPECT_EQ(crc32(crc32(0xFFFFFFFF, digits, 4), digits + 4, 5), 0x340BC6D9u) << "a CRC carries on from its seed";
    EXPECT_EQ(crc32(0x1234, nullptr, 0), 0x1234u);

    // The controller's form: zero padding to whole blocks, bytes swapped.
    const std::vector<KRT_U8> zeros(4096, 0);
    EXPECT_EQ(crcMake(zeros.data(), 4096), 0xEEFFE338u);
    EXPECT_EQ(crcMake(zeros.data(), 1), 0xEEFFE338u) << "one byte padded to a block";
    EXPECT_EQ(crcMake(nullptr, 0), 0xFFFFFFFFu);
    const std::vector<KRT_U8> image = words({0xDEADBEEF, 0x21524110}, 4096);
    EXPECT_EQ(crcMake(image.data(), 4096), __builtin_bswap32(crc32(0xFFFFFFFF, image.data(), 4096)));
}

TEST(FirmwareImage, ReaderCountsWholeStepsAndRefusesWhatIsNoImage)
{
    const std::string path = writeTemp("krt_reader.bin", {'a', 'b', 'c', 'd', 'e', 'f'});
    _KRTFileBuffer *reader = CreateKRTFileBufferInstance();
    // Single quotes around the name are not part of it.
    ASSERT_EQ(reader->open_for_read(("''" + path + "'").c_str(), 4), 0);
    reader->read();
    EXPECT_EQ(reader->get_file_length(), 6u);
    const KRT_U8 *step = reader->read();
    ASSERT_NE(step, nullptr) << "measuring keeps the position";
    EXPECT_EQ(std::string(step, step + 4), "efcd") << "a short read leaves the step before behind it";
    EXPECT_EQ(reader->get_offset(), 8u) << "and counts as a whole step";
    ASSERT_EQ(reader->open_for_read(path.c_str(), 0), 0);
    EXPECT_EQ(reader->read(), nullptr) << "no buffer for a step of 0";

    EXPECT_EQ(reader->open_for_read((path + ".missing").c_str(), 4), 1);
    EXPECT_EQ(reader->get_file_length(), 0u) << "nothing open";
    EXPECT_EQ(reader->open_for_read(::testing::TempDir().c_str(), 4), 1) << "a directory is no image";
    reader->close();
    std::remove(path.c_str());
}

}  // namespace
