// The status line the user sees for a failed request.
#include <gtest/gtest.h>

#include <string>

#include "api/krt_api.h"
#include "api/status.h"

namespace {

std::string shown(KRT_U32 status)
{
    testing::internal::CaptureStdout();
    _showStatusCode(status);
    return testing::internal::GetCapturedStdout();
}

TEST(StatusCode, MessagesAndCodes)
{
    struct Case {
        KRT_U32 status;
        const char *line;
    };
    const Case cases[] = {
        {0x0107, "Invalid Firmware Image (Status Code: 0x107)\n"},
        {0x0702, "Unknown error (Status Code: 0x702)\n"},
        {static_cast<KRT_U32>(-22), "Unknown error (Status Code: 0xffffffea)\n"},
        {1, "Invalid Command Opcode (Status Code: 0x1)\n"},
        {0x0200, "Unknown Status (Status Code: 0x200)\n"},
        {0x0002, "Invalid Field in Command (Status Code: 0x2)\n"},
        {23, "Unknown Status (Status Code: 0x17)\n"},
        {32, "Unknown Status (Status Code: 0x20)\n"},
        {132, "Format In Progress (Status Code: 0x84)\n"},
        {133, "Unknown Status (Status Code: 0x85)\n"},
        {0x0104, "Unknown error (Status Code: 0x104)\n"},
        {0x0117, "Unknown error (Status Code: 0x117)\n"},
        {0x0122, "Invalid Resource Identifier (Status Code: 0x122)\n"},
        {0x0123, "Unknown error (Status Code: 0x123)\n"},
        {0x0707, "Invalid LD ID (Status Code: 0x707)\n"},
        {0x070A, "Unknown error (Status Code: 0x70a)\n"},
        {0x0732, "Unknown error (Status Code: 0x732)\n"},
        {0x0733, "LD is not redundant (Status Code: 0x733)\n"},
        {0x074A, "Invalid Namespace count (Status Code: 0x74a)\n"},
        {0x074B, "Unknown error (Status Code: 0x74b)\n"},
        {0x0747, "Rebuild source fail. (Status Code: 0x747)\n"},
        {0x0301, "Invalid Queue Identifier (Status Code: 0x301)\n"},  // SCT 3 has bit 8 set
        {0x0600, "Unknown Status (Status Code: 0x600)\n"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(shown(c.status), c.line) << std::hex << c.status;
    EXPECT_EQ(shown(0), "") << "success prints nothing";
}

}  // namespace
