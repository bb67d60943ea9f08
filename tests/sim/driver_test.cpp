// The platform library where the tool never takes it: other signatures and
// versions, lengths, a receive with nothing pending, a send with wrong words. What the tool's own requests get (each
// fixture's adapters and records, lists, direct requests) is seen by the
// end-to-end tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "sim_client.h"

using namespace krt_sim_test;

TEST(SimDriver, InitChecksNameAndVersion)
{
    LibMachine m("raid");
    const struct {
        const char *name;
        KRT_U32 version;
        bool ok;
    } cases[] = {
        {"nvmeMgmt", NVME_MGMT_VERSION, true},  {"nvmeMgmt-vmhba1", NVME_MGMT_VERSION, true},
        {"nvmeMgmt", 0x01000100, true},         {"nvmeMgmt", 0x02000000, false},
        {"nvmeMgmt-vmhba1", 0x00010000, false}, {"nvmeMgmt-vmhba2", NVME_MGMT_VERSION, false},
        {"", NVME_MGMT_VERSION, false},         {"otherMgmt", NVME_MGMT_VERSION, false},
    };
    for (const auto &c : cases) {
        vmk_MgmtApiSignature sig = signature(c.name, c.version);
        vmk_MgmtUserHandle h = nullptr;
        EXPECT_EQ(m.init(&sig, 0, &h) == 0, c.ok) << c.name << " " << c.version;
        EXPECT_EQ(h != nullptr, c.ok) << c.name << " " << c.version;
        if (h != nullptr) {
            EXPECT_EQ(m.destroy(h), 0);
        }
    }
    vmk_MgmtUserHandle h = nullptr;
    EXPECT_NE(m.init(nullptr, 0, &h), 0);
}

TEST(SimDriver, BoundsTheDataToTheCallersLength)
{
    LibMachine m("raid");
    // A data length without a buffer is the caller's fault, not a crash.
    EXPECT_EQ(m.admin(cmd({{0, NVME_ADMIN_IDENTIFY}, {10, 1}}), XFER_FROM_DEV, nullptr, 4096).rc, EFAULT);
    // Nothing is written past the caller's length.
    std::array<KRT_U8, 64> buf;
    buf.fill(0xAA);
    EXPECT_EQ(m.admin(cmd({{0, KRT_VENDOR_OPCODE}, {12, krt_cdw12(0xE0, 0, 0)}}), XFER_FROM_DEV, buf.data(), 16).rc, 0);
    EXPECT_EQ(buf[0], 'K');
    EXPECT_EQ(std::count(buf.begin() + 16, buf.end(), 0xAA), 48);
    // Namespace 9 does not exist.
    const AdminResult r = m.admin(cmd({{0, NVME_ADMIN_IDENTIFY}, {1, 9}, {10, NVME_CNS_NAMESPACE}}), XFER_FROM_DEV,
                                  buf.data(), buf.size());
    EXPECT_EQ(r.compStatus, 0x0Bu);
    EXPECT_NE(r.status, 0u);
}

TEST(SimMailbox, ReceiveHandsOutTheReplyOfTheSendOnce)
{
    LibMachine m("raid");
    Reply paired{};
    AdminResult r = m.paired({KRT_CLASS_ADAPTER, 0}, {}, paired);
    ASSERT_EQ(r.rc, 0);
    ASSERT_EQ(r.status, 0u);
    EXPECT_EQ(text(paired.data(), 3), "KRT");
    EXPECT_EQ(paired[4], 0);
    Reply direct = m.query(krt_cdw12(0xE0, 0, 0));
    EXPECT_EQ(0, std::memcmp(paired.data() + 8, direct.data() + 8, sizeof(_NVME_Adapter_Info)));

    EXPECT_EQ(m.receive(paired).status, 0u);
    EXPECT_EQ(text(paired.data(), 3), "KRT");
    EXPECT_NE(paired[4], 0) << "nothing pending";

    // A send whose fixed words are wrong completes with Invalid Field.
    r = m.admin(cmd({{0, KRT_PAIR_SEND_WIRE}, {10, 1024}, {15, KRT_PAIR_CDW15}}), XFER_TO_DEV, direct.data(), 4096);
    EXPECT_EQ(r.compStatus, 2u);
    EXPECT_NE(r.status, 0u);
}
