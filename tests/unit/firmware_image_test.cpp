// Controller firmware updates below what the controller sees: the raw-image
// checksum and the CRC against known values, how the worker cuts an image
// into segments and counts its percentage, and the progress record the
// foreground polls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "api/krt_api.h"
#include "device/device_management.h"
#include "firmware/flash.h"
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
    const struct {
        Bytes image;
        KRT_U32 result;
    } sums[] = {
        {{}, 0},  // no words: nothing to object to
        {words({}, 5000), 1},
        {words({}, 8192), 0},
        {words({0xFFFFFFFF, 1}, 4096), 0},
        {words({0x01020304, 0x10}, 4096), 0x01020314},
    };
    for (const auto &s : sums)
        EXPECT_EQ(checksumResult(s.image.empty() ? nullptr : s.image.data(), s.image.size()), s.result)
            << s.image.size();
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

// Records each download segment with the percentage shown when it left.
class RecordingDevice final : public Device {
  public:
    struct Segment {
        Bytes data;
        int percentage;
    };
    std::vector<Segment> segments;
    _KRTProgressBar bar;

    KRT_U32 sendCommand(KRT_U8, KRT_U32, const KRT_U32 *, KRT_U8, const void *in, KRT_U16 inLen, void *,
                        KRT_U16) override
    {
        const auto *bytes = static_cast<const KRT_U8 *>(in);
        segments.push_back({{bytes, bytes + inLen}, bar.getPercentage()});
        return 0;
    }
    KRT_U32 sendNVM(KRT_U8, KRT_U32, const KRT_U32 *, KRT_U8, const void *, KRT_U16, void *, KRT_U16) override
    {
        return 1;
    }
    KRT_U32 sendPassthruAdmin(const krt_admin_command_format *, const void *, KRT_U16, void *, KRT_U16) override
    {
        return 1;
    }
    void closeHandle() override {}
    Device *getNVMEDevice() override { return this; }
};

TEST(FirmwareDownload, FiveThousandBytesGoOutAsTwoWholeSegments)
{
    Bytes image(5000);
    for (std::size_t i = 0; i < image.size(); ++i)
        image[i] = static_cast<KRT_U8>(i % 251);
    const std::string path = ::testing::TempDir() + std::to_string(getpid()) + "five_thousand.bin";
    std::FILE *f = std::fopen(path.c_str(), "wb");
    std::fwrite(image.data(), 1, image.size(), f);
    std::fclose(f);

    RecordingDevice device;
    _KRTFlash *flash = CreateKRTFlashAdapterInstance(1, 1, 0);
    flash->m_d = &device;
    flash->m_progress = &device.bar;
    ASSERT_EQ(flash->m_file->open_for_read(path.c_str(), flash->m_segment_size), 0);
    flash->m_total_size = 5000;
    flash->download();
    flash->destructor();
    std::remove(path.c_str());

    ASSERT_EQ(device.segments.size(), 2u);
    EXPECT_EQ(device.segments[0].data, Bytes(image.begin(), image.begin() + 4096));
    // The last 904 bytes of the file, then what the first segment left behind.
    Bytes second(image.begin(), image.begin() + 4096);
    std::copy(image.begin() + 4096, image.end(), second.begin());
    EXPECT_EQ(device.segments[1].data, second);
    // 4096 * 98 / 5000 + 1, then 8192 * 98 / 5000 + 1: past 100, kept as is.
    EXPECT_EQ(device.segments[1].percentage, 81);
    EXPECT_EQ(device.bar.getPercentage(), 161);
}

TEST(FlashProgress, RunningFromStartUntilTheWorkerClosesItsOwnBar)
{
    static std::atomic<bool> open{false};
    const auto worker = [](_KRTProgressBar *bar, void *) {
        while (!open.load())
            std::this_thread::yield();
        bar->setPercentage(42);
        bar->setResult(0x10B);
        bar->closeThread();  // from the worker itself: marks, does not wait for itself
    };
    _KRTProgressBar *bar = progressbar_management_get_instance(3);
    ASSERT_EQ(progressbar_management_get_instance(256 + 3), bar) << "one bar per controller number";
    bar->setPercentage(7);
    bar->setResult(9);
    ASSERT_EQ(bar->startThread(worker, nullptr, 0), 0);
    _NVME_Flash_Result seen{};
    ASSERT_EQ(KRT_Adapter_Flash_Result(3, &seen), 0u);
    EXPECT_EQ((std::vector<KRT_U32>{seen.status, seen.result, seen.percentage}), (std::vector<KRT_U32>{1, 0, 0}))
        << "running as soon as it is started";

    open = true;
    bar->closeThread();
    ASSERT_EQ(KRT_Adapter_Flash_Result(3, &seen), 0u);
    EXPECT_EQ((std::vector<KRT_U32>{seen.status, seen.result, seen.percentage}), (std::vector<KRT_U32>{0, 0x10B, 42}));
    progressbar_management_close();
    EXPECT_EQ(KRT_Adapter_Flash_Result(3, &seen), 1u) << "no bar any more";
}

}  // namespace
