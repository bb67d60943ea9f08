// The NVMe and paired-command devices against an in-process driver.
#include <gtest/gtest.h>

#include <cstring>

#include "device/device.h"
#include "device/nvme_device.h"
#include "platform/nvme_lib.h"
#include "transport_fake_driver.h"

namespace {

using Words = std::vector<KRT_U32>;

class Transport : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake::driver().adapters.push_back(fake::managedAdapter("vmhba1"));
        ASSERT_EQ(Nvme_GetAdapterList(adapterList()), 0);
        dev = CreateNVMEDeviceInstance("vmhba1", 0);
        ASSERT_NE(dev, nullptr);
    }
    void TearDown() override
    {
        dev->closeHandle();
        EXPECT_EQ(fake::driver().openHandles, 0) << "every driver handle is closed after its command";
    }
    const std::vector<fake::Request> &requests() { return fake::driver().requests; }
    fake::Adapter &adapter() { return fake::driver().adapters[0]; }

    fake::Installed installed;
    Device *dev = nullptr;
};

TEST_F(Transport, OpcodeFilterMapsAndTimesOut)
{
    const struct {
        KRT_U8 opcode, wire;  // wire 0: refused without a request
        KRT_U64 timeout;
    } cases[] = {
        {2, 2, 100000000},   {6, 6, 100000000},     {13, 13, 100000000},
        {21, 21, 100000000}, {128, 128, 100000000}, {199, 199, 100000000},
        {17, 17, 100000000}, {29, 29, 100000000},   {30, 30, 100000000},
        {16, 16, 200000000}, {251, 203, 100000000}, {252, 206, 100000000},
        {9, 0, 0},           {0xE2, 0, 0},          {203, 0, 0},
        {0, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(static_cast<int>(c.opcode));
        fake::driver().requests.clear();
        KRT_U8 out[64] = {};
        EXPECT_EQ(dev->sendCommand(c.opcode, 0, nullptr, 0, nullptr, 0, out, sizeof out), c.wire != 0 ? 0u : 1u);
        ASSERT_EQ(requests().size(), c.wire != 0 ? 1u : 0u);
        if (c.wire != 0) {
            EXPECT_EQ(requests()[0].io.cmd[0], c.wire);
            EXPECT_EQ(requests()[0].io.timeoutUs, c.timeout);
        }
    }
}

TEST_F(Transport, CommandWordsStatusAndOneDataDirection)
{
    const KRT_U32 words[8] = {10, 11, 12, 13, 14, 15, 16, 17};
    KRT_U8 in[32] = {0xAB}, out[32] = {};
    ASSERT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 7, words, 8, in, sizeof in, out, sizeof out), 0u);
    const usr_io &io = requests().back().io;
    EXPECT_EQ(io.cmd[1], 7u);
    EXPECT_EQ(fake::dwords(io, 10, 16), Words(words, words + 6));
    // Input wins: the output buffer is never handed to the driver.
    EXPECT_EQ(io.direction, XFER_TO_DEV);
    EXPECT_EQ(io.addr, reinterpret_cast<KRT_U64>(in));
    EXPECT_EQ(io.length, sizeof in);

    adapter().completionDw3 = nvme_comp_dw3(1, 7);
    adapter().driverStatus = 5;
    EXPECT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0, words, 1, nullptr, 0, out, sizeof out), 0x107u);
    EXPECT_EQ(requests().back().io.direction, XFER_FROM_DEV);
    EXPECT_EQ(requests().back().io.addr, reinterpret_cast<KRT_U64>(out));
    adapter().completionDw3 = 0;  // a failed driver call with a clean completion counts as success
    EXPECT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0, words, 1, nullptr, 0, out, sizeof out), 0u);
}

TEST_F(Transport, PassthruCarriesOnlyTheWordsTheControllerSees)
{
    krt_admin_command_format cmd{};
    for (KRT_U32 i = 0; i < 18; ++i)
        cmd.CDW[i] = 0x100u + i;
    cmd.cdw_flag = 0xFFFF;
    // Any opcode goes through the raw form, and a commit keeps the usual wait.
    for (KRT_U32 opcode : {0x7Fu, KRT_U32{NVME_ADMIN_FW_COMMIT}}) {
        cmd.CDW[0] = opcode;
        ASSERT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0), 0u);
        const usr_io &io = requests().back().io;
        EXPECT_EQ(io.timeoutUs, 100000000u);
        EXPECT_EQ(fake::dwords(io, 0, 16),
                  (Words{opcode, 0x101, 0x102, 0, 0, 0, 0, 0, 0, 0, 0x10A, 0x10B, 0x10C, 0x10D, 0x10E, 0x10F}));
    }
}

class PairTransport : public Transport {
  protected:
    void SetUp() override
    {
        Transport::SetUp();
        dev = CreatePairCMDDeviceInstance(dev);  // owns the NVMe device from here on
        ASSERT_NE(dev, nullptr);
    }
};

TEST_F(PairTransport, RequestHeadAndSendReceiveWords)
{
    const KRT_U32 words[6] = {0x123E1, 0x45602, 0x789AB, 0xCDEF0, 0x11111, 0x22222};
    const KRT_U8 in[5] = {0x5A, 1, 2, 3, 4};
    KRT_U8 out[8] = {};
    ASSERT_EQ(dev->sendCommand(KRT_PAIR_REQUEST_OPCODE, 9, words, 6, in, sizeof in, out, sizeof out), 0u);
    ASSERT_EQ(requests().size(), 2u);
    KRT_U32 zolt, krt;
    std::memcpy(&zolt, "ZOLT", 4);
    std::memcpy(&krt, "KRT\0", 4);
    const usr_io &send = requests()[0].io, &receive = requests()[1].io;
    EXPECT_EQ(fake::dwords(send, 0, 2), (Words{203, 0}));
    EXPECT_EQ(fake::dwords(send, 10, 16), (Words{1024, zolt, 0x560223E1u, 0x5Au << 16, 0, krt}));
    EXPECT_EQ(fake::dwords(receive, 0, 1), (Words{206}));
    EXPECT_EQ(fake::dwords(receive, 10, 16), (Words{0, 0, 0, 0, 0, krt}));
    EXPECT_EQ((Words{send.direction, send.length, receive.direction, receive.length}),
              (Words{XFER_TO_DEV, 4096, XFER_FROM_DEV, 4096}));

    // Signature, four command words at most, head size, input length, the
    // low halves of the words, then the input.
    const std::vector<KRT_U8> head = {'K',  'R',  'T',  0,    4,    16,   5, 0, 0xE1, 0x23, 0x02,
                                      0x56, 0xAB, 0x89, 0xF0, 0xDE, 0x5A, 1, 2, 3,    4};
    ASSERT_EQ(requests()[0].sent.size(), 4096u);
    EXPECT_EQ(std::vector<KRT_U8>(requests()[0].sent.begin(), requests()[0].sent.begin() + 21), head);
}

TEST_F(PairTransport, ReplyEnvelopeAndFailedSend)
{
    fake::Page &reply = adapter().pairReply;
    for (std::size_t i = 8; i < 16; ++i)
        reply[i] = static_cast<KRT_U8>(0xA0 + i);
    const KRT_U32 words[2] = {KRT_CLASS_ADAPTER, 0};
    const struct {
        const char *name;
        KRT_U8 sign0, status;
        KRT_U32 rc;
    } cases[] = {{"good", 'K', 0, 0}, {"status byte", 'K', 3, 3}, {"bad signature", 'X', 0, 1}};
    for (const auto &c : cases) {
        reply[0] = c.sign0;
        reply[4] = c.status;
        KRT_U8 out[8];
        std::memset(out, 0xEE, sizeof out);
        EXPECT_EQ(dev->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, nullptr, 0, out, sizeof out), c.rc);
        EXPECT_EQ(out[0], c.rc == 0 ? 0xA8 : 0xEE) << c.name;
        EXPECT_EQ(out[7], c.rc == 0 ? 0xAF : 0xEE) << c.name;
    }

    fake::driver().requests.clear();
    adapter().completionDw3 = nvme_comp_dw3(0, 6);
    adapter().driverStatus = 1;
    EXPECT_EQ(dev->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, nullptr, 0, nullptr, 0), 1u);
    EXPECT_EQ(requests().size(), 1u) << "no receive after a failed send";
}

}  // namespace
