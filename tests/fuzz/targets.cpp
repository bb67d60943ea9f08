// The fuzz targets, one per binary: KRT_FUZZ_TARGET names the one this
// binary runs (tests/fuzz/CMakeLists.txt).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "device/smbios.h"
#include "firmware/image.h"
#include "harness.h"

namespace krt_fuzz {

// Command lines: the tokenizer, the dispatcher and every command's option
// parsing, fed arbitrary text as a shell session would be (one command per
// line, at most eight), against two controllers with nothing configured.
int cmdline(const std::uint8_t *data, std::size_t size)
{
    std::istringstream lines(std::string(reinterpret_cast<const char *>(data), size));
    beginRun(2, 2, nullptr, 0, WhenExhausted::Healthy, false);
    std::string line;
    // The shell's lines are C strings: a NUL ends the line there.
    for (int i = 0; i < 8 && std::getline(lines, line) && runLine(line.substr(0, line.find('\0'))) != -1; ++i) {
    }
    endRun();
    return 0;
}

// Controller replies: one command line, every reply and status from the
// input: its index (1 byte), set-up (1 byte: bits 0-1 controllers listed,
// bit 2 a list claiming more than it holds, bit 3 debug output), then the
// script (harness.h), start-up's scan first. Requests past it fail at the
// driver, so every poll and loop comes to an end.
int replies(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return -1;
    const unsigned adapters = data[1] & 3;
    beginRun(adapters, (data[1] & 4) != 0 ? 200 : adapters, data + 2, size - 2, WhenExhausted::Fail,
             (data[1] & 8) != 0);
    runLine(linesWithFiles()[data[0] % linesWithFiles().size()]);
    endRun();
    return 0;
}

// SMBIOS tables: the entry point and structure walk of a table file, and
// the walk alone over the same bytes with each kind of limit.
// Input: the bus number to look for (1 byte), the walk's count limit (1
// byte), then the file.
int smbios(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return -1;
    setUpProcess();
    char bdf[16];
    std::snprintf(bdf, sizeof bdf, "%02x:00.0", data[0]);
    get_SMBIOS_slot_ID(bdf, fileWith(0, data + 2, size - 2).c_str());
    smbios_find_slot(data + 2, size - 2, 0, true, data[0]);
    smbios_find_slot(data + 2, size - 2, data[1], false, data[0]);
    return 0;
}

// Firmware images: checksum and CRC, the segment reader as the download
// reads it (a short read counts as a whole step), the update image file, and
// the flash command to a controller that accepts everything.
// Input: the way it is flashed (1 byte), then the image.
int image(const std::uint8_t *data, std::size_t size)
{
    if (size < 1)
        return -1;
    setUpProcess();
    const auto length = static_cast<KRT_U32>(size - 1);
    checksumResult(data + 1, length);
    crcMake(data + 1, length);
    const std::string path = fileWith(0, data + 1, length);

    if (_KRTFileBuffer *reader = CreateKRTFileBufferInstance(); reader != nullptr) {
        if (reader->open_for_read(path.c_str(), (data[0] & 0x80) != 0 ? 1 + (data[0] & 0x3F) : KRT_FLASH_SEGMENT) ==
            0) {
            for (const KRT_U32 end = reader->get_file_length();
                 reader->get_offset() < end && reader->read() != nullptr;) {
            }
        }
        reader->close();
    }
    if (open_file_for_flash(path.c_str()) == 0) {
        std::vector<std::uint8_t> segment(KRT_FLASH_SEGMENT);
        for (long at = 0, end = get_file_length_for_flash(); at < end && read_file_for_flash(segment.data()) != 0;)
            at += KRT_FLASH_SEGMENT;
    }
    close_file_for_flash();

    static const char *const kFlash[] = {"flash -o hba -t raw -f ", "flash -o hba -s 2 -c 1 -f ",
                                         "flash -o hba -s 1 -c 3 -f ", "flash -o pd -i 1 -s 1 -c 1 -f "};
    beginRun(1, 1, nullptr, 0, WhenExhausted::Healthy, false);
    runLine(kFlash[data[0] % 4] + path);
    endRun();
    return 0;
}

// SPI input files: the file spi write sends to a controller that accepts
// everything, and the input file of a pass-through request.
// Input: which command (1 byte), then the file.
int spi_file(const std::uint8_t *data, std::size_t size)
{
    if (size < 1)
        return -1;
    static const char *const kCommands[] = {"spi -t write --inputfile ",
                                            "passthru -i 1 -r write -o 0x09 -d 512 --inputfile "};
    const std::string path = fileWith(0, data + 1, size - 1);
    beginRun(1, 1, nullptr, 0, WhenExhausted::Healthy, false);
    runLine(kCommands[data[0] % 2] + path);
    endRun();
    return 0;
}

}  // namespace krt_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    return krt_fuzz::KRT_FUZZ_TARGET(data, size);
}
