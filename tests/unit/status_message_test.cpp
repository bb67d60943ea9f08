// The status line the user sees for a failed request.
#include <gtest/gtest.h>

#include <string>

#include "api/krt_api.h"
#include "api/status.h"

namespace {

TEST(StatusCode, MessagesAndCodes)
{
    const struct {
        KRT_U32 status;
        const char *line;
    } cases[] = {
        {0, ""},  // success prints nothing
        {0x0107, "Invalid Firmware Image (Status Code: 0x107)\n"},
        {0x0702, "Unknown error (Status Code: 0x702)\n"},
        {static_cast<KRT_U32>(-22), "Unknown error (Status Code: 0xffffffea)\n"},
        {1, "Invalid Command Opcode (Status Code: 0x1)\n"},
        {0x0200, "Unknown Status (Status Code: 0x200)\n"},
        {132, "Format In Progress (Status Code: 0x84)\n"},
        {0x0733, "LD is not redundant (Status Code: 0x733)\n"},
        {0x0301, "Invalid Queue Identifier (Status Code: 0x301)\n"},  // SCT 3 has bit 8 set
    };
    for (const auto &c : cases) {
        testing::internal::CaptureStdout();
        _showStatusCode(c.status);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.line) << std::hex << c.status;
    }
}

}  // namespace
