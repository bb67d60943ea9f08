// The namespace requests of a JBOF controller: initializing a disk for a
// number of namespaces, creating them within its size and the host list's
// slots, and the refusals on the way.
#include <gtest/gtest.h>

#include "sim_client.h"

using namespace krt_sim_test;

namespace {

KRT_U32 vendor(KRT_U8 code)
{
    return 0x700u | code;
}

KRT_U32 nsInit(KRT_U8 pd)
{
    return krt_cdw12(KRT_CLASS_NS, 2, pd);
}
KRT_U32 nsCreate(KRT_U8 pdPlusOne, KRT_U8 controller = 1)
{
    return krt_cdw12(KRT_CLASS_NS, 4, static_cast<KRT_U16>(pdPlusOne | controller << 8));
}

}  // namespace

TEST(SimNamespaces, InitCreateAndShareWithTheirRefusals)
{
    krt_test::TempDir dir;
    // Two host slots, both in use: namespace 1 on PD 0 and 2 on PD 2.
    krt_test::writeFile(dir.file("f.json"), R"({"adapters": [{"raid": false, "max_ns": 2,
        "pds": [{}, {"failed": true}, {}], "namespaces": [{"pd": 0}, {"pd": 2}]}]})");
    LibMachine m(dir.file("f.json"));
    const struct {
        KRT_U32 cdw12, cdw13, cdw14, status;
    } refused[] = {
        {nsInit(1), 0, 2, vendor(6)},                      // a failed disk
        {nsInit(3), 0, 2, vendor(6)},                      // no disk
        {nsInit(0), 0, 0, vendor(74)},                     // no namespaces
        {nsInit(0), 0, 9, vendor(74)},                     // more than MaxNSPerVD
        {nsCreate(0), 1, 0, vendor(6)},                    // the byte holds the PD id plus 1
        {nsCreate(2), 1, 0, vendor(6)},                    // PD 1 has failed
        {nsCreate(1), 1, 0, vendor(65)},                   // PD 0 is taken whole by namespace 1
        {krt_cdw12(KRT_CLASS_NS, 3, 9), 0, 1, vendor(4)},  // share: no namespace 9
    };
    for (const auto &c : refused)
        EXPECT_EQ(m.act(c.cdw12, c.cdw13, c.cdw14), c.status) << std::hex << c.cdw12 << " " << c.cdw14;

    ASSERT_EQ(m.act(nsInit(0), 0, 1), 0u);
    EXPECT_EQ(m.act(nsCreate(1), 0, 0), vendor(65)) << "an empty namespace";
    EXPECT_EQ(m.act(nsCreate(1), 0, 1), vendor(65)) << "2^32 sectors, beyond the disk";
    ASSERT_EQ(m.act(nsCreate(1), 1000, 0), 0u);
    EXPECT_EQ(m.act(nsCreate(1), 1000, 0), vendor(74)) << "PD 0 was initialized for one";
    ASSERT_EQ(m.act(nsInit(0), 0, 2), 0u);
    ASSERT_EQ(m.act(nsCreate(1), 1000, 0), 0u);
    EXPECT_EQ(m.act(nsCreate(1), 1000, 0), vendor(8)) << "the host list has no slot left";

    // Shared namespaces say so in their Identify data (NMIC).
    std::array<KRT_U8, 4096> id{};
    ASSERT_EQ(m.act(krt_cdw12(KRT_CLASS_NS, 3, 1), 0, 1), 0u);
    ASSERT_EQ(m.read(cmd({{0, NVME_ADMIN_IDENTIFY}, {1, 1}}), id), 0u);
    EXPECT_EQ(id[30], 1);
    EXPECT_EQ(id[127], 1) << "the EUI64 ends in the namespace id";
    ASSERT_EQ(m.act(krt_cdw12(KRT_CLASS_NS, 3, 1), 0, 0x100), 0u);
    ASSERT_EQ(m.read(cmd({{0, NVME_ADMIN_IDENTIFY}, {1, 1}}), id), 0u);
    EXPECT_EQ(id[30], 0);
}
