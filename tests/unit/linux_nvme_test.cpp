// The Linux host's NVMe device and directory scan against an in-process
// stand-in for the driver's nodes and its admin ioctl.
#include "platform/linux_nvme.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "device/device_management.h"
#include "device/linux_nvme_device.h"
#include "guard_temp_tree.h"
#include "krt/records.h"

namespace {

constexpr KRT_U16 kQemuVid = 0x1b36;

// What a node does when opened and asked.
struct Node {
    int openErrno = 0;   // non-zero: open fails with it
    int ioctlErrno = 0;  // non-zero: every command fails with it
    KRT_U16 vid = kQemuVid;
    int status = 0;  // the ioctl's result for a command that completes
};

struct FakeNodes {
    std::map<std::string, Node> nodes;  // by path
    std::map<int, std::string> open;    // fd -> path
    std::vector<std::string> opened;
    std::vector<LinuxAdminCommand> commands;
    std::vector<void *> dataSeen;  // the data pointer of each command
    int nextFd = 100;
};

FakeNodes *gFake = nullptr;

int fakeOpen(const char *path, int flags)
{
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
    gFake->opened.push_back(path);
    auto it = gFake->nodes.find(path);
    if (it == gFake->nodes.end()) {
        errno = ENOENT;
        return -1;
    }
    if (it->second.openErrno != 0) {
        errno = it->second.openErrno;
        return -1;
    }
    gFake->open[gFake->nextFd] = path;
    return gFake->nextFd++;
}

int fakeClose(int fd)
{
    EXPECT_EQ(gFake->open.erase(fd), 1u) << "closed twice or never opened: " << fd;
    return 0;
}

int fakeAdmin(int fd, LinuxAdminCommand *cmd)
{
    gFake->commands.push_back(*cmd);
    auto at = gFake->open.find(fd);
    if (at == gFake->open.end()) {
        errno = EBADF;
        return -1;
    }
    const Node &node = gFake->nodes[at->second];
    if (node.ioctlErrno != 0) {
        errno = node.ioctlErrno;
        return -1;
    }
    if (cmd->opcode == NVME_ADMIN_IDENTIFY && cmd->addr != 0 && cmd->data_len >= 2) {
        auto *data = reinterpret_cast<KRT_U8 *>(cmd->addr);
        data[NVME_ID_VID] = node.vid & 0xFF;
        data[NVME_ID_VID + 1] = node.vid >> 8;
    }
    return node.status;
}

const LinuxNvmeCalls kFakeCalls{fakeOpen, fakeClose, fakeAdmin};

class LinuxHost : public ::testing::Test {
  protected:
    void SetUp() override
    {
        gFake = &fake;
        linux_nvme_set_calls(&kFakeCalls);
    }
    void TearDown() override
    {
        linux_nvme_set_calls(nullptr);
        gFake = nullptr;
        gVIDFormCLI = 0;
    }
    // A device over a node that answers as given.
    Device *device(Node node = {})
    {
        fake.nodes["/dev/nvme0"] = node;
        return CreateLinuxNVMEDeviceInstance(LinuxNvme_Open("/dev/nvme0"), "/dev/nvme0", 0);
    }
    const LinuxAdminCommand &last() { return fake.commands.back(); }

    FakeNodes fake;
};

TEST_F(LinuxHost, StatusIsTheControllersAnswerWithoutRetryBits)
{
    const struct {
        int ioctl;  // the ioctl's result
        int err;    // its errno when it fails
        KRT_U32 status;
    } cases[] = {
        {0, 0, 0},           {0x0002, 0, 0x0002},  // Invalid Field
        {0x4001, 0, 0x0001},                       // Invalid Opcode with Do Not Retry
        {0x6181, 0, 0x0181},                       // More and Do Not Retry on a command-specific code
        {0x1806, 0, 0x0006},                       // retry delay bits
        {-1, EIO, 1},                              // no completion at all
        {-1, ENOTTY, 1},                           // a node that is not a controller
        {-1, EINTR, 1},                            // the time-out's abort
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ioctl);
        Device *dev = device({.ioctlErrno = c.err, .status = c.ioctl});
        ASSERT_NE(dev, nullptr);
        const KRT_U32 cdw10 = NVME_CNS_CONTROLLER;
        KRT_U8 data[NVME_IDENTIFY_SIZE];
        EXPECT_EQ(dev->sendCommand(NVME_ADMIN_IDENTIFY, 0, &cdw10, 1, nullptr, 0, data, sizeof data), c.status);
        krt_admin_command_format cmd{};
        cmd.CDW[0] = 0xE2;
        EXPECT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, data, sizeof data), c.status);
        // The binding tells an errno from a controller's answer of 1.
        LinuxAdminCommand raw{};
        int error = -1;
        EXPECT_EQ(LinuxNvme_AdminPassthru(static_cast<LinuxNVMEDevice *>(dev)->m_fd, &raw, &error), c.status);
        EXPECT_EQ(error, c.err);
        dev->closeHandle();
    }
    EXPECT_TRUE(fake.open.empty()) << "closeHandle closes the node";
}

TEST_F(LinuxHost, OpcodesAndTimeOutsFollowTheDriverListDevice)
{
    Device *dev = device();
    const struct {
        KRT_U8 opcode, wire;  // wire 0: refused before anything is sent
        KRT_U32 timeoutMs;
    } cases[] = {
        {2, 2, 100000},     {6, 6, 100000},     {16, 16, 200000}, {17, 17, 100000},
        {251, 203, 100000}, {252, 206, 100000}, {9, 0, 0},        {0xE2, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(static_cast<int>(c.opcode));
        fake.commands.clear();
        KRT_U8 out[64];
        EXPECT_EQ(dev->sendCommand(c.opcode, 0, nullptr, 0, nullptr, 0, out, sizeof out), c.wire != 0 ? 0u : 1u);
        ASSERT_EQ(fake.commands.size(), c.wire != 0 ? 1u : 0u);
        if (c.wire != 0) {
            EXPECT_EQ(last().opcode, c.wire);
            EXPECT_EQ(last().timeout_ms, c.timeoutMs);
        }
    }
    // Every opcode passes through the admin form, always with the usual wait.
    krt_admin_command_format commit{};
    commit.CDW[0] = NVME_ADMIN_FW_COMMIT;
    EXPECT_EQ(dev->sendPassthruAdmin(&commit, nullptr, 0, nullptr, 0), 0u);
    EXPECT_EQ(last().opcode, NVME_ADMIN_FW_COMMIT);
    EXPECT_EQ(last().timeout_ms, 100000u);
    dev->closeHandle();
}

TEST_F(LinuxHost, DwordsAndOneDataDirection)
{
    Device *dev = device();
    krt_admin_command_format cmd{};
    for (KRT_U32 i = 0; i < 18; ++i)
        cmd.CDW[i] = 0x1000 + i;
    cmd.CDW[0] = 0xC7;
    KRT_U8 in[16] = {}, out[32] = {};
    ASSERT_EQ(dev->sendPassthruAdmin(&cmd, in, sizeof in, out, sizeof out), 0u);
    LinuxAdminCommand sent = last();
    EXPECT_EQ(sent.opcode, 0xC7);
    EXPECT_EQ(sent.nsid, 0x1001u);
    EXPECT_EQ(sent.cdw2, 0x1002u);
    EXPECT_EQ(sent.cdw3, 0u) << "dwords 3-9 are dropped";
    EXPECT_EQ(sent.metadata, 0u);
    const KRT_U32 words[] = {sent.cdw10, sent.cdw11, sent.cdw12, sent.cdw13, sent.cdw14, sent.cdw15};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(words[i], 0x100Au + i);
    // Input wins: the output buffer is not handed to the driver.
    EXPECT_EQ(sent.addr, reinterpret_cast<KRT_U64>(in));
    EXPECT_EQ(sent.data_len, sizeof in);

    const KRT_U32 eight[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0xFFFFFFFF, eight, 8, nullptr, 0, out, sizeof out), 0u);
    sent = last();
    EXPECT_EQ(sent.nsid, 0xFFFFFFFFu);
    EXPECT_EQ(sent.cdw10, 1u);
    EXPECT_EQ(sent.cdw15, 6u);
    EXPECT_EQ(sent.addr, reinterpret_cast<KRT_U64>(out));
    EXPECT_EQ(sent.data_len, sizeof out);
    dev->closeHandle();
}

TEST_F(LinuxHost, NodeThatCouldNotBeOpenedAnswersNoAdapter)
{
    Device *dev = CreateLinuxNVMEDeviceInstance(-1, "/dev/nvme7", 0);
    ASSERT_NE(dev, nullptr);
    krt_admin_command_format cmd{};
    EXPECT_EQ(dev->sendCommand(NVME_ADMIN_IDENTIFY, 0, nullptr, 0, nullptr, 0, nullptr, 0), KRT_STATUS_NO_ADAPTER);
    EXPECT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0), KRT_STATUS_NO_ADAPTER);
    EXPECT_TRUE(fake.commands.empty());
    dev->closeHandle();
}

class LinuxScan : public LinuxHost {
  protected:
    void SetUp() override
    {
        LinuxHost::SetUp();
        gVIDFormCLI = kQemuVid;
    }
    void TearDown() override
    {
        registry.Final();
        EXPECT_TRUE(fake.open.empty()) << "every node not registered is closed, and Final closes the rest";
        LinuxHost::TearDown();
    }
    // A node in the tree and its behaviour.
    void node(const std::string &name, Node n = {})
    {
        tree.write(name, "x");
        fake.nodes[tree.file(name)] = n;
    }
    std::vector<std::string> paths()
    {
        std::vector<std::string> out;
        for (KRT_U16 i = 0; i < registry.getDeviceCount(); ++i)
            out.push_back(registry.getDevicePath(i));
        return out;
    }

    TempTree tree;
    DeviceManagement registry;
};

TEST_F(LinuxScan, ControllersOnlyInTheScansOrder)
{
    for (const char *name : {"nvme2", "nvme10", "nvme0", "nvme1"})
        node(name);
    // Names that only look like controllers are never opened.
    for (const char *name : {"nvme0n1", "nvme1n1p1", "nvmeX", "nvme-fabrics", "nvme", "sda", "nvme0c0n1"})
        node(name);
    EXPECT_EQ(registry.Scan(tree.path().c_str()), 4);
    // Swapping every differing neighbour pair leaves the controllers in the
    // reverse of the order the directory lists them.
    std::vector<std::string> listed;
    DIR *dir = opendir(tree.path().c_str());
    ASSERT_NE(dir, nullptr);
    while (const dirent *entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "nvme2" || name == "nvme10" || name == "nvme0" || name == "nvme1")
            listed.insert(listed.begin(), tree.file(name));
    }
    closedir(dir);
    EXPECT_EQ(paths(), listed);
    EXPECT_EQ(fake.opened.size(), 4u);
    EXPECT_EQ(registry.isSysDenied(), 0);
}

TEST_F(LinuxScan, RefusedAndForeignNodesAreSkipped)
{
    node("nvme0", {.ioctlErrno = ENOTTY});  // not a controller
    node("nvme1", {.vid = 0x8086});         // another vendor than --vid names
    node("nvme2", {.status = 0x4001});      // refuses Identify
    node("nvme3");
    EXPECT_EQ(registry.Scan(tree.path().c_str()), 4);
    EXPECT_EQ(paths(), std::vector<std::string>{tree.file("nvme3")});
}

TEST_F(LinuxScan, PermissionDeniedIsReportedAndEndsTheScan)
{
    node("nvme0", {.openErrno = EACCES});
    registry.Scan(tree.path().c_str());
    EXPECT_EQ(registry.getDeviceCount(), 0);
    EXPECT_EQ(registry.isSysDenied(), 1);
}

TEST_F(LinuxScan, NoControllerNodes)
{
    node("nvme-fabrics");
    EXPECT_EQ(registry.Scan(tree.path().c_str()), 0);
    EXPECT_EQ(registry.Scan(tree.file("missing").c_str()), 0);
    EXPECT_EQ(registry.getDeviceCount(), 0);
    EXPECT_EQ(registry.isSysDenied(), 0);
}

}  // namespace
