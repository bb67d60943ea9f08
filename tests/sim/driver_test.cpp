// The simulated platform library as the tool meets it: signatures, version
// checks, the adapter list, handles, Identify and the direct requests.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>

#include "krt/ids.h"
#include "krt/records.h"
#include "machine.h"
#include "sim_machine.h"

using krt_sim_test::LibMachine;

TEST(SimDriver, ListsTheAdaptersOfEachFixture)
{
    struct Case {
        const char *fixture;
        KRT_U32 count;
    } cases[] = {{"raid", 1}, {"jbof", 1}, {"multi", 3}, {"foreign", 2}, {"empty", 0}, {"large", 64}, {"degraded", 1}};
    for (const Case &c : cases) {
        LibMachine m(c.fixture);
        nvme_adapter_list list;
        ASSERT_EQ(m.client().list(list), 0) << c.fixture;
        EXPECT_EQ(list.count, c.count) << c.fixture;
        for (KRT_U32 i = 0; i < list.count; ++i) {
            EXPECT_EQ(std::string(list.adapters[i].name), "vmhba" + std::to_string(i + 1));
            EXPECT_EQ(std::string(list.adapters[i].signature), "nvmeMgmt-vmhba" + std::to_string(i + 1));
        }
    }
}

TEST(SimDriver, InitChecksNameAndVersion)
{
    LibMachine m("raid");
    auto &c = m.client();
    struct Case {
        const char *name;
        KRT_U32 version;
        bool ok;
    } cases[] = {
        {"nvmeMgmt", NVME_MGMT_VERSION, true},  {"nvmeMgmt-vmhba1", NVME_MGMT_VERSION, true},
        {"nvmeMgmt", 0x01000100, true},         {"nvmeMgmt", 0x02000000, false},
        {"nvmeMgmt-vmhba1", 0x00010000, false}, {"nvmeMgmt-vmhba2", NVME_MGMT_VERSION, false},
        {"", NVME_MGMT_VERSION, false},         {"otherMgmt", NVME_MGMT_VERSION, false},
    };
    for (const Case &k : cases) {
        vmk_MgmtApiSignature sig = krt_sim_test::SimClient::signature(k.name, k.version);
        vmk_MgmtUserHandle h = nullptr;
        int rc = c.init(&sig, 0, &h);
        EXPECT_EQ(rc == 0, k.ok) << k.name << " " << std::hex << k.version;
        EXPECT_EQ(h != nullptr, k.ok);
        if (h != nullptr) {
            EXPECT_EQ(c.destroy(h), 0);
        }
    }
    vmk_MgmtUserHandle h = nullptr;
    EXPECT_NE(c.init(nullptr, 0, &h), 0);
}

TEST(SimDriver, RefusesBadHandlesAndArguments)
{
    LibMachine m("raid");
    auto &c = m.client();
    KRT_U32 count = 0;
    nvme_adapter_list list{};
    EXPECT_EQ(c.invoke(nullptr, 0, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), EBADF);
    EXPECT_EQ(c.destroy(nullptr), EBADF);

    vmk_MgmtApiSignature sig = krt_sim_test::SimClient::signature(NVME_MGMT_NAME);
    vmk_MgmtUserHandle h = nullptr;
    ASSERT_EQ(c.init(&sig, 0, &h), 0);
    EXPECT_EQ(c.invoke(h, 0, NVME_MGMT_CB_LIST_ADAPTERS, 1, &count), EINVAL);
    EXPECT_EQ(c.invoke(h, 1, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), EINVAL);
    EXPECT_EQ(c.invoke(h, 0, 99, 2, &count, list.adapters), EINVAL);
    EXPECT_EQ(c.invoke(h, 0, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), 0);
    EXPECT_EQ(count, 1u);
    ASSERT_EQ(c.destroy(h), 0);
    EXPECT_EQ(c.destroy(h), EBADF);
    EXPECT_EQ(c.invoke(h, 0, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), EBADF);

    // A data length without a buffer is the caller's fault, not a crash.
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = NVME_ADMIN_IDENTIFY;
    cmd[10] = 1;
    EXPECT_EQ(c.admin("nvmeMgmt-vmhba1", cmd, XFER_FROM_DEV, nullptr, 4096).rc, EFAULT);
}

TEST(SimDriver, IdentifyControllerNamespaceAndCaps)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"cntlid": 7, "serial": "SN-42", "subnqn_828": 7,
        "subnqn": "nqn.test", "pd_count": 2,
        "vds": [{"raid": "raid1", "members": [0, 1], "namespaces": [{"sectors": 1000}]}]}]})");
    LibMachine m(dir.file("f.json"));
    std::array<KRT_U8, 4096> id{};
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = NVME_ADMIN_IDENTIFY;
    cmd[10] = NVME_CNS_CONTROLLER;
    auto r = m.client().admin("nvmeMgmt-vmhba1", cmd, XFER_FROM_DEV, id.data(), id.size());
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(id[0] | id[1] << 8, KRT_PCI_VENDOR_ID);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&id[NVME_ID_SN]), 6), "SN-42 ");
    EXPECT_EQ(id[NVME_ID_CNTLID], 7);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&id[NVME_ID_SUBNQN])), "nqn.test");
    EXPECT_EQ(id[828], 7);

    cmd[10] = NVME_CNS_PRIMARY_CTRL_CAPS;
    r = m.client().admin("nvmeMgmt-vmhba1", cmd, XFER_FROM_DEV, id.data(), id.size());
    EXPECT_EQ(id[0], 7);

    cmd[10] = NVME_CNS_NAMESPACE;
    cmd[1] = 1;
    id.fill(0);
    r = m.client().admin("nvmeMgmt-vmhba1", cmd, XFER_FROM_DEV, id.data(), id.size());
    EXPECT_EQ(r.compStatus, 0u);
    EXPECT_EQ(id[0] | id[1] << 8, 1000);
    cmd[1] = 9;
    r = m.client().admin("nvmeMgmt-vmhba1", cmd, XFER_FROM_DEV, id.data(), id.size());
    EXPECT_EQ(r.compStatus, 0x0Bu);
    EXPECT_NE(r.status, 0u);
}

TEST(SimDriver, DirectRequestsAnswerWithTheEnvelope)
{
    LibMachine m("raid");
    const char *sig = "nvmeMgmt-vmhba1";
    std::array<KRT_U8, 4096> reply{};
    struct Case {
        KRT_U32 cdw12;
        KRT_U32 cdw14;
        KRT_U8 status;
    } cases[] = {
        {krt_cdw12(0xE0, 0, 0), 0, 0},    {krt_cdw12(0xE1, 0, 0), 7, 0},    {krt_cdw12(0xE1, 0, 0), 8, 6},
        {krt_cdw12(0xE1, 0, 0), 5000, 6}, {krt_cdw12(0xE2, 0, 0), 1, 0},    {krt_cdw12(0xE2, 0, 0), 2, 7},
        {krt_cdw12(0xE3, 2, 0), 0, 0},    {krt_cdw12(0xE3, 2, 0), 3, 7},    {krt_cdw12(0xE5, 0, 0), 0, 0},
        {krt_cdw12(0xE5, 1, 0), 0, 0},    {krt_cdw12(0xE5, 1, 255), 0, 0},  {krt_cdw12(0xE5, 1, 9), 0, 7},
        {krt_cdw12(0xE0, 0x12, 1), 3, 0}, {krt_cdw12(0xE0, 0x12, 2), 3, 4}, {krt_cdw12(0xE0, 0x77, 0), 0, 5},
        {krt_cdw12(0x42, 0, 0), 0, 5},
    };
    for (const Case &c : cases) {
        auto r = m.client().direct(sig, c.cdw12, c.cdw14, reply);
        ASSERT_EQ(r.rc, 0);
        EXPECT_EQ(r.status, 0u);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(reply.data()), 3), "KRT");
        EXPECT_EQ(reply[4], c.status) << std::hex << c.cdw12 << " " << c.cdw14;
    }

    m.client().direct(sig, krt_cdw12(0xE0, 0, 0), 0, reply);
    _NVME_Adapter_Info info;
    std::memcpy(&info, reply.data() + 8, sizeof info);
    EXPECT_EQ(info.VID, KRT_PCI_VENDOR_ID);
    EXPECT_EQ(info.DID, KRT_PCI_DEVICE_ID);
    EXPECT_TRUE(info.Features & KRT_FEATURE_RAID);
    EXPECT_EQ(info.PCIeInfo[1].Type, 255);
    EXPECT_EQ(reply[8 + 158], 0x10);  // bus number

    m.client().direct(sig, krt_cdw12(0xE2, 0, 0), 0, reply);
    _NVME_VD_Info vd;
    std::memcpy(&vd, reply.data() + 8, sizeof vd);
    EXPECT_EQ(vd.RaidMode, KRT_RAID5);
    EXPECT_EQ(vd.MemberCount, 4);
    EXPECT_EQ(vd.PDIDs[3], 3);
    EXPECT_EQ(vd.NumParityDisk, 1);
    EXPECT_EQ(vd.NSIDs[0], 1);
    EXPECT_EQ(vd.NSIDs[1], 2);

    // The namespaces of VD 1 are packed from the first record.
    m.client().direct(sig, krt_cdw12(0xE5, 1, 1), 0, reply);
    _NVME_NS_Info ns;
    std::memcpy(&ns, reply.data() + 8, sizeof ns);
    EXPECT_EQ(ns.NSID, 3);
    EXPECT_EQ(ns.ID, 1);
    EXPECT_EQ(ns.device_type, 1);
    EXPECT_EQ(reply[8 + 96], 0);
}

TEST(SimDriver, NeverWritesPastTheCallersLength)
{
    LibMachine m("raid");
    std::array<KRT_U8, 64> buf;
    buf.fill(0xAA);
    std::array<KRT_U32, 16> cmd{};
    cmd[0] = KRT_VENDOR_OPCODE;
    cmd[12] = krt_cdw12(0xE0, 0, 0);
    auto r = m.client().admin("nvmeMgmt-vmhba1", cmd, XFER_FROM_DEV, buf.data(), 16);
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(buf[0], 'K');
    for (size_t i = 16; i < buf.size(); ++i)
        ASSERT_EQ(buf[i], 0xAA) << i;
}

TEST(SimDriver, JbofNamespacesSitOnDisks)
{
    LibMachine m("jbof");
    std::array<KRT_U8, 4096> reply{};
    m.client().direct("nvmeMgmt-vmhba1", krt_cdw12(0xE0, 0, 0), 0, reply);
    _NVME_Adapter_Info info;
    std::memcpy(&info, reply.data() + 8, sizeof info);
    EXPECT_FALSE(info.Features & KRT_FEATURE_RAID);
    m.client().direct("nvmeMgmt-vmhba1", krt_cdw12(0xE5, 0, 0), 0, reply);
    for (int i = 0; i < 4; ++i) {
        _NVME_NS_Info ns;
        std::memcpy(&ns, reply.data() + 8 + 96 * i, sizeof ns);
        EXPECT_EQ(ns.NSID, i + 1);
        EXPECT_EQ(ns.device_type, 0);
        EXPECT_EQ(ns.ID, i);
        EXPECT_EQ(ns.Status, KRT_NS_VALID | KRT_NS_ACTIVE);
    }
}
