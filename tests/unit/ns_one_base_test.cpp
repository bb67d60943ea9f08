// ns in one-base numbering, which is never on at run time: which ids are
// shifted, and when -i is a disk rather than a namespace.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/commands.h"
#include "device/device_management.h"
#include "stream_capture.h"
#include "transport_fake_driver.h"
#include "util/state.h"

namespace {

class NsOneBase : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake::scan({fake::managedAdapter("vmhba1")});
        // Every vendor request gets this page: a disk of 512-byte sectors.
        _NVME_PD_Info pd{};
        pd.SectorSize = 512;
        fake::answer(fake::driver().adapters[0].adapterInfo, pd);
        info_.Features = KRT_FEATURE_NS_MGMT;  // MaxNS 0: no namespace table
        g_pAdInfos = &info_;
        gNumAdaptersFound = 1;
        gCurrentAdapter = 0;
        g_oneBaseMode = 1;
    }
    void TearDown() override
    {
        g_oneBaseMode = 0;
        g_pAdInfos = nullptr;
        gNumAdaptersFound = 0;
        GetDeviceManagementInstance()->Final();
    }

    // The words run through doSNS; what it printed.
    std::string run(std::vector<std::string> words, int status = 0)
    {
        fake::driver().requests.clear();
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        krt_unit::StreamCapture out;
        const Command_Info entry{"ns", 3, doSNS, ns_help, ns_sh, &ns_options};
        EXPECT_EQ(doSNS(static_cast<int>(words.size()), argv.data(), &entry), status);
        return out.text();
    }
    // CDW12-CDW14 of the last vendor request.
    std::vector<KRT_U32> lastVendorWords()
    {
        const auto sent = fake::sent(KRT_VENDOR_OPCODE);
        return sent.empty() ? std::vector<KRT_U32>{} : fake::dwords(sent.back().io, 12, 15);
    }

    fake::Installed installed_;
    _NVME_Adapter_Info info_{};
};

TEST_F(NsOneBase, IdIsADiskOnlyAfterInitOrCreate)
{
    // Before "-a create" the 3 is a namespace id and stays 3: PD byte 4.
    EXPECT_EQ(run({"ns", "-i", "3", "-a", "create", "-c", "2", "-l", "1"}), "\nCreate NS successfully\n");
    EXPECT_EQ(lastVendorWords(), (std::vector<KRT_U32>{0x010404e5, 0x00200000, 0}));
    // After it, PD 2: asked for as 2, sent as 3; controller 2 is id 1.
    EXPECT_EQ(run({"ns", "-a", "create", "-i", "3", "-c", "2", "-l", "1"}), "\nCreate NS successfully\n");
    EXPECT_EQ(fake::dwords(fake::sent(KRT_VENDOR_OPCODE).front().io, 12, 15), (std::vector<KRT_U32>{0x000000e1, 0, 2}));
    EXPECT_EQ(lastVendorWords(), (std::vector<KRT_U32>{0x010304e5, 0x00200000, 0}));

    EXPECT_EQ(run({"ns", "-a", "init", "-i", "1", "-n", "2"}), "\nInitial NS successfully\n");
    EXPECT_EQ(lastVendorWords(), (std::vector<KRT_U32>{0x000002e5, 0, 2}));
    EXPECT_EQ(run({"ns", "-a", "init", "-i", "0", "-n", "2"}), "invalid id '0'\n");
    EXPECT_TRUE(fake::driver().requests.empty());
    EXPECT_EQ(run({"ns", "-i", "0", "-a", "init", "-n", "2"}), "\nInitial NS successfully\n");
    EXPECT_EQ(lastVendorWords(), (std::vector<KRT_U32>{0x000002e5, 0, 2}));

    // Namespace ids are never shifted; the keeping controller is.
    EXPECT_EQ(run({"ns", "-a", "share", "-i", "5", "-s", "no", "-c", "4"}), "\nSet sharing NS successfully\n");
    EXPECT_EQ(lastVendorWords(), (std::vector<KRT_U32>{0x000503e5, 0, 0x300}));
}

TEST_F(NsOneBase, ControllerListCountsFromOne)
{
    EXPECT_EQ(run({"ns", "-a", "attach", "-i", "1", "-d", "1,,2"}), "Attach namespace success\n");
    const auto attach = fake::sent(NVME_ADMIN_NS_ATTACH);
    ASSERT_EQ(attach.size(), 1u);
    EXPECT_EQ(attach[0].io.cmd[1], 1u);
    EXPECT_EQ(attach[0].io.cmd[10], 0u);
    ASSERT_EQ(attach[0].sent.size(), 4096u);
    EXPECT_EQ(std::vector<KRT_U8>(attach[0].sent.begin(), attach[0].sent.begin() + 8),
              (std::vector<KRT_U8>{2, 0, 0, 0, 1, 0, 0, 0}));

    EXPECT_EQ(run({"ns", "-a", "detach", "-i", "1", "-d", "2,0"}), "invalid controller id '0'\n");
    EXPECT_EQ(run({"ns", "-a", "create", "-i", "1", "-c", "0", "-l", "1"}), "invalid controller id '0'\n");
    EXPECT_TRUE(fake::driver().requests.empty());
}

}  // namespace
