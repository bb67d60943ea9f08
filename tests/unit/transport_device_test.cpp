// The NVMe and paired-command devices against an in-process driver.
#include <gtest/gtest.h>

#include <cstring>

#include "device/device.h"
#include "device/nvme_device.h"
#include "platform/nvme_lib.h"
#include "transport_fake_driver.h"

namespace {

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
        if (dev != nullptr)
            dev->closeHandle();
        EXPECT_EQ(fake::driver().openHandles, 0) << "every driver handle is closed after its command";
    }
    const fake::Request &last() { return fake::driver().requests.back(); }
    fake::Adapter &adapter() { return fake::driver().adapters[0]; }

    fake::Installed installed;
    Device *dev = nullptr;
};

TEST_F(Transport, OpcodeFilterMapsAndTimesOut)
{
    struct Case {
        KRT_U8 opcode;
        bool sent;
        KRT_U8 wire;
        KRT_U64 timeout;
    };
    const Case cases[] = {
        {2, true, 2, 100000000},   {6, true, 6, 100000000},     {13, true, 13, 100000000},
        {21, true, 21, 100000000}, {128, true, 128, 100000000}, {199, true, 199, 100000000},
        {17, true, 17, 100000000}, {29, true, 29, 100000000},   {30, true, 30, 100000000},
        {16, true, 16, 200000000}, {251, true, 203, 100000000}, {252, true, 206, 100000000},
        {9, false, 0, 0},          {0xE2, false, 0, 0},         {203, false, 0, 0},
        {0, false, 0, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(static_cast<int>(c.opcode));
        fake::driver().requests.clear();
        KRT_U8 out[64] = {};
        const KRT_U32 rc = dev->sendCommand(c.opcode, 0, nullptr, 0, nullptr, 0, out, sizeof out);
        if (!c.sent) {
            EXPECT_EQ(rc, 1u);
            EXPECT_TRUE(fake::driver().requests.empty());
            continue;
        }
        EXPECT_EQ(rc, 0u);
        ASSERT_EQ(fake::driver().requests.size(), 1u);
        EXPECT_EQ(last().io.cmd[0], c.wire);
        EXPECT_EQ(last().io.timeoutUs, c.timeout);
    }
}

TEST_F(Transport, CommandWordsNamespaceAndOneDataDirection)
{
    const KRT_U32 words[8] = {10, 11, 12, 13, 14, 15, 16, 17};
    KRT_U8 in[32] = {0xAB};
    KRT_U8 out[32] = {};
    ASSERT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 7, words, 8, in, sizeof in, out, sizeof out), 0u);
    const usr_io &io = last().io;
    EXPECT_EQ(io.cmd[1], 7u);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(io.cmd[10 + i], words[i]);
    // Input wins: the output buffer is never handed to the driver.
    EXPECT_EQ(io.direction, XFER_TO_DEV);
    EXPECT_EQ(io.addr, reinterpret_cast<KRT_U64>(in));
    EXPECT_EQ(io.length, sizeof in);

    ASSERT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0, words, 1, nullptr, 0, out, sizeof out), 0u);
    EXPECT_EQ(last().io.direction, XFER_FROM_DEV);
    EXPECT_EQ(last().io.addr, reinterpret_cast<KRT_U64>(out));
    EXPECT_EQ(last().io.length, sizeof out);
}

TEST_F(Transport, PassthruCarriesOnlyTheWordsTheControllerSees)
{
    krt_admin_command_format cmd{};
    for (int i = 0; i < 18; ++i)
        cmd.CDW[i] = 0x100u + static_cast<KRT_U32>(i);
    cmd.CDW[0] = 0x7F;  // any opcode goes through the raw form
    cmd.cdw_flag = 0xFFFF;
    KRT_U8 out[16] = {};
    ASSERT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, out, sizeof out), 0u);
    const usr_io &io = last().io;
    EXPECT_EQ(io.cmd[0], 0x7Fu);
    EXPECT_EQ(io.cmd[1], 0x101u);
    EXPECT_EQ(io.cmd[2], 0x102u);
    for (int i = 3; i <= 9; ++i)
        EXPECT_EQ(io.cmd[i], 0u) << "dword " << i;
    for (int i = 10; i <= 15; ++i)
        EXPECT_EQ(io.cmd[i], 0x100u + i);
    EXPECT_EQ(io.timeoutUs, 100000000u);

    cmd.CDW[0] = NVME_ADMIN_FW_COMMIT;  // the raw form keeps the usual wait
    ASSERT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, out, sizeof out), 0u);
    EXPECT_EQ(last().io.timeoutUs, 100000000u);
}

TEST_F(Transport, CompletionStatusAndDriverFailures)
{
    KRT_U8 out[16] = {};
    adapter().completionDw3 = nvme_comp_dw3(1, 7);
    adapter().driverStatus = 5;
    EXPECT_EQ(dev->sendCommand(6, 0, nullptr, 0, nullptr, 0, out, sizeof out), 0x107u);
    // A failed driver call with a clean completion counts as success.
    adapter().completionDw3 = 0;
    EXPECT_EQ(dev->sendCommand(6, 0, nullptr, 0, nullptr, 0, out, sizeof out), 0u);
}

TEST_F(Transport, AdapterThatCannotBeOpened)
{
    adapter().openable = false;
    KRT_U8 out[16] = {};
    testing::internal::CaptureStdout();
    EXPECT_EQ(dev->sendCommand(6, 0, nullptr, 0, nullptr, 0, out, sizeof out), static_cast<KRT_U32>(-22));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    testing::internal::CaptureStdout();
    EXPECT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, out, sizeof out), static_cast<KRT_U32>(-22));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Invalid argument: vmhba not found or vmhba not an NVM Express controller.");
    EXPECT_TRUE(fake::driver().requests.empty());
}

TEST_F(Transport, NvmCommandsAreBuiltButNeverSent)
{
    const KRT_U32 words[1] = {0};
    for (KRT_U8 op : {1, 2, 4, 5, 8})
        EXPECT_EQ(dev->sendNVM(op, 1, words, 1, nullptr, 0, nullptr, 0), 0u);
    EXPECT_EQ(dev->sendNVM(3, 1, words, 1, nullptr, 0, nullptr, 0), 1u);
    EXPECT_TRUE(fake::driver().requests.empty());
}

class PairTransport : public Transport {
  protected:
    void SetUp() override
    {
        Transport::SetUp();
        pair = CreatePairCMDDeviceInstance(dev);
        ASSERT_NE(pair, nullptr);
        dev = nullptr;  // owned by the pair now
    }
    void TearDown() override
    {
        pair->closeHandle();
        Transport::TearDown();
    }
    Device *pair = nullptr;
};

TEST_F(PairTransport, RequestHeadAndSendReceiveWords)
{
    const KRT_U32 words[6] = {0x123E1, 0x45602, 0x789AB, 0xCDEF0, 0x11111, 0x22222};
    const KRT_U8 in[5] = {0x5A, 1, 2, 3, 4};
    KRT_U8 out[8] = {};
    ASSERT_EQ(pair->sendCommand(KRT_PAIR_REQUEST_OPCODE, 9, words, 6, in, sizeof in, out, sizeof out), 0u);
    const auto &reqs = fake::driver().requests;
    ASSERT_EQ(reqs.size(), 2u);

    const usr_io &send = reqs[0].io;
    EXPECT_EQ(send.cmd[0], 203u);
    EXPECT_EQ(send.cmd[1], 0u);
    EXPECT_EQ(send.cmd[10], 1024u);
    EXPECT_EQ(std::memcmp(&send.cmd[11], "ZOLT", 4), 0);
    EXPECT_EQ(send.cmd[12], 0x560223E1u);
    EXPECT_EQ(send.cmd[13], 0x5Au << 16);
    EXPECT_EQ(send.cmd[14], 0u);
    EXPECT_EQ(std::memcmp(&send.cmd[15], "KRT\0", 4), 0);
    EXPECT_EQ(send.direction, XFER_TO_DEV);
    EXPECT_EQ(send.length, 4096u);

    const std::vector<KRT_U8> &head = reqs[0].sent;
    ASSERT_EQ(head.size(), 4096u);
    EXPECT_EQ(std::memcmp(head.data(), "KRT\0", 4), 0);
    EXPECT_EQ(head[4], 4) << "at most four command words travel in the head";
    EXPECT_EQ(head[5], 16);
    EXPECT_EQ(head[6] | (head[7] << 8), 5);
    const KRT_U16 expected[4] = {0x23E1, 0x5602, 0x89AB, 0xDEF0};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(head[8 + 2 * i] | (head[9 + 2 * i] << 8), expected[i]);
    EXPECT_EQ(std::memcmp(head.data() + 16, in, sizeof in), 0);

    const usr_io &receive = reqs[1].io;
    EXPECT_EQ(receive.cmd[0], 206u);
    for (int i = 10; i <= 14; ++i)
        EXPECT_EQ(receive.cmd[i], 0u);
    EXPECT_EQ(std::memcmp(&receive.cmd[15], "KRT\0", 4), 0);
    EXPECT_EQ(receive.direction, XFER_FROM_DEV);
    EXPECT_EQ(receive.length, 4096u);
}

TEST_F(PairTransport, ReplyEnvelopeDecidesTheResult)
{
    fake::Page &reply = adapter().pairReply;
    for (int i = 8; i < 16; ++i)
        reply[static_cast<std::size_t>(i)] = static_cast<KRT_U8>(0xA0 + i);
    const KRT_U32 words[2] = {KRT_CLASS_ADAPTER, 0};

    struct Case {
        const char *name;
        KRT_U8 sign0;
        KRT_U8 status;
        KRT_U32 rc;
        bool copied;
    };
    const Case cases[] = {
        {"good", 'K', 0, 0, true},
        {"status byte", 'K', 3, 3, false},
        {"bad signature", 'X', 0, 1, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        reply[0] = c.sign0;
        reply[4] = c.status;
        KRT_U8 out[8];
        std::memset(out, 0xEE, sizeof out);
        EXPECT_EQ(pair->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, nullptr, 0, out, sizeof out), c.rc);
        EXPECT_EQ(out[0], c.copied ? 0xA8 : 0xEE);
        EXPECT_EQ(out[7], c.copied ? 0xAF : 0xEE);
    }
}

TEST_F(PairTransport, FailedHalvesAndOtherOperations)
{
    const KRT_U32 words[2] = {KRT_CLASS_ADAPTER, 0};
    adapter().completionDw3 = nvme_comp_dw3(0, 6);
    adapter().driverStatus = 1;
    EXPECT_EQ(pair->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, nullptr, 0, nullptr, 0), 1u);
    EXPECT_EQ(fake::driver().requests.size(), 1u) << "no receive after a failed send";

    EXPECT_EQ(pair->sendNVM(1, 0, words, 2, nullptr, 0, nullptr, 0), 5u);
    krt_admin_command_format cmd{};
    EXPECT_EQ(pair->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0), 1u);
    EXPECT_NE(pair->getNVMEDevice(), pair);
    EXPECT_EQ(pair->getNVMEDevice()->getNVMEDevice(), pair->getNVMEDevice());
}

TEST(DefaultDevice, EveryRequestFails)
{
    Device *d = CreateDefaultDeviceInstance();
    EXPECT_EQ(d, CreateDefaultDeviceInstance());
    const KRT_U32 words[1] = {0};
    krt_admin_command_format cmd{};
    EXPECT_EQ(d->sendCommand(6, 0, words, 1, nullptr, 0, nullptr, 0), 1u);
    EXPECT_EQ(d->sendNVM(1, 0, words, 1, nullptr, 0, nullptr, 0), 1u);
    EXPECT_EQ(d->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0), 1u);
    EXPECT_EQ(d->getNVMEDevice(), d);
    d->closeHandle();  // the placeholder outlives every close
    EXPECT_EQ(d->sendCommand(6, 0, words, 1, nullptr, 0, nullptr, 0), 1u);
}

}  // namespace
