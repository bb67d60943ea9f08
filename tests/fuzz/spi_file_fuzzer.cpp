// SPI input files: the file spi write sends to a controller that accepts
// everything, and the input file of a pass-through request.
//
// Input: which command (1 byte), then the file.
#include <cstddef>
#include <cstdint>
#include <string>

#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 1)
        return -1;
    const std::string path = krt_fuzz::fileWith(0, data + 1, size - 1);
    static const char *const kCommands[] = {
        "spi -t write --inputfile ",
        "passthru -i 1 -r write -o 0x09 -d 512 --inputfile ",
    };
    krt_fuzz::beginRun(1, 1, nullptr, 0, krt_fuzz::WhenExhausted::Healthy, false);
    krt_fuzz::runLine(kCommands[data[0] % 2] + path);
    krt_fuzz::endRun();
    return 0;
}
