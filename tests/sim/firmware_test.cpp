// Firmware of the controller and of its SSDs, and the maintenance requests.
#include <gtest/gtest.h>

#include <string>

#include "krt/records.h"
#include "sim_machine.h"

using krt_sim_test::LibMachine;

namespace {

const char *const kSig = "nvmeMgmt-vmhba1";

KRT_U32 send(LibMachine &m, std::array<KRT_U32, 16> cmd, std::vector<KRT_U8> data = {})
{
    return m.client()
        .admin(kSig, cmd, XFER_TO_DEV, data.empty() ? nullptr : data.data(), static_cast<KRT_U32>(data.size()))
        .compStatus;
}

// Downloads an image in 4096-byte chunks as the controller path does.
KRT_U32 downloadImage(LibMachine &m, const std::vector<KRT_U8> &image, KRT_U8 opcode = NVME_ADMIN_FW_DOWNLOAD,
                      KRT_U32 disk = 0)
{
    for (size_t offset = 0; offset < image.size(); offset += 4096) {
        std::vector<KRT_U8> chunk(4096, 0);
        std::copy(image.begin() + static_cast<long>(offset),
                  image.begin() + static_cast<long>(std::min(image.size(), offset + 4096)), chunk.begin());
        std::array<KRT_U32, 16> cmd{};
        cmd[0] = opcode;
        cmd[1] = disk;
        cmd[10] = 1023;
        cmd[11] = static_cast<KRT_U32>(offset / 4);
        cmd[14] = NVME_ADMIN_FW_DOWNLOAD;
        if (KRT_U32 status = send(m, cmd, chunk); status != 0)
            return status;
    }
    return 0;
}

std::vector<KRT_U8> imageWithVersion(const std::string &version, size_t size)
{
    std::vector<KRT_U8> image(size, 0x5A);
    const std::string marker = "KRTFW:" + version + ";";
    std::copy(marker.begin(), marker.end(), image.begin() + 100);
    return image;
}

_NVME_Adapter_Info adapterInfo(LibMachine &m)
{
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE0, 0, 0), 0, reply);
    _NVME_Adapter_Info info;
    std::memcpy(&info, reply.data() + 8, sizeof info);
    return info;
}

std::array<KRT_U8, 512> slotLog(LibMachine &m)
{
    std::array<KRT_U8, 512> log{};
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = NVME_ADMIN_GET_LOG_PAGE;
    cmd[1] = 0xFFFFFFFF;
    cmd[10] = 0x007F0003;
    m.client().admin(kSig, cmd, XFER_FROM_DEV, log.data(), log.size());
    return log;
}

std::array<KRT_U32, 16> commitCmd(KRT_U32 cdw10)
{
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = NVME_ADMIN_FW_COMMIT;
    cmd[10] = cdw10;
    return cmd;
}

KRT_U32 act(LibMachine &m, KRT_U32 cdw12, KRT_U32 cdw14 = 0)
{
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = KRT_VENDOR_OPCODE;
    cmd[12] = cdw12;
    cmd[14] = cdw14;
    return send(m, cmd);
}

}  // namespace

TEST(SimFirmware, ControllerDownloadCommitAndSlots)
{
    LibMachine m("raid");
    EXPECT_EQ(send(m, commitCmd(3 << 3 | 2)), 0x107u) << "nothing downloaded";
    ASSERT_EQ(downloadImage(m, imageWithVersion("3.4.5.6", 9000)), 0u);
    EXPECT_EQ(send(m, commitCmd(3 << 3 | 2)), 0u);
    _NVME_Adapter_Info info = adapterInfo(m);
    EXPECT_EQ(info.FirmwareVersion.MajorVersion, 3);
    EXPECT_EQ(info.FirmwareVersion.BuildNumber, 6);
    auto log = slotLog(m);
    EXPECT_EQ(log[0], 2);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(log.data() + 16), 7), "3.4.5.6");
    EXPECT_EQ(send(m, commitCmd(3 << 3 | 2)), 0x107u) << "a commit uses the image up";

    // Commit for the next reset: the running version stays.
    ASSERT_EQ(downloadImage(m, std::vector<KRT_U8>(4096, 1)), 0u);
    EXPECT_EQ(send(m, commitCmd(1 << 3 | 3)), 0u);
    log = slotLog(m);
    EXPECT_EQ(log[0], 2 | 3 << 4);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(log.data() + 24), 7), "3.4.5.7");
    EXPECT_EQ(adapterInfo(m).FirmwareVersion.BuildNumber, 6);

    EXPECT_EQ(send(m, commitCmd(2 << 3 | 6)), 0x106u) << "empty slot";
    EXPECT_EQ(send(m, commitCmd(1 << 3 | 0)), 0x107u);
    EXPECT_EQ(send(m, commitCmd(6 << 3 | 1)), 0x2u);

    // Out-of-order and overlapping chunks.
    std::array<KRT_U32, 16> dl{};
    dl[0] = NVME_ADMIN_FW_DOWNLOAD;
    dl[10] = 1023;
    std::vector<KRT_U8> chunk(4096, 7);
    ASSERT_EQ(send(m, dl, chunk), 0u);
    EXPECT_EQ(send(m, dl, std::vector<KRT_U8>(100, 0)), 0x2u) << "length beyond the data";
    dl[11] = 1024;
    ASSERT_EQ(send(m, dl, chunk), 0u);
    EXPECT_EQ(send(m, dl, chunk), 0x114u);
    dl[11] = 4096;
    ASSERT_EQ(send(m, dl, chunk), 0u);
    EXPECT_EQ(send(m, commitCmd(0 << 3 | 2)), 0x107u) << "a gap breaks the image";
}

TEST(SimFirmware, RawImageActivationChecksTheCrc)
{
    LibMachine m("raid");
    // Words that sum to zero, as a raw image must.
    std::vector<KRT_U8> image(8192, 0);
    image[0] = 1;
    image[4] = 0xFF;
    image[5] = 0xFF;
    image[6] = 0xFF;
    image[7] = 0xFF;
    ASSERT_EQ(downloadImage(m, image), 0u);
    KRT_U32 crc = 0xFFFFFFFFu;
    for (KRT_U8 byte : image) {
        crc ^= byte;
        for (int k = 0; k < 8; ++k)
            crc = (crc & 1) ? 0xEDB88320u ^ (crc >> 1) : crc >> 1;
    }
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = KRT_VENDOR_OPCODE;
    cmd[12] = 1 << 16 | 0x0BE0;
    cmd[13] = 0x2054524B;
    cmd[15] = __builtin_bswap32(crc) ^ 1;
    EXPECT_EQ(send(m, cmd), 0x704u);
    cmd[15] = __builtin_bswap32(crc);
    EXPECT_EQ(send(m, cmd), 0u);
    EXPECT_EQ(send(m, commitCmd(1 << 3 | 1)), 0u);
}

TEST(SimFirmware, DiskFirmwareThroughTheBackEnd)
{
    LibMachine m("raid");
    ASSERT_EQ(downloadImage(m, imageWithVersion("2.0.0", 5000), KRT_PD_CMD_TO_DISK, 3), 0u);
    std::array<KRT_U32, 16> commit{};
    commit[0] = KRT_PD_CMD_TO_DISK;
    commit[1] = 3;
    commit[10] = 3 << 3 | 2;
    commit[14] = NVME_ADMIN_FW_COMMIT;
    EXPECT_EQ(send(m, commit), 0u);
    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, krt_cdw12(0xE1, 0, 0), 3, reply);
    _NVME_PD_Info pd;
    std::memcpy(&pd, reply.data() + 8, sizeof pd);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(pd.FWVersion), 8), "2.0.0   ");
    commit[10] = 3 << 3 | 4;
    EXPECT_EQ(send(m, commit), 0x106u) << "an SSD has three slots";
    commit[1] = 20;
    EXPECT_EQ(send(m, commit), 0x706u);

    // Slot state through the forwarded Identify and Get Log Page.
    std::array<KRT_U32, 16> query{};
    query[0] = KRT_PD_CMD_FROM_DISK;
    query[1] = 3;
    query[10] = 0x007F0003;
    query[14] = NVME_ADMIN_GET_LOG_PAGE;
    query[15] = 0xFFFFFFFF;
    std::array<KRT_U8, 512> log{};
    ASSERT_EQ(m.client().admin(kSig, query, XFER_FROM_DEV, log.data(), log.size()).compStatus, 0u);
    EXPECT_EQ(log[0], 2);
}

TEST(SimMaintenance, SettingsLedsResetsImportsAndGpio)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"pds": [{}, {}, {"importable": true}],
        "vds": [{"raid": "raid1", "members": [0, 1], "importable": true, "status": "foreign"}]}]})");
    LibMachine m(dir.file("f.json"));
    struct Case {
        KRT_U32 cdw12;
        KRT_U32 cdw14;
        KRT_U32 status;
    } cases[] = {
        {0x000002E0, 32 << 8 | 0, 0},  // settings: BGA rate low, auto rebuild off
        {0x000003E0, 0x1234, 0},       // time
        {0x000007E1, 1 << 16 | 2, 0},  // LED of slot 2 on
        {0x000007E1, 1 << 16 | 9, 0x706}, {0x000007E1, 7 << 16 | 2, 0x704},
        {0x000008E1, 1 << 16 | 1, 0},                          // power cycle slot 1
        {0x000008E1, 5 << 16 | 1, 0x704}, {0x000006E2, 0, 0},  // import VD 0
        {0x000006E2, 0, 0x739},                                // already in the table
        {0x000006E2, 4, 0x707},           {0x000009E1, 2, 0},  // namespace table of PD 2
        {0x000009E1, 2, 0x738},           {0x000119E0, 0, 0},  // invert GPIO
        {0x000219E0, 0, 0x704},
    };
    for (const Case &c : cases)
        EXPECT_EQ(act(m, c.cdw12, c.cdw14), c.status) << std::hex << c.cdw12 << " " << c.cdw14;

    std::array<KRT_U8, 4096> reply{};
    m.client().direct(kSig, 0x000001E0, 0, reply);
    EXPECT_EQ(reply[8], 0);
    EXPECT_EQ(reply[9], 32);
    m.client().direct(kSig, 0x00001AE0, 0, reply);
    EXPECT_EQ(reply[8], 1);
    m.client().direct(kSig, krt_cdw12(0xE2, 0, 0), 0, reply);
    EXPECT_EQ(reply[8 + 3], 0) << "no longer importable";
    EXPECT_EQ(reply[8 + 2], KRT_VD_FUNCTIONAL);
}
