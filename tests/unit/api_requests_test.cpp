// The management API's requests as they reach the driver.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "api/krt_api.h"
#include "device/device_management.h"
#include "firmware/progressbar.h"
#include "transport_fake_driver.h"

namespace {

class Api : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake::scan({fake::managedAdapter("vmhba1"), fake::managedAdapter("vmhba2")});
        ASSERT_EQ(KRT_Adapter_GetCount(), 2);
    }
    void TearDown() override { GetDeviceManagementInstance()->Final(); }
    fake::Adapter &adapter(int i) { return fake::driver().adapters[static_cast<std::size_t>(i)]; }
    const std::vector<fake::Request> &requests() { return fake::driver().requests; }

    fake::Installed installed;
};

TEST_F(Api, ControllerInformationDefaultsAndIndexes)
{
    _NVME_Adapter_Info rec{};
    rec.PortCount = 4;
    rec.MaxVD = 9;
    fake::answer(adapter(1).adapterInfo, rec);
    fake::answer(adapter(1).pairReply, rec);
    _NVME_Adapter_Info got{};
    const auto limits = [&] { return std::vector<KRT_U32>{got.MaxPD, got.MaxVD, got.MaxFlashSize}; };
    for (auto get : {KRT_Adapter_GetSimpleInfo, KRT_Adapter_GetInfo}) {
        ASSERT_EQ(get(1, &got), 0u);
        EXPECT_EQ(limits(), (std::vector<KRT_U32>{4, 9, 0x800000})) << "no disk limit: one per port";
    }
    EXPECT_EQ(requests()[0].adapter, "vmhba2");
    EXPECT_EQ(fake::dwords(requests()[0].io, 12, 13), std::vector<KRT_U32>{0xE0});

    rec.MaxPD = 8;
    rec.MaxFlashSize = 0x1000;
    fake::answer(adapter(1).adapterInfo, rec);
    ASSERT_EQ(KRT_Adapter_GetSimpleInfo(256 + 1, &got), 0u) << "the index is narrowed to eight bits";
    EXPECT_EQ(limits(), (std::vector<KRT_U32>{8, 9, 0x1000}));
    EXPECT_EQ(KRT_Adapter_GetSimpleInfo(5, &got), 1u) << "the placeholder refuses";
    EXPECT_EQ(KRT_Adapter_GetInfo(5, &got), 1u);
}

TEST_F(Api, AdminPrintsItsStatusAndNvmDoesNot)
{
    adapter(0).completionDw3 = nvme_comp_dw3(1, 6);
    adapter(0).driverStatus = 1;
    const KRT_U32 words[1] = {0};
    KRT_U8 out[16];
    testing::internal::CaptureStdout();
    EXPECT_EQ(KRT_Adapter_Admin(0, NVME_ADMIN_FW_COMMIT, 0, words, 1, nullptr, 0, out, sizeof out), 0x106u);
    EXPECT_EQ(KRT_Adapter_Admin(0, 9, 0, words, 1, nullptr, 0, out, sizeof out), 1u);
    EXPECT_EQ(KRT_Adapter_NVM(0, 2, 1, words, 1, nullptr, 0, out, sizeof out), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Invalid Firmware Slot (Status Code: 0x106)\nInvalid Command Opcode (Status Code: 0x1)\n");
}

// Class, sub-command, optional parameter and input length of class-form
// requests, read back from the request head: an odd length, a parameter,
// the largest input.
TEST_F(Api, ClassFormRequests)
{
    std::vector<KRT_U8> buf(4096, 0);
    KRT_U8 *b = buf.data();
    _NVME_NS_Info ns[2];
    const struct {
        const char *name;
        std::function<KRT_U32()> call;
        KRT_U16 cls, sub;
        int param;  // -1: none
        KRT_U16 inLen;
    } cases[] = {
        {"PD_OEM", [&] { return KRT_PD_OEM(0, b, 40); }, 225, 3, -1, 57},
        {"NS_GetInfo_VD", [&] { return KRT_NS_GetInfo_VD(0, 0x1234, ns, 2); }, 229, 1, 0x1234, 0},
        {"Page_Event", [&] { return KRT_Page_Event(0, b); }, 254, 4, -1, 4096},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::fill(buf.begin(), buf.end(), 0);
        reinterpret_cast<_RequestHeader *>(b)->numRequested = 2;
        fake::driver().requests.clear();
        EXPECT_EQ(c.call(), 0u);
        ASSERT_EQ(requests().size(), 2u);
        EXPECT_EQ(requests()[0].io.cmd[12], (KRT_U32{c.sub} << 16) | c.cls);
        // Word count, input length, class, sub-command, parameter.
        const std::vector<KRT_U8> &h = requests()[0].sent;
        const auto u16 = [&](int at) { return h[at] | (h[at + 1] << 8); };
        EXPECT_EQ((std::vector<int>{h[4], u16(6), u16(8), u16(10), c.param < 0 ? -1 : u16(12)}),
                  (std::vector<int>{c.param < 0 ? 2 : 3, c.inLen, c.cls, c.sub, c.param}));
    }
}

TEST_F(Api, VdChangesRunTheHooksOnlyAfterSuccess)
{
    std::vector<KRT_U8> create(KRT_CREATE_VD_SIZE, 0);
    fake::Page &page = adapter(0).pairReply;
    page[8 + 7] = 2;  // two VDs: the hooks only log, so each request is one pair
    EXPECT_EQ(KRT_VD_Create(0, create.data()), 0u);
    EXPECT_EQ(requests().size(), 4u) << "the request and the hook's VD list";
    EXPECT_EQ(requests()[0].io.cmd[12], 0x300E2u);

    fake::driver().requests.clear();
    EXPECT_EQ(KRT_VD_Delete(0, 9), 0u);
    ASSERT_EQ(requests().size(), 4u) << "the hook's VD list, then the request";
    EXPECT_EQ(requests()[2].io.cmd[12], 0x400E2u);
    EXPECT_EQ(requests()[2].sent[16], 9);

    fake::driver().requests.clear();
    page[4] = 0x3C;
    EXPECT_EQ(KRT_VD_Create(0, create.data()), 0x3Cu);
    EXPECT_EQ(requests().size(), 2u) << "no hook after a failed request";
}

TEST_F(Api, FlashHandOffAndResult)
{
    _NVME_Flash_Result result{};
    EXPECT_EQ(KRT_Adapter_Flash_Result(0, nullptr), 1u);
    EXPECT_EQ(KRT_Adapter_Flash(0, "image.bin", 1, 2, 0), 0u);
    EXPECT_EQ(KRT_Adapter_Flash_Result(0, &result), 0u);
    EXPECT_EQ(KRT_Adapter_Flash_Result(256, &result), 0u) << "the same controller's bar";
    EXPECT_EQ(KRT_Adapter_Flash_Result(1, &result), 1u);
    progressbar_management_close();
    EXPECT_EQ(KRT_Adapter_Flash_Result(0, &result), 1u);
}

}  // namespace
