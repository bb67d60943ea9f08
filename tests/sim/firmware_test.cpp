// Firmware of the controller and of its SSDs, and the maintenance requests.
#include <gtest/gtest.h>

#include "sim_client.h"

using namespace krt_sim_test;

namespace {

// Downloads an image in 4096-byte chunks as the controller path does.
KRT_U32 downloadImage(const LibMachine &m, const std::vector<KRT_U8> &image)
{
    for (size_t offset = 0; offset < image.size(); offset += 4096) {
        std::vector<KRT_U8> chunk(image.begin() + static_cast<long>(offset),
                                  image.begin() + static_cast<long>(std::min(image.size(), offset + 4096)));
        chunk.resize(4096);
        const auto dword = static_cast<KRT_U32>(offset / 4);
        if (KRT_U32 status = m.send(cmd({{0, NVME_ADMIN_FW_DOWNLOAD}, {10, 1023}, {11, dword}}), chunk); status != 0)
            return status;
    }
    return 0;
}

Words commit(KRT_U32 cdw10)
{
    return cmd({{0, NVME_ADMIN_FW_COMMIT}, {10, cdw10}});
}

}  // namespace

TEST(SimFirmware, ControllerDownloadCommitAndSlots)
{
    LibMachine m("raid");
    EXPECT_EQ(m.send(commit(1 << 3 | 2)), 0x107u) << "nothing downloaded";
    EXPECT_EQ(m.send(commit(3 << 3 | 2)), 0x106u) << "nothing downloaded and nothing in slot 2 to activate";
    std::vector<KRT_U8> image(9000, 0x5A);
    const std::string marker = "KRTFW:3.4.5.6;";
    std::copy(marker.begin(), marker.end(), image.begin() + 100);
    ASSERT_EQ(downloadImage(m, image), 0u);
    EXPECT_EQ(m.send(commit(3 << 3 | 2)), 0u);
    auto info = record<_NVME_Adapter_Info>(m.query(krt_cdw12(0xE0, 0, 0)));
    EXPECT_EQ(info.FirmwareVersion.MajorVersion, 3);
    EXPECT_EQ(info.FirmwareVersion.BuildNumber, 6);
    std::array<KRT_U8, 512> slots{};
    ASSERT_EQ(m.read(cmd({{0, NVME_ADMIN_GET_LOG_PAGE}, {1, 0xFFFFFFFF}, {10, 0x007F0003}}), slots), 0u);
    EXPECT_EQ(slots[0], 2);
    EXPECT_EQ(text(slots.data() + 16, 7), "3.4.5.6");
    EXPECT_EQ(m.send(commit(1 << 3 | 3)), 0x107u) << "a commit uses the image up";

    // Zero bytes only: no image, neither to store nor to activate, for the
    // controller and for an SSD.
    const std::vector<KRT_U8> blank(4096, 0);
    ASSERT_EQ(downloadImage(m, blank), 0u);
    EXPECT_EQ(m.send(commit(1 << 3 | 3)), 0x107u);
    EXPECT_EQ(m.send(commit(3 << 3 | 2)), 0x107u) << "not slot 2's image instead";
    const Words toDisk = cmd({{0, KRT_PD_CMD_TO_DISK}, {1, 1}, {10, 1023}, {14, NVME_ADMIN_FW_DOWNLOAD}});
    ASSERT_EQ(m.send(toDisk, blank), 0u);
    EXPECT_EQ(m.send(cmd({{0, KRT_PD_CMD_TO_DISK}, {1, 1}, {10, 1 << 3 | 2}, {14, NVME_ADMIN_FW_COMMIT}})), 0x107u);
}

TEST(SimFirmware, RawImageActivationChecksTheCrc)
{
    LibMachine m("raid");
    std::vector<KRT_U8> image(8192, 0);  // words that sum to zero, as a raw image must
    image[0] = 1;
    std::fill(image.begin() + 4, image.begin() + 8, 0xFF);
    ASSERT_EQ(downloadImage(m, image), 0u);
    KRT_U32 crc = 0xFFFFFFFFu;
    for (KRT_U8 byte : image) {
        crc ^= byte;
        for (int k = 0; k < 8; ++k)
            crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    Words words = cmd({{0, KRT_VENDOR_OPCODE}, {12, 1 << 16 | 0x0BE0}, {13, 0x2054524B}});
    words[15] = __builtin_bswap32(crc) ^ 1;
    EXPECT_EQ(m.send(words), 0x704u);
    words[15] = __builtin_bswap32(crc);
    EXPECT_EQ(m.send(words), 0u);
    EXPECT_EQ(m.send(commit(1 << 3 | 1)), 0u);
}

TEST(SimMaintenance, SettingsLedsImportsAndGpio)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pds": [{}, {}, {"importable": true}],
        "vds": [{"raid": "raid1", "members": [0, 1], "importable": true, "status": "foreign"}]}]})");
    LibMachine m(dir.file("f.json"));
    const std::tuple<const char *, KRT_U32, KRT_U32, KRT_U32> cases[] = {
        {"settings: BGA rate 32, auto rebuild off", 0x000002E0, 32 << 8 | 0, 0},
        {"LED of slot 2 on", 0x000007E1, 1 << 16 | 2, 0},
        {"LED of a missing slot", 0x000007E1, 1 << 16 | 9, 0x706},
        {"import VD 0", 0x000006E2, 0, 0},
        {"VD 0 again: already in the table", 0x000006E2, 0, 0x739},
        {"invert GPIO", 0x000119E0, 0, 0},
    };
    for (const auto &[what, cdw12, cdw14, status] : cases)
        EXPECT_EQ(m.act(cdw12, 0, cdw14), status) << what;

    Reply reply = m.query(0x000001E0);
    EXPECT_EQ(reply[8], 0);
    EXPECT_EQ(reply[9], 32);
    EXPECT_EQ(m.query(0x00001AE0)[0], 1) << "GPIO inverted, answered without an envelope";
    EXPECT_EQ(m.query(krt_cdw12(0xE2, 0, 0))[8 + 2], KRT_VD_FUNCTIONAL) << "imported";
}
