// The Identify displays fed with hand-built pages: what no simulated
// controller reports (texts cut short or holding control bytes, capacities
// past 2^64, a wrapping LBA format count).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "commands/identify.h"
#include "stream_capture.h"
#include "text.h"

namespace {

using krt_test::has;
using krt_test::occurrences;

template <class Print>
std::string printed(Print print)
{
    krt_unit::StreamCapture out;
    print();
    return out.text();
}

TEST(IdentifyDisplay, ControllerTextsCapacitiesAndSubnqn)
{
    _krt_id_ctrl id{};
    std::memcpy(id.mn, "   Model X  ", 12);  // leading blanks
    std::memcpy(id.fr, "1.2.3\0zz", 8);      // ends early
    id.tnvmcap[0] = 3ull << 30;
    id.tnvmcap[1] = 9;  // above 2^64: shown in hex only
    id.unvmcap[0] = 0xFFFFFFFFFFFFFFFFull;
    std::memcpy(id.subnqn, "nqn.x\x01\x7F\xFF", 8);
    id.subnqn[59] = 'Z';
    const KRT_U32 tail = 4096;
    std::memcpy(id.subnqn + KRT_ID_SUBNQN_TEXT, &tail, sizeof tail);
    const std::string text = printed([&] { _showIDDetail(id); });
    EXPECT_TRUE(has(text, "MN:                      Model X  \nFR:                      1.2.3\n"));
    EXPECT_TRUE(has(text,
                    "TNVMCAP_LOW:             0xc0000000\nTNVMCAP_HIGH:            0x9\n"
                    "UNVMCAP_LOW:             0xffffffffffffffff\nUNVMCAP_HIGH:            0x0\n"
                    "TNVMCAP(Bytes):          3221225472\nTNVMCAP(GB):             3\n"
                    "UNVMCAP(Bytes):          18446744073709551615\nUNVMCAP(GB):             17179869183\n"));
    // Control bytes show as blanks; the number behind the text follows it.
    EXPECT_TRUE(text.ends_with("SUBNQN:                  nqn.x   " + std::string(51, ' ') + "Z4096\n\n")) << text;
    EXPECT_EQ(occurrences(text, "\n"), 44);
}

// The LBA formats of a namespace, as many as the count says.
TEST(IdentifyDisplay, LbaFormatCountThatWraps)
{
    _krt_id_ns ns{};
    // 255 formats + 1 wraps to none; 254 lists all 255, the last far past
    // the 64 NVMe defines but inside the page.
    ns.nlbaf = 255;
    EXPECT_EQ(occurrences(printed([&] { _showNSDetail(ns, 1); }), "[LBAF]"), 0);
    ns.nlbaf = 254;
    ns.lbaf[254].ds = 0x77;
    const std::string text = printed([&] { _showNSDetail(ns, 1); });
    EXPECT_EQ(occurrences(text, "[LBAF]"), 255);
    EXPECT_TRUE(has(text, "[LBAF]               254\n  MS:                0x0\n  DS:                0x77\n"));
}

}  // namespace
