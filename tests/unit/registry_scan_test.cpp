// Discovery: which adapters of the driver's list become registered
// controllers, what the registry records for each, and the per-controller
// lock that serves their paired requests. The management API's requests
// where no command of the tool asks them (NVM commands) or no simulated
// controller answers so.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "api/krt_api.h"
#include "device/device_management.h"
#include "device/lock.h"
#include "platform/nvme_lib.h"
#include "transport_fake_driver.h"

namespace {

class Registry : public ::testing::Test {
  protected:
    void TearDown() override
    {
        registry->Final();
        gVIDFormCLI = 0;
        EXPECT_EQ(fake::driver().openHandles, 0);
    }

    void twoControllers()
    {
        fake::scan({fake::managedAdapter("vmhba1"), fake::managedAdapter("vmhba2")});
        ASSERT_EQ(KRT_Adapter_GetCount(), 2);
    }
    fake::Adapter &adapter(int i) { return fake::driver().adapters[static_cast<std::size_t>(i)]; }
    const std::vector<fake::Request> &requests() { return fake::driver().requests; }

    fake::Installed installed;
    DeviceManagement *registry = GetDeviceManagementInstance();
};

// Another maker's controller, taken only with its vendor ID, shows end to
// end; our vendor ID with another device ID, and a list count past the
// driver's array, do not.
TEST_F(Registry, OtherDeviceIdsAndListCountPastTheArray)
{
    fake::scan({fake::managedAdapter("vmhba1", KRT_PCI_VENDOR_ID, 0x1234)});
    EXPECT_EQ(registry->getDeviceCount(), 0);
    fake::driver().listCount = 5000;
    fake::scan({fake::managedAdapter("vmhba1")});
    EXPECT_EQ(registry->getDeviceCount(), 1);
    EXPECT_EQ(nvme_adapter_count(adapterList()), 64u);
}

TEST_F(Registry, PciAddressAndSubnqnText)
{
    const struct {
        KRT_U8 fn, dev, bus;
        const char *text;
    } cases[] = {
        {0x07, 0x1F, 0x3A, "3a:1f.07"},
        {0x08, 0x55, 0x03, "03:01.00"},  // from 8 on, device and function packed; byte 165 ignored
        {0x0B, 0x55, 0x03, "03:01.03"},
        {0xFF, 0x00, 0xFF, "ff:1f.07"},
    };
    for (const auto &c : cases) {
        fake::Adapter a = fake::managedAdapter("vmhba1");
        a.adapterInfo[8 + 156] = c.fn;
        a.adapterInfo[8 + 157] = c.dev;
        a.adapterInfo[8 + 158] = c.bus;
        fake::scan({a});
        ASSERT_EQ(registry->getDeviceCount(), 1);
        EXPECT_STREQ(registry->getDeviceFun(0), c.text);
        EXPECT_EQ(registry->getSlotID(0), -1);
    }

    // The first 60 bytes of the SUBNQN with blanks for NULs, then byte 828
    // as a number.
    fake::Adapter a = fake::managedAdapter("vmhba1");
    const std::string nqn = "nqn.2026-01.io.example:ctrl";
    std::memcpy(&a.identify[768], nqn.data(), nqn.size());
    a.identify[768 + 40] = 'Z';
    a.identify[828] = 7;
    fake::scan({a});
    EXPECT_EQ(registry->getDeviceSUBNQN(0), nqn + std::string(40 - nqn.size(), ' ') + "Z" + std::string(19, ' ') + "7");
}

TEST_F(Registry, PlaceholderBeyondTheRegisteredDevicesRefusesEverything)
{
    fake::scan({fake::managedAdapter("vmhba1")});
    Device *placeholder = CreateDefaultDeviceInstance();
    EXPECT_NE(registry->getDevice(0), placeholder);
    for (int index : {1, 1087, 1088, 65535})
        EXPECT_EQ(registry->getDevice(static_cast<KRT_U16>(index)), placeholder) << index;
    EXPECT_STREQ(registry->getDevicePath(5), "");
    registry->Final();
    EXPECT_EQ(registry->getDevice(0), placeholder);

    fake::driver().requests.clear();
    const KRT_U32 words[1] = {0};
    krt_admin_command_format cmd{};
    EXPECT_EQ(placeholder->sendCommand(6, 0, words, 1, nullptr, 0, nullptr, 0), 1u);
    EXPECT_EQ(placeholder->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0), 1u);
    placeholder->closeHandle();  // the placeholder outlives every close
    EXPECT_EQ(placeholder->sendCommand(6, 0, words, 1, nullptr, 0, nullptr, 0), 1u);
    EXPECT_TRUE(fake::driver().requests.empty());
}

TEST_F(Registry, ControllerInformationDefaultsAndIndexes)
{
    twoControllers();
    _NVME_Adapter_Info rec{};
    rec.PortCount = 4;
    rec.MaxVD = 9;
    fake::answer(adapter(1).adapterInfo, rec);
    fake::answer(adapter(1).pairReply, rec);
    _NVME_Adapter_Info got{};
    const auto limits = [&] { return std::vector<KRT_U32>{got.MaxPD, got.MaxVD, got.MaxFlashSize}; };
    // Discovery names the semaphore; the first paired request opens it.
    const KRTLock *lock = registry->getDevice(1)->getNVMEDevice()->m_lock;
    EXPECT_STREQ(lock->lockName, "krtd01");
    EXPECT_EQ(lock->m_handle, nullptr);
    for (auto get : {KRT_Adapter_GetSimpleInfo, KRT_Adapter_GetInfo}) {
        ASSERT_EQ(get(1, &got), 0u);
        EXPECT_EQ(limits(), (std::vector<KRT_U32>{4, 9, 0x800000})) << "no disk limit: one per port";
    }
    EXPECT_NE(lock->m_handle, nullptr);
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

TEST_F(Registry, AdminPrintsItsStatusAndNvmDoesNot)
{
    twoControllers();
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

// The class-form requests, made by other clients of the API and by no command:
// a missing buffer is refused before anything is sent; each sends its class
// and sub-command words, then its BGA action or VD id. The VD hooks (each reads
// the VD list) run after a creation and before a deletion.
TEST_F(Registry, ClassFormRequestsSendTheirWordsAndRefuseAMissingBuffer)
{
    twoControllers();
    KRT_U8 b[KRT_BUFFER_SIZE] = {};
    // clang-format off
    const KRT_U32 refused[] = {
        KRT_Adapter_GetConfig(0, nullptr), KRT_Adapter_SetConfig(0, nullptr), KRT_Adapter_LED(0, nullptr),
        KRT_PD_GetInfo(0, nullptr), KRT_PD_OEM(0, nullptr, 8), KRT_PD_Import(0, nullptr), KRT_VD_GetInfo(0, nullptr),
        KRT_VD_GetConfig(0, nullptr), KRT_VD_SetConfig(0, nullptr), KRT_VD_Create(0, nullptr),
        KRT_VD_QuerySize(0, b, nullptr), KRT_VD_Import(0, nullptr), KRT_PD_GetBGAStatus(0, nullptr),
        KRT_VD_GetBGAStatus(0, nullptr), KRT_VD_Rebuild(0, nullptr), KRT_VD_Migrate(0, nullptr),
        KRT_Event_Status(0, nullptr), KRT_NS_GetInfo_VD(0, 3, nullptr, 2), KRT_Dump_Console(0, nullptr),
        KRT_Dump_Status(0, nullptr), KRT_Get_Dump_Cfg(0, nullptr), KRT_Set_Dump_Cfg(0, nullptr)};
    // clang-format on
    EXPECT_THAT(refused, testing::Each(1u));
    EXPECT_EQ(KRT_Page_Event(0, nullptr), 0u) << "no page, nothing to read";
    EXPECT_TRUE(requests().empty());

    _NVME_Adapter_Config config{};
    const _NVME_LED led{};
    const _RequestHeader head{};
    const _NVME_Rebuild rebuild{};
    const _NVME_Migrate migrate{};
    _NVME_NS_Info ns[2]{};
    // clang-format off
    const KRT_U32 done[] = {
        KRT_Adapter_GetConfig(0, &config), KRT_Adapter_SetConfig(0, &config), KRT_Adapter_LED(0, &led),
        KRT_PD_GetInfo(0, b), KRT_PD_OEM(0, b, 8), KRT_PD_Import(0, &head), KRT_VD_GetInfo(0, b),
        KRT_VD_GetConfig(0, b), KRT_VD_SetConfig(0, b), KRT_VD_Create(0, b), KRT_VD_QuerySize(0, b, b),
        KRT_VD_Delete(0, 2), KRT_VD_Import(0, &head), KRT_PD_GetBGAStatus(0, b), KRT_VD_GetBGAStatus(0, b),
        KRT_PD_BGAControl(0, 1, 2), KRT_VD_BGAControl(0, 1, 2), KRT_PD_MP(0, 5), KRT_VD_Init(0, 1, 2),
        KRT_VD_Rebuild(0, &rebuild), KRT_VD_Sync(0, 5), KRT_VD_Migrate(0, &migrate), KRT_VD_MP(0, 5),
        KRT_Event_Status(0, b), KRT_NS_GetInfo_VD(0, 3, ns, 2), KRT_Dump_Console(0, b), KRT_Dump_Status(0, b),
        KRT_Get_Dump_Cfg(0, b), KRT_Set_Dump_Cfg(0, b), KRT_Page_Event(0, b)};
    // clang-format on
    EXPECT_THAT(done, testing::Each(0u));
    std::vector<std::vector<KRT_U16>> words;
    for (const fake::Request &r : fake::sent(KRT_PAIR_SEND_WIRE)) {
        _NVMESendData d{};
        std::memcpy(&d, r.sent.data(), std::min(r.sent.size(), sizeof d));
        words.emplace_back(d.vendor_cmd, d.vendor_cmd + std::min<int>(d.cmd_length, KRT_PAIR_MAX_WORDS));
    }
    EXPECT_EQ(words,
              (std::vector<std::vector<KRT_U16>>{
                  {0xE0, 1},  {0xE0, 2},    {0xE0, 7},    {0xE1, 0}, {0xE1, 3}, {0xE1, 9}, {0xE2, 0}, {0xE2, 1},
                  {0xE2, 2},  {0xE2, 3},    {0xE2, 0},    {0xE2, 3}, {0xE2, 0}, {0xE2, 4}, {0xE2, 6}, {0xE3, 1},
                  {0xE3, 2},  {0xE3, 3, 2}, {0xE3, 4, 2}, {0xE3, 5}, {0xE3, 6}, {0xE3, 7}, {0xE3, 8}, {0xE3, 9},
                  {0xE3, 10}, {0xE4, 1},    {0xE5, 1, 3}, {0xFE, 0}, {0xFE, 1}, {0xFE, 2}, {0xFE, 3}, {0xFE, 4}}));
}

// Costs the five seconds of the deadline: nothing else notices a wait that
// never ends. Serialising works is seen by the load test.
TEST(KRTLock, WaitGivesUpAfterTheDeadline)
{
    const std::string name = "krtd-unit-" + std::to_string(getpid());
    KRTLock *holder = new KRTLock, *waiter = new KRTLock;
    ASSERT_TRUE(holder->init(name.c_str()));
    ASSERT_TRUE(waiter->init(name.c_str()));
    holder->lock();
    waiter->lock();  // returns at the deadline and goes on without the lock
    int value = -1;
    sem_getvalue(waiter->m_handle, &value);
    EXPECT_EQ(value, 0) << "the holder still has it";
    waiter->close();
    holder->unlock();
    holder->close();
    sem_unlink(name.c_str());
}

}  // namespace
