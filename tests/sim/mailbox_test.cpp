// Paired requests: the send stores a reply, the receive hands it out once;
// list requests follow the request header; refusals come in the envelope.
#include <gtest/gtest.h>

#include "sim_client.h"

using namespace krt_sim_test;

TEST(SimMailbox, ReceiveHandsOutTheReplyOfTheSendOnce)
{
    LibMachine m("raid");
    Reply paired{};
    auto r = m.paired({KRT_CLASS_ADAPTER, 0}, {}, paired);
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
    Reply request{};
    r = m.admin(cmd({{0, KRT_PAIR_SEND_WIRE}, {10, 1024}, {15, KRT_PAIR_CDW15}}), XFER_TO_DEV, request.data(), 4096);
    EXPECT_EQ(r.compStatus, 2u);
    EXPECT_NE(r.status, 0u);
}

TEST(SimMailbox, ListsFollowTheRequestHeader)
{
    LibMachine m("raid");  // PDs 0-7, VDs 0-1
    struct Case {
        KRT_U16 cls, sub, start;
        KRT_U8 wanted, returned;
        KRT_U16 next;
        size_t recordSize;
    } cases[] = {
        {KRT_CLASS_PD, 0, 2, 3, 3, 5, sizeof(_NVME_PD_Info)},
        {KRT_CLASS_PD, 0, 6, 10, 2, 0xFFFF, sizeof(_NVME_PD_Info)},
        {KRT_CLASS_VD, 0, 0, 4, 2, 0xFFFF, sizeof(_NVME_VD_Info)},
        {KRT_CLASS_BGA, 2, 1, 4, 1, 0xFFFF, sizeof(_NVME_BGA_STATUS)},
        {KRT_CLASS_BGA, 1, 0, 8, 8, 0xFFFF, sizeof(_NVME_BGA_STATUS)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::to_string(c.cls) + "/" + std::to_string(c.sub) + " from " + std::to_string(c.start));
        Reply reply{};
        ASSERT_EQ(m.paired({c.cls, c.sub}, requestHeader(c.start, c.wanted), reply).status, 0u);
        ASSERT_EQ(reply[4], 0);
        auto out = record<_RequestHeader>(reply);
        EXPECT_EQ(out.numReturned, c.returned);
        EXPECT_EQ(out.nextStart, c.next);
        // Every record kind starts with its id (byte 2 for activities).
        if (c.returned > 0) {
            EXPECT_EQ(reply[8 + sizeof out + (c.cls == KRT_CLASS_BGA ? 2 : 0)], c.start);
        }
        EXPECT_EQ(reply[8 + sizeof out + c.returned * c.recordSize], 0) << "nothing past the records";
    }
}

TEST(SimMailbox, RequestsAndRefusalsInTheClassForm)
{
    LibMachine m("degraded");  // VD 0 rebuild paused; VD 1 initialising
    _NVME_Adapter_Config cfg{};
    cfg.BGARate = 77;
    const std::vector<KRT_U8> stop = requestHeader(1, 1, 2);
    struct Case {
        const char *what;
        std::vector<KRT_U16> words;
        std::vector<KRT_U8> input;
        KRT_U8 status;
    } cases[] = {
        {"unknown request", {KRT_CLASS_ADAPTER, 0x55}, {}, 5},
        {"a single command word", {KRT_CLASS_ADAPTER}, {}, 3},
        {"a short settings record", {KRT_CLASS_ADAPTER, 2}, {1, 2}, 4},
        {"settings", {KRT_CLASS_ADAPTER, 2}, bytesOf(cfg), 0},
        {"namespaces of a missing VD", {KRT_CLASS_NS, 1, 5}, {}, 7},
        {"stop VD 1's initialisation", {KRT_CLASS_BGA, 4, 3}, stop, 0},
        {"nothing left to stop", {KRT_CLASS_BGA, 4, 3}, stop, 67},
        {"delete VD 1", {KRT_CLASS_VD, 4}, {1, 0, 0, 0}, 0},
        {"delete it again", {KRT_CLASS_VD, 4}, {1, 0, 0, 0}, 7},
    };
    for (const Case &c : cases) {
        Reply reply{};
        m.paired(c.words, c.input, reply);
        EXPECT_EQ(reply[4], c.status) << c.what;
    }
    Reply reply{};
    m.paired({KRT_CLASS_ADAPTER, 1}, {}, reply);
    EXPECT_EQ(reply[9], 77) << "settings are kept";
}
