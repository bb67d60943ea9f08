// Discovery: which adapters of the driver's list become registered
// controllers, and what the registry records for each.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "api/krt_api.h"
#include "device/device_management.h"
#include "platform/nvme_lib.h"
#include "transport_fake_driver.h"

namespace {

class Registry : public ::testing::Test {
  protected:
    void SetUp() override
    {
        gVIDFormCLI = 0;
        registry = std::make_unique<DeviceManagement>();
        registry->m_smbios_path = "/nonexistent/smbios";
    }
    void TearDown() override
    {
        registry->Final();
        gVIDFormCLI = 0;
        EXPECT_EQ(fake::driver().openHandles, 0);
    }
    std::string scan()
    {
        testing::internal::CaptureStdout();
        registry->ScanV2();
        return testing::internal::GetCapturedStdout();
    }
    void add(const fake::Adapter &a) { fake::driver().adapters.push_back(a); }

    fake::Installed installed;
    std::unique_ptr<DeviceManagement> registry;
};

TEST_F(Registry, EmptyListAndRefusedList)
{
    EXPECT_EQ(scan(), "");
    EXPECT_EQ(registry->getDeviceCount(), 0);

    fake::driver().listFails = true;
    EXPECT_EQ(scan(), "Failed to initialize NVMe.");
    EXPECT_EQ(registry->getDeviceCount(), 0);
}

TEST_F(Registry, MissingLibraryFailsTheList)
{
    vmkmgmt_set_entry_points(nullptr);
    // No platform library is on the test's search path.
    EXPECT_EQ(scan(), "Failed to initialize NVMe.");
    EXPECT_EQ(registry->getDeviceCount(), 0);
}

TEST_F(Registry, AcceptanceByVendorAndDeviceId)
{
    struct Case {
        const char *name;
        KRT_U16 vid;
        KRT_U16 did;
        KRT_U16 filter;
        bool accepted;
    };
    const Case cases[] = {
        {"managed", KRT_PCI_VENDOR_ID, KRT_PCI_DEVICE_ID, 0, true},
        {"other device", KRT_PCI_VENDOR_ID, 0x1234, 0, false},
        {"other vendor", 0x8086, KRT_PCI_DEVICE_ID, 0, false},
        {"other vendor named by --vid", 0x8086, 0x0953, 0x8086, true},
        {"managed but --vid names another", KRT_PCI_VENDOR_ID, KRT_PCI_DEVICE_ID, 0x8086, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        fake::driver().adapters = {fake::managedAdapter("vmhba1", c.vid, c.did)};
        gVIDFormCLI = c.filter;
        scan();
        EXPECT_EQ(registry->getDeviceCount(), c.accepted ? 1 : 0);
        registry->Final();
    }
}

TEST_F(Registry, KeepsListOrderAndSkipsRejectedAndVanished)
{
    add(fake::managedAdapter("vmhba1"));
    add(fake::managedAdapter("vmhba2", 0x144D));
    fake::Adapter gone = fake::managedAdapter("vmhba3");
    gone.openable = false;
    add(gone);
    add(fake::managedAdapter("vmhba4"));
    scan();
    ASSERT_EQ(registry->getDeviceCount(), 2);
    EXPECT_STREQ(registry->getDevicePath(0), "vmhba1");
    EXPECT_STREQ(registry->getDevicePath(1), "vmhba4");
}

TEST_F(Registry, CountAboveTheArrayIsBounded)
{
    add(fake::managedAdapter("vmhba1"));
    fake::driver().listCount = 5000;
    scan();
    EXPECT_EQ(registry->getDeviceCount(), 1);
    EXPECT_EQ(nvme_adapter_count(adapterList()), 64u);
}

TEST_F(Registry, PciAddressFromAdapterInformation)
{
    struct Case {
        KRT_U8 fn, dev, bus;
        const char *text;
    };
    const Case cases[] = {
        {0x0B, 0x55, 0x03, "03:01.03"},  // packed device and function; byte 165 ignored
        {0x02, 0x1F, 0xA0, "a0:1f.02"},
        {0x07, 0x00, 0x00, "00:00.07"},
        {0xFF, 0x00, 0xFF, "ff:1f.07"},
    };
    for (const Case &c : cases) {
        fake::Adapter a = fake::managedAdapter("vmhba1");
        a.adapterInfo[8 + 156] = c.fn;
        a.adapterInfo[8 + 157] = c.dev;
        a.adapterInfo[8 + 158] = c.bus;
        fake::driver().adapters = {a};
        scan();
        ASSERT_EQ(registry->getDeviceCount(), 1);
        EXPECT_STREQ(registry->getDeviceFun(0), c.text);
        EXPECT_EQ(registry->getSlotID(0), -1);
        registry->Final();
    }
}

TEST_F(Registry, SubnqnTextBlanksNulsAndAppendsByte828)
{
    fake::Adapter a = fake::managedAdapter("vmhba1");
    const char nqn[] = "nqn.2026-01.io.example:ctrl";
    std::memcpy(&a.identify[768], nqn, sizeof nqn - 1);
    a.identify[768 + 40] = 'Z';
    a.identify[828] = 7;
    add(a);
    scan();
    ASSERT_EQ(registry->getDeviceCount(), 1);
    std::string expected =
        std::string(nqn) + std::string(40 - (sizeof nqn - 1), ' ') + "Z" + std::string(19, ' ') + "7";
    EXPECT_EQ(std::string(registry->getDeviceSUBNQN(0)), expected);
}

TEST_F(Registry, PlaceholderBeyondTheRegisteredDevices)
{
    add(fake::managedAdapter("vmhba1"));
    scan();
    Device *placeholder = CreateDefaultDeviceInstance();
    EXPECT_NE(registry->getDevice(0), placeholder);
    EXPECT_EQ(registry->getDevice(1), placeholder);
    EXPECT_EQ(registry->getDevice(1087), placeholder);
    EXPECT_EQ(registry->getDevice(1088), placeholder);
    EXPECT_EQ(registry->getDevice(65535), placeholder);
    EXPECT_STREQ(registry->getDevicePath(5), "");
    EXPECT_EQ(registry->getOneBaseMode(), 0);
    EXPECT_EQ(registry->isSysDenied(), 0);
    registry->Final();
    EXPECT_EQ(registry->getDevice(0), placeholder);
}

// The API's lookups go through the process-wide registry.
TEST(RegistryLookup, LastMatchWinsAndEmptyRegistryFindsNothing)
{
    fake::Installed installed;
    int index = -1;
    EXPECT_FALSE(findAdapterId("03:00.00", &index));
    EXPECT_FALSE(SetAdapterIdFromSUBNQN("", &index));

    fake::Adapter a = fake::managedAdapter("vmhba1");
    a.adapterInfo[8 + 158] = 3;
    fake::driver().adapters = {a, a, fake::managedAdapter("vmhba3")};
    fake::driver().adapters[1].name = "vmhba2";
    fake::driver().adapters[1].signature = "nvme_vmhba2";
    GetDeviceManagementInstance()->m_smbios_path = "/nonexistent/smbios";
    GetDeviceManagementInstance()->ScanV2();
    ASSERT_EQ(KRT_Adapter_GetCount(), 3);
    EXPECT_TRUE(findAdapterId("03:00.00", &index));
    EXPECT_EQ(index, 1);
    EXPECT_FALSE(findAdapterId("03:00.0", &index));
    const std::string nqn = KRT_Adapter_GetDeviceSUBNQN(2);
    EXPECT_TRUE(SetAdapterIdFromSUBNQN(nqn.c_str(), &index));
    EXPECT_EQ(index, 2) << "all three share the text; the last one wins";
    GetDeviceManagementInstance()->Final();
}

}  // namespace
