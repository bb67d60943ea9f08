// Controller replies: one command of every kind, run against a controller
// whose every reply and completion status comes from the input.
//
// Input: command (1 byte, an index into the command lines), set-up (1 byte:
// bits 0-1 the number of controllers listed, bit 2 a list that claims more
// controllers than it holds, bit 3 debug output), then the reply script (see
// harness.h), which the scan at start-up reads first. Requests past the
// script fail at the driver, so every poll and loop comes to an end.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "command_lines.h"
#include "harness.h"

namespace {

const std::vector<std::string> &lines()
{
    // A raw image of one segment whose words add up to 0, an SPI area, and
    // a file to write.
    static const std::vector<std::uint8_t> image(4096, 0), spi(4096, 'S');
    static const std::vector<std::string> all =
        krt_fuzz::commandLines(krt_fuzz::fileWith(0, image.data(), image.size()),
                               krt_fuzz::fileWith(1, spi.data(), spi.size()), krt_fuzz::fileWith(2, spi.data(), 0));
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return -1;
    const std::string &line = lines()[data[0] % lines().size()];
    const unsigned adapters = data[1] & 3;
    const std::uint32_t listed = (data[1] & 4) != 0 ? 200 : adapters;
    krt_fuzz::beginRun(adapters, listed, data + 2, size - 2, krt_fuzz::WhenExhausted::Fail, (data[1] & 8) != 0);
    krt_fuzz::runLine(line);
    krt_fuzz::endRun();
    return 0;
}
