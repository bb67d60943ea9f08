// Firmware images: the checksum and CRC of a raw image, the segment reader,
// the image file of a controller update, and the flash command taking the
// image to a controller that accepts everything.
//
// Input: the way it is flashed (1 byte), then the image.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "firmware/image.h"
#include "harness.h"

namespace {

// Reads the image through the segment reader as the download does, to its
// end; the reader counts a short read as a whole step.
void readInSteps(const std::string &path, KRT_U32 step)
{
    _KRTFileBuffer *reader = CreateKRTFileBufferInstance();
    if (reader == nullptr)
        return;
    if (reader->open_for_read(path.c_str(), step) == 0) {
        const KRT_U32 length = reader->get_file_length();
        while (reader->get_offset() < length && reader->read() != nullptr) {
        }
    }
    reader->close();
}

void readForFlash(const std::string &path)
{
    if (open_file_for_flash(path.c_str()) == 0) {
        std::vector<std::uint8_t> segment(KRT_FLASH_SEGMENT);
        const long length = get_file_length_for_flash();
        for (long at = 0; at < length; at += KRT_FLASH_SEGMENT) {
            if (read_file_for_flash(segment.data()) == 0)
                break;
        }
    }
    close_file_for_flash();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 1)
        return -1;
    krt_fuzz::setUpProcess();
    const std::uint8_t how = data[0];
    const std::uint8_t *image = data + 1;
    const auto length = static_cast<KRT_U32>(size - 1);

    checksumResult(image, length);
    crcMake(image, length);
    const std::string path = krt_fuzz::fileWith(0, image, length);
    readInSteps(path, (how & 0x80) != 0 ? 1 + (how & 0x3F) : KRT_FLASH_SEGMENT);
    readForFlash(path);

    static const char *const kFlash[] = {
        "flash -o hba -t raw -f ",
        "flash -o hba -s 2 -c 1 -f ",
        "flash -o hba -s 1 -c 3 -f ",
        "flash -o pd -i 1 -s 1 -c 1 -f ",
    };
    krt_fuzz::beginRun(1, 1, nullptr, 0, krt_fuzz::WhenExhausted::Healthy, false);
    krt_fuzz::runLine(kFlash[how % 4] + path);
    krt_fuzz::endRun();
    return 0;
}
