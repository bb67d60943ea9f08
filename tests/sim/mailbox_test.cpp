// Paired requests: the send stores a reply, the receive hands it out once;
// list requests follow the request header.
#include <gtest/gtest.h>

#include "krt/records.h"
#include "sim_machine.h"

using krt_sim_test::LibMachine;

namespace {

const char *const kSig = "nvmeMgmt-vmhba1";

_RequestHeader header(KRT_U16 start, KRT_U8 wanted)
{
    _RequestHeader h{};
    h.size = sizeof h;
    h.start = start;
    h.numRequested = wanted;
    return h;
}

std::vector<KRT_U8> bytes(const void *p, size_t n)
{
    auto *b = static_cast<const KRT_U8 *>(p);
    return {b, b + n};
}

}  // namespace

TEST(SimMailbox, GetInfoMatchesTheDirectQuery)
{
    LibMachine m("raid");
    std::array<KRT_U8, 4096> paired{}, direct{};
    auto r = m.client().paired(kSig, {KRT_CLASS_ADAPTER, 0}, {}, paired);
    ASSERT_EQ(r.rc, 0);
    ASSERT_EQ(r.status, 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(paired.data()), 3), "KRT");
    EXPECT_EQ(paired[4], 0);
    m.client().direct(kSig, krt_cdw12(0xE0, 0, 0), 0, direct);
    EXPECT_EQ(0, std::memcmp(paired.data() + 8, direct.data() + 8, sizeof(_NVME_Adapter_Info)));
}

TEST(SimMailbox, ReceiveHandsTheReplyOutOnce)
{
    LibMachine m("raid");
    std::array<KRT_U8, 4096> reply{};
    ASSERT_EQ(m.client().paired(kSig, {KRT_CLASS_ADAPTER, 1}, {}, reply).status, 0u);
    EXPECT_EQ(reply[4], 0);
    auto r = m.client().receive(kSig, reply);
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(reply.data()), 3), "KRT");
    EXPECT_NE(reply[4], 0);  // nothing pending
}

TEST(SimMailbox, SettingsPersistAcrossRequests)
{
    LibMachine m("raid");
    std::array<KRT_U8, 4096> reply{};
    _NVME_Adapter_Config cfg{};
    cfg.AutoRebuildOn = 0;
    cfg.BGARate = 77;
    ASSERT_EQ(m.client().paired(kSig, {KRT_CLASS_ADAPTER, 2}, bytes(&cfg, sizeof cfg), reply).status, 0u);
    EXPECT_EQ(reply[4], 0);
    m.client().paired(kSig, {KRT_CLASS_ADAPTER, 1}, {}, reply);
    EXPECT_EQ(reply[8], 0);
    EXPECT_EQ(reply[9], 77);
    // A short settings record is refused.
    m.client().paired(kSig, {KRT_CLASS_ADAPTER, 2}, {1, 2}, reply);
    EXPECT_EQ(reply[4], 4);
}

TEST(SimMailbox, ListsFollowTheRequestHeader)
{
    LibMachine m("raid");  // PDs 0-7, VDs 0-1
    struct Case {
        KRT_U16 cls, sub;
        KRT_U16 start;
        KRT_U8 wanted;
        KRT_U8 returned;
        KRT_U16 next;
        size_t recordSize;
        KRT_U16 firstId;
    } cases[] = {
        {KRT_CLASS_PD, 0, 2, 3, 3, 5, sizeof(_NVME_PD_Info), 2},
        {KRT_CLASS_PD, 0, 6, 10, 2, 0xFFFF, sizeof(_NVME_PD_Info), 6},
        {KRT_CLASS_PD, 0, 0, 255, 8, 0xFFFF, sizeof(_NVME_PD_Info), 0},
        {KRT_CLASS_PD, 0, 9, 4, 0, 0xFFFF, sizeof(_NVME_PD_Info), 0},
        {KRT_CLASS_VD, 0, 0, 1, 1, 1, sizeof(_NVME_VD_Info), 0},
        {KRT_CLASS_VD, 0, 0, 4, 2, 0xFFFF, sizeof(_NVME_VD_Info), 0},
        {KRT_CLASS_BGA, 2, 1, 4, 1, 0xFFFF, sizeof(_NVME_BGA_STATUS), 1},
        {KRT_CLASS_BGA, 1, 0, 8, 8, 0xFFFF, sizeof(_NVME_BGA_STATUS), 0},
    };
    for (const Case &c : cases) {
        std::array<KRT_U8, 4096> reply{};
        _RequestHeader h = header(c.start, c.wanted);
        ASSERT_EQ(m.client().paired(kSig, {c.cls, c.sub}, bytes(&h, sizeof h), reply).status, 0u);
        ASSERT_EQ(reply[4], 0);
        _RequestHeader out;
        std::memcpy(&out, reply.data() + 8, sizeof out);
        EXPECT_EQ(out.numReturned, c.returned) << c.cls << "/" << c.sub << " from " << c.start;
        EXPECT_EQ(out.nextStart, c.next) << c.cls << "/" << c.sub << " from " << c.start;
        if (c.returned > 0) {
            // Every record kind starts with its id (byte 2 for activities).
            size_t at = 8 + sizeof out + (c.recordSize == sizeof(_NVME_BGA_STATUS) ? 2 : 0);
            EXPECT_EQ(reply[at], c.firstId);
        }
        // Nothing is written past the records returned.
        EXPECT_EQ(reply[8 + sizeof out + c.returned * c.recordSize], 0);
    }
}

TEST(SimMailbox, NamespacesOfAVdByParameter)
{
    LibMachine m("raid");
    std::array<KRT_U8, 4096> reply{};
    m.client().paired(kSig, {KRT_CLASS_NS, 1, 0}, {}, reply);
    EXPECT_EQ(reply[4], 0);
    EXPECT_EQ(reply[8], 1);
    EXPECT_EQ(reply[8 + 96], 2);
    EXPECT_EQ(reply[8 + 192], 0);
    m.client().paired(kSig, {KRT_CLASS_NS, 1, 255}, {}, reply);
    EXPECT_EQ(reply[8 + 192], 3);
    m.client().paired(kSig, {KRT_CLASS_NS, 1, 5}, {}, reply);
    EXPECT_EQ(reply[4], 7);
}

TEST(SimMailbox, MalformedRequestsAreRefused)
{
    LibMachine m("raid");
    std::array<KRT_U8, 4096> reply{};
    // Unknown class/sub: not supported.
    m.client().paired(kSig, {KRT_CLASS_ADAPTER, 0x55}, {}, reply);
    EXPECT_EQ(reply[4], 5);
    // A single command word is not a request.
    m.client().paired(kSig, {KRT_CLASS_ADAPTER}, {}, reply);
    EXPECT_EQ(reply[4], 3);

    // A send whose fixed words are wrong completes with Invalid Field.
    std::array<KRT_U8, 4096> request{};
    std::array<KRT_U32, 16> send{};
    send[0] = KRT_PAIR_SEND_WIRE;
    send[10] = 1024;
    send[11] = 0;
    send[15] = KRT_PAIR_CDW15;
    auto r = m.client().admin(kSig, send, XFER_TO_DEV, request.data(), request.size());
    EXPECT_EQ(r.compStatus, 2u);
    EXPECT_NE(r.status, 0u);
}

TEST(SimMailbox, ArrayActionsInTheClassForm)
{
    LibMachine m("degraded");  // VD 0 rebuild paused; VD 1 initialising
    std::array<KRT_U8, 4096> reply{};
    _RequestHeader h = header(1, 1);
    h.requestType = 2;
    m.client().paired(kSig, {KRT_CLASS_BGA, 4, 3}, bytes(&h, sizeof h), reply);
    EXPECT_EQ(reply[4], 0) << "stop VD 1's initialisation";
    m.client().paired(kSig, {KRT_CLASS_BGA, 4, 3}, bytes(&h, sizeof h), reply);
    EXPECT_EQ(reply[4], 67) << "nothing left to stop";

    h.start = 0;
    m.client().paired(kSig, {KRT_CLASS_BGA, 4, 3}, bytes(&h, sizeof h), reply);
    _NVME_Rebuild rb{};
    rb.VDID = 0;
    rb.PDID = 9;
    m.client().paired(kSig, {KRT_CLASS_BGA, 7}, bytes(&rb, sizeof rb), reply);
    EXPECT_EQ(reply[4], 0);
    m.client().paired(kSig, {KRT_CLASS_BGA, 7}, bytes(&rb, sizeof rb), reply);
    EXPECT_EQ(reply[4], 66) << "a rebuild is running";

    const KRT_U16 vd[2] = {1, 0};
    m.client().paired(kSig, {KRT_CLASS_VD, 4}, bytes(vd, sizeof vd), reply);
    EXPECT_EQ(reply[4], 0);
    m.client().paired(kSig, {KRT_CLASS_VD, 4}, bytes(vd, sizeof vd), reply);
    EXPECT_EQ(reply[4], 7);
    m.client().paired(kSig, {KRT_CLASS_VD, 4}, {1}, reply);
    EXPECT_EQ(reply[4], 4) << "a short record";
}
