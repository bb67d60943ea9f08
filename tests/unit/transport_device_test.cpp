// The NVMe devices of both hosts (the driver list's, through an in-process
// platform library; the Linux one, through in-process nodes and ioctl), the
// paired-command device, and the Linux directory scan.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include "device/device.h"
#include "device/device_management.h"
#include "device/linux_nvme_device.h"
#include "device/nvme_device.h"
#include "platform/linux_nvme.h"
#include "platform/nvme_lib.h"
#include "transport_fake_driver.h"
#include "unit_support.h"

namespace {

using Words = std::vector<KRT_U32>;
constexpr KRT_U16 kQemuVid = 0x1b36;

// What a Linux node does when opened and asked.
struct Node {
    int openErrno = 0;   // non-zero: open fails with it
    int ioctlErrno = 0;  // non-zero: every command fails with it
    KRT_U16 vid = kQemuVid;
    int status = 0;  // the ioctl's result for a command that completes
};

struct Nodes {
    std::map<std::string, Node> nodes;  // by path
    std::map<int, std::string> open;    // fd -> path
    int opened = 0, nextFd = 100;
    std::vector<LinuxAdminCommand> commands;
} *gNodes = nullptr;

const LinuxNvmeCalls kNodeCalls{
    [](const char *path, int flags) {
        EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
        ++gNodes->opened;
        auto it = gNodes->nodes.find(path);
        errno = it == gNodes->nodes.end() ? ENOENT : it->second.openErrno;
        if (errno != 0)
            return -1;
        gNodes->open[gNodes->nextFd] = path;
        return gNodes->nextFd++;
    },
    [](int fd) {
        EXPECT_EQ(gNodes->open.erase(fd), 1u) << "closed twice or never opened: " << fd;
        return 0;
    },
    [](int fd, LinuxAdminCommand *cmd) {
        gNodes->commands.push_back(*cmd);
        const Node &node = gNodes->nodes[gNodes->open.at(fd)];
        if ((errno = node.ioctlErrno) != 0)
            return -1;
        if (cmd->opcode == NVME_ADMIN_IDENTIFY && cmd->addr != 0)
            std::memcpy(reinterpret_cast<KRT_U8 *>(cmd->addr) + NVME_ID_VID, &node.vid, 2);
        return node.status;
    },
};

// One admin command as the driver got it, from either host: dwords 0-4 (the
// Linux opcode alone), 10-15, then the data's address and length and the
// timeout in milliseconds.
using Row = std::vector<KRT_U64>;

// Both NVMe devices, each over a controller that answers everything.
class NvmeDevices : public ::testing::TestWithParam<bool> {
  protected:
    void SetUp() override
    {
        gNodes = &nodes;
        linux_nvme_set_calls(&kNodeCalls);
        fake::driver().adapters.push_back(fake::managedAdapter("vmhba1"));
        ASSERT_EQ(Nvme_GetAdapterList(adapterList()), 0);
        nodes.nodes["/dev/nvme0"] = {};
        dev = GetParam() ? CreateLinuxNVMEDeviceInstance(LinuxNvme_Open("/dev/nvme0"), "/dev/nvme0", 0)
                         : CreateNVMEDeviceInstance("vmhba1", 0);
    }
    void TearDown() override
    {
        dev->closeHandle();
        EXPECT_EQ(fake::driver().openHandles, 0) << "every driver handle is closed after its command";
        EXPECT_TRUE(nodes.open.empty()) << "closeHandle closes the node";
        linux_nvme_set_calls(nullptr);
    }
    std::vector<Row> sent() const
    {
        std::vector<Row> out;
        for (const fake::Request &r : fake::driver().requests) {
            const KRT_U32 *w = r.io.cmd;
            out.push_back({w[0], w[1], w[2], w[3], w[4], w[10], w[11], w[12], w[13], w[14], w[15], r.io.addr,
                           r.io.length, r.io.timeoutUs / 1000});
        }
        for (const LinuxAdminCommand &c : nodes.commands)
            out.push_back({c.opcode, c.nsid, c.cdw2, c.cdw3, c.metadata, c.cdw10, c.cdw11, c.cdw12, c.cdw13, c.cdw14,
                           c.cdw15, c.addr, c.data_len, c.timeout_ms});
        return out;
    }
    void forget()
    {
        fake::driver().requests.clear();
        nodes.commands.clear();
    }

    fake::Installed installed;
    Nodes nodes;
    Device *dev = nullptr;
};

TEST_P(NvmeDevices, OpcodeFilterMapsAndTimesOut)
{
    const struct {
        KRT_U8 opcode, wire;  // wire 0: refused without a request
        KRT_U64 timeoutMs;
    } cases[] = {
        {2, 2, 100000},   {6, 6, 100000},   {13, 13, 100000}, {21, 21, 100000}, {128, 128, 100000}, {199, 199, 100000},
        {17, 17, 100000}, {29, 29, 100000}, {30, 30, 100000}, {16, 16, 200000}, {251, 203, 100000}, {252, 206, 100000},
        {9, 0, 0},        {0xE2, 0, 0},     {203, 0, 0},      {0, 0, 0},
    };
    for (const auto &c : cases) {
        forget();
        KRT_U8 out[64] = {};
        EXPECT_EQ(dev->sendCommand(c.opcode, 0, nullptr, 0, nullptr, 0, out, sizeof out), c.wire != 0 ? 0u : 1u);
        const std::vector<Row> rows = sent();
        const Row got = rows.size() == 1 ? Row{rows[0][0], rows[0][13]} : Row{};
        EXPECT_EQ(got, c.wire != 0 ? (Row{c.wire, c.timeoutMs}) : Row{}) << int{c.opcode};
    }
}

TEST_P(NvmeDevices, WordsTheControllerSeesAndOneDataDirection)
{
    const KRT_U32 words[8] = {10, 11, 12, 13, 14, 15, 16, 17};
    KRT_U8 in[32] = {0xAB}, out[32] = {};
    const auto at = [](const void *p) { return reinterpret_cast<KRT_U64>(p); };
    // Six command words at most; the input wins, the output is never handed over.
    ASSERT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0xFFFFFFFF, words, 8, in, sizeof in, out, sizeof out), 0u);
    ASSERT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0, words, 1, nullptr, 0, out, sizeof out), 0u);
    EXPECT_EQ(sent(), (std::vector<Row>{{2, 0xFFFFFFFF, 0, 0, 0, 10, 11, 12, 13, 14, 15, at(in), 32, 100000},
                                        {2, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0, at(out), 32, 100000}}));
    if (!GetParam()) {
        EXPECT_EQ((Row{fake::driver().requests[0].io.direction, fake::driver().requests[1].io.direction}),
                  (Row{XFER_TO_DEV, XFER_FROM_DEV}));
    }
    // The raw form takes any opcode, keeps only dwords 0-2 and 10-15, and
    // waits the usual time even for a commit.
    krt_admin_command_format cmd{};
    for (KRT_U32 i = 0; i < 18; ++i)
        cmd.CDW[i] = 0x100u + i;
    cmd.cdw_flag = 0xFFFF;
    for (KRT_U32 opcode : {0x7Fu, KRT_U32{NVME_ADMIN_FW_COMMIT}}) {
        forget();
        cmd.CDW[0] = opcode;
        ASSERT_EQ(dev->sendPassthruAdmin(&cmd, in, sizeof in, out, sizeof out), 0u);
        EXPECT_EQ(sent(), (std::vector<Row>{{opcode, 0x101, 0x102, 0, 0, 0x10A, 0x10B, 0x10C, 0x10D, 0x10E, 0x10F,
                                             at(in), 32, 100000}}));
    }
}

INSTANTIATE_TEST_SUITE_P(Hosts, NvmeDevices, ::testing::Values(false, true),
                         [](const auto &param) { return param.param ? "Linux" : "DriverList"; });

class LinuxNodes : public ::testing::Test {
  protected:
    void SetUp() override
    {
        gNodes = &nodes;
        linux_nvme_set_calls(&kNodeCalls);
    }
    void TearDown() override
    {
        registry.Final();
        EXPECT_TRUE(nodes.open.empty()) << "every node not registered is closed, and Final closes the rest";
        linux_nvme_set_calls(nullptr);
        gVIDFormCLI = 0;
    }
    void node(const std::string &name, Node n = {})
    {
        tree.write(name, "x");
        nodes.nodes[tree.file(name)] = n;
    }
    std::vector<std::string> paths()
    {
        std::vector<std::string> out;
        for (KRT_U16 i = 0; i < registry.getDeviceCount(); ++i)
            out.push_back(registry.getDevicePath(i));
        return out;
    }

    Nodes nodes;
    TempTree tree;
    DeviceManagement registry;
};

// The controller's answer without its retry bits; 1 when none came back,
// with the errno kept apart from a controller's answer of 1.
TEST_F(LinuxNodes, StatusOfEachWayACommandEnds)
{
    const struct {
        int ioctl, err;  // the ioctl's result, and its errno when it fails
        KRT_U32 status;
    } cases[] = {
        {0, 0, 0},      {0x0002, 0, 0x0002}, {0x4001, 0, 0x0001}, {0x6181, 0, 0x0181},
        {0x1806, 0, 6}, {-1, EIO, 1},        {-1, ENOTTY, 1},     {-1, EINTR, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ioctl);
        nodes.nodes["/dev/nvme0"] = {.ioctlErrno = c.err, .status = c.ioctl};
        Device *dev = CreateLinuxNVMEDeviceInstance(LinuxNvme_Open("/dev/nvme0"), "/dev/nvme0", 0);
        KRT_U8 data[NVME_IDENTIFY_SIZE];
        EXPECT_EQ(dev->sendCommand(NVME_ADMIN_IDENTIFY, 0, nullptr, 0, nullptr, 0, data, sizeof data), c.status);
        krt_admin_command_format cmd{};
        EXPECT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, data, sizeof data), c.status);
        LinuxAdminCommand raw{};
        int error = -1;
        EXPECT_EQ(LinuxNvme_AdminPassthru(static_cast<LinuxNVMEDevice *>(dev)->m_fd, &raw, &error), c.status);
        EXPECT_EQ(error, c.err);
        dev->closeHandle();
    }
    // A node that could not be opened answers as a missing adapter.
    Device *dev = CreateLinuxNVMEDeviceInstance(-1, "/dev/nvme7", 0);
    krt_admin_command_format cmd{};
    nodes.commands.clear();
    EXPECT_EQ(dev->sendCommand(NVME_ADMIN_IDENTIFY, 0, nullptr, 0, nullptr, 0, nullptr, 0), KRT_STATUS_NO_ADAPTER);
    EXPECT_EQ(dev->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0), KRT_STATUS_NO_ADAPTER);
    EXPECT_TRUE(nodes.commands.empty());
    dev->closeHandle();
}

TEST_F(LinuxNodes, ScanKeepsTheControllersItAccepts)
{
    gVIDFormCLI = kQemuVid;
    for (const char *name : {"nvme2", "nvme10", "nvme0", "nvme1"})
        node(name);
    // Names that only look like controllers are never opened.
    for (const char *name : {"nvme0n1", "nvme1n1p1", "nvmeX", "nvme-fabrics", "nvme", "sda", "nvme0c0n1"})
        node(name);
    node("nvme3", {.ioctlErrno = ENOTTY});  // not a controller
    node("nvme4", {.vid = 0x8086});         // another vendor than --vid names
    node("nvme5", {.status = 0x4001});      // refuses Identify
    EXPECT_EQ(registry.Scan(tree.path().c_str()), 7);
    EXPECT_EQ(nodes.opened, 7);
    // Swapping every differing neighbour pair leaves the controllers in the
    // reverse of the order the directory lists them.
    std::vector<std::string> listed;
    DIR *dir = opendir(tree.path().c_str());
    while (const dirent *entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "nvme2" || name == "nvme10" || name == "nvme0" || name == "nvme1")
            listed.insert(listed.begin(), tree.file(name));
    }
    closedir(dir);
    EXPECT_EQ(paths(), listed);
    EXPECT_EQ(registry.isSysDenied(), 0);
    EXPECT_EQ(registry.Scan(tree.file("missing").c_str()), 0);

    // A node the user may not open is reported and ends the scan.
    registry.Final();
    TempTree denied;
    denied.write("nvme0", "x");
    nodes.nodes[denied.file("nvme0")] = {.openErrno = EACCES};
    registry.Scan(denied.path().c_str());
    EXPECT_EQ(registry.getDeviceCount(), 0);
    EXPECT_EQ(registry.isSysDenied(), 1);
}

// The driver list's device answers with the completion's status, whatever
// the driver call said; behind the paired-command device a reply without the
// signature fails, and a failed send is not followed by a receive. The rest
// of the pair's envelope and head are the simulator's to check.
TEST(DriverListDevice, StatusIsTheCompletionsAndAFailedSendEndsThePair)
{
    fake::Installed installed;
    fake::driver().adapters.push_back(fake::managedAdapter("vmhba1"));
    ASSERT_EQ(Nvme_GetAdapterList(adapterList()), 0);
    fake::Adapter &a = fake::driver().adapters[0];
    Device *dev = CreateNVMEDeviceInstance("vmhba1", 0);
    const KRT_U32 words[2] = {KRT_CLASS_ADAPTER, 0};
    a.completionDw3 = nvme_comp_dw3(1, 7);
    a.driverStatus = 5;
    EXPECT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0, words, 1, nullptr, 0, nullptr, 0), 0x107u);
    a.completionDw3 = 0;  // a failed driver call with a clean completion counts as success
    EXPECT_EQ(dev->sendCommand(NVME_ADMIN_GET_LOG_PAGE, 0, words, 1, nullptr, 0, nullptr, 0), 0u);
    dev->closeHandle();

    dev = CreatePairCMDDeviceInstance(CreateNVMEDeviceInstance("vmhba1", 0));
    a.driverStatus = 0;
    a.pairReply[0] = 'X';  // a reply without the signature: nothing of it is handed over
    KRT_U8 out[8] = {0xEE};
    EXPECT_EQ(dev->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, nullptr, 0, out, sizeof out), 1u);
    EXPECT_EQ(out[0], 0xEE);
    fake::driver().requests.clear();
    a.completionDw3 = nvme_comp_dw3(0, 6);
    a.driverStatus = 1;
    EXPECT_EQ(dev->sendCommand(KRT_PAIR_REQUEST_OPCODE, 0, words, 2, nullptr, 0, nullptr, 0), 1u);
    EXPECT_EQ(fake::driver().requests.size(), 1u) << "no receive after a failed send";
    dev->closeHandle();
}

}  // namespace
