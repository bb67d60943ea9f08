// The controller update worker: how an image is cut into segments and the
// percentage it shows, the commit sent on its own, and the progress record
// the foreground polls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "api/krt_api.h"
#include "device/device_management.h"
#include "firmware/flash.h"
#include "transport_fake_driver.h"

namespace {

// Records each download segment with the percentage shown when it left.
class RecordingDevice final : public Device {
  public:
    struct Segment {
        std::vector<KRT_U32> cdws;
        std::vector<KRT_U8> data;
        int percentage;
    };
    std::vector<Segment> segments;
    _KRTProgressBar bar;

    KRT_U32 sendCommand(KRT_U8, KRT_U32, const KRT_U32 *cdws, KRT_U8 count, const void *in, KRT_U16 inLen, void *,
                        KRT_U16) override
    {
        const auto *bytes = static_cast<const KRT_U8 *>(in);
        segments.push_back({{cdws, cdws + count}, {bytes, bytes + inLen}, bar.getPercentage()});
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
    std::vector<KRT_U8> image(5000);
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
    EXPECT_EQ(device.segments[0].data, std::vector<KRT_U8>(image.begin(), image.begin() + 4096));
    // The last 904 bytes of the file, then what the first segment left behind.
    std::vector<KRT_U8> second(image.begin(), image.begin() + 4096);
    std::copy(image.begin() + 4096, image.end(), second.begin());
    EXPECT_EQ(device.segments[1].data, second);
    // 4096 * 98 / 5000 + 1, then 8192 * 98 / 5000 + 1: past 100, kept as is.
    EXPECT_EQ(device.segments[1].percentage, 81);
    EXPECT_EQ(device.bar.getPercentage(), 161);
}

TEST(FlashWorker, CommitOnlyWhenThereIsNoImageToSend)
{
    fake::Installed installed;
    fake::scan({fake::managedAdapter("vmhba1")});
    // An image that cannot be opened: what goes out is one Firmware Commit
    // of (commit action 3, slot 1).
    fake::driver().requests.clear();
    EXPECT_EQ(KRT_Adapter_Flash(0, "/nonexistent/fw.bin", 1, 3, 0), 0u);
    progressbar_management_get_instance(0)->closeThread();  // waits for the worker
    _NVME_Flash_Result result{};
    ASSERT_EQ(KRT_Adapter_Flash_Result(0, &result), 0u);
    EXPECT_EQ(result.result, 0u);
    ASSERT_EQ(fake::driver().requests.size(), 1u);
    EXPECT_EQ(fake::dwords(fake::driver().requests[0].io, 0, 1), std::vector<KRT_U32>{0x10});
    EXPECT_EQ(fake::driver().requests[0].io.cmd[10], 0x19u);
    progressbar_management_close();
    GetDeviceManagementInstance()->Final();
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
