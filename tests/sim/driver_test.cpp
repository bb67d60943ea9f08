// The platform library as the tool meets it: signatures, version checks,
// the adapter list, handles, Identify and the direct requests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "krt/ids.h"
#include "sim_client.h"

using namespace krt_sim_test;

TEST(SimDriver, ListsTheAdaptersOfEachFixture)
{
    const std::pair<const char *, KRT_U32> cases[] = {{"raid", 1},  {"jbof", 1},   {"multi", 3},   {"foreign", 2},
                                                      {"empty", 0}, {"large", 64}, {"degraded", 1}};
    for (const auto &[fixture, count] : cases) {
        SCOPED_TRACE(fixture);
        LibMachine m(fixture);
        nvme_adapter_list list;
        ASSERT_EQ(m.list(list), 0);
        EXPECT_EQ(list.count, count);
        for (KRT_U32 i = 0; i < list.count; ++i) {
            EXPECT_EQ(std::string(list.adapters[i].name), "vmhba" + std::to_string(i + 1));
            EXPECT_EQ(std::string(list.adapters[i].signature), "nvmeMgmt-vmhba" + std::to_string(i + 1));
        }
    }
}

TEST(SimDriver, InitChecksNameAndVersion)
{
    LibMachine m("raid");
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
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.version));
        vmk_MgmtApiSignature sig = signature(c.name, c.version);
        vmk_MgmtUserHandle h = nullptr;
        EXPECT_EQ(m.init(&sig, 0, &h) == 0, c.ok);
        EXPECT_EQ(h != nullptr, c.ok);
        if (h != nullptr) {
            EXPECT_EQ(m.destroy(h), 0);
        }
    }
    vmk_MgmtUserHandle h = nullptr;
    EXPECT_NE(m.init(nullptr, 0, &h), 0);
}

TEST(SimDriver, RefusesBadHandlesAndArgumentsAndBoundsTheData)
{
    LibMachine m("raid");
    KRT_U32 count = 0;
    nvme_adapter_list list{};
    EXPECT_EQ(m.invoke(nullptr, 0, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), EBADF);
    EXPECT_EQ(m.destroy(nullptr), EBADF);

    vmk_MgmtApiSignature sig = signature(NVME_MGMT_NAME);
    vmk_MgmtUserHandle h = nullptr;
    ASSERT_EQ(m.init(&sig, 0, &h), 0);
    EXPECT_EQ(m.invoke(h, 0, NVME_MGMT_CB_LIST_ADAPTERS, 1, &count), EINVAL);
    EXPECT_EQ(m.invoke(h, 1, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), EINVAL);
    EXPECT_EQ(m.invoke(h, 0, 99, 2, &count, list.adapters), EINVAL);
    EXPECT_EQ(m.invoke(h, 0, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), 0);
    EXPECT_EQ(count, 1u);
    ASSERT_EQ(m.destroy(h), 0);
    EXPECT_EQ(m.destroy(h), EBADF);
    EXPECT_EQ(m.invoke(h, 0, NVME_MGMT_CB_LIST_ADAPTERS, 2, &count, list.adapters), EBADF);

    // A data length without a buffer is the caller's fault, not a crash.
    EXPECT_EQ(m.admin(cmd({{0, NVME_ADMIN_IDENTIFY}, {10, 1}}), XFER_FROM_DEV, nullptr, 4096).rc, EFAULT);
    // Nothing is written past the caller's length.
    std::array<KRT_U8, 64> buf;
    buf.fill(0xAA);
    EXPECT_EQ(m.admin(cmd({{0, KRT_VENDOR_OPCODE}, {12, krt_cdw12(0xE0, 0, 0)}}), XFER_FROM_DEV, buf.data(), 16).rc, 0);
    EXPECT_EQ(buf[0], 'K');
    EXPECT_EQ(std::count(buf.begin() + 16, buf.end(), 0xAA), 48);
}

TEST(SimDriver, IdentifyControllerCapsAndNamespace)
{
    krt_test::TempDir dir;
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"cntlid": 7, "serial": "SN-42", "subnqn_828": 7}]})");
    LibMachine m(dir.file("f.json"));
    Reply id{};
    ASSERT_EQ(m.read(cmd({{0, NVME_ADMIN_IDENTIFY}, {10, NVME_CNS_CONTROLLER}}), id), 0u);
    EXPECT_EQ(id[0] | id[1] << 8, KRT_PCI_VENDOR_ID);
    EXPECT_EQ(text(&id[NVME_ID_SN], 6), "SN-42 ");
    EXPECT_EQ(id[NVME_ID_CNTLID], 7);
    EXPECT_EQ(id[828], 7);
    ASSERT_EQ(m.read(cmd({{0, NVME_ADMIN_IDENTIFY}, {10, NVME_CNS_PRIMARY_CTRL_CAPS}}), id), 0u);
    EXPECT_EQ(id[0], 7);
    auto r = m.admin(cmd({{0, NVME_ADMIN_IDENTIFY}, {1, 9}, {10, NVME_CNS_NAMESPACE}}), XFER_FROM_DEV, id.data(), 4096);
    EXPECT_EQ(r.compStatus, 0x0Bu);
    EXPECT_NE(r.status, 0u);
}

TEST(SimDriver, DirectRequestsAnswerWithTheEnvelope)
{
    LibMachine m("raid");
    struct Case {
        KRT_U32 cdw12;
        KRT_U32 cdw14;
        KRT_U8 status;
    } cases[] = {
        {krt_cdw12(0xE0, 0, 0), 0, 0},    {krt_cdw12(0xE1, 0, 0), 7, 0},    {krt_cdw12(0xE1, 0, 0), 8, 6},
        {krt_cdw12(0xE1, 0, 0), 5000, 6}, {krt_cdw12(0xE2, 0, 0), 1, 0},    {krt_cdw12(0xE2, 0, 0), 2, 7},
        {krt_cdw12(0xE3, 2, 0), 0, 0},    {krt_cdw12(0xE3, 2, 0), 3, 7},    {krt_cdw12(0xE5, 1, 0), 0, 0},
        {krt_cdw12(0xE5, 1, 255), 0, 0},  {krt_cdw12(0xE5, 1, 9), 0, 7},    {krt_cdw12(0xE0, 0x12, 1), 3, 0},
        {krt_cdw12(0xE0, 0x12, 2), 3, 4}, {krt_cdw12(0xE0, 0x77, 0), 0, 5}, {krt_cdw12(0x42, 0, 0), 0, 5},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.cdw12) + " " + std::to_string(c.cdw14));
        AdminResult r;
        Reply reply = m.query(c.cdw12, c.cdw14, &r);
        ASSERT_EQ(r.rc, 0);
        EXPECT_EQ(r.status, 0u);
        EXPECT_EQ(text(reply.data(), 3), "KRT");
        EXPECT_EQ(reply[4], c.status);
    }
}
