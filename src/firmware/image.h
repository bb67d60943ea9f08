// Firmware image files: the checksum and CRC a whole raw image is checked
// with, the reader the download worker takes the image through, and the
// one process-wide image file the size check opens before a controller
// update starts.
#pragma once

#include <cstddef>

#include "krt/types.h"

// Images are read and sent in segments of this size.
constexpr KRT_U32 KRT_FLASH_SEGMENT = 4096;

// 0 for a good raw image: its length is a whole number of segments and its
// little-endian 32-bit words add up to 0 (wrapping). 1 for a length that is
// not; an image of no words counts as good.
KRT_U32 checksumResult(const KRT_U8 *data, KRT_U32 length);
// Byte-wise CRC-32 of the reflected polynomial 0xEDB88320 from `seed`,
// without the final inversion.
KRT_U32 crc32(KRT_U32 seed, const KRT_U8 *data, KRT_U32 length);
// The CRC the controller checks a raw image with: crc32 from 0xFFFFFFFF over
// the image padded with zeros to whole segments, byte-swapped.
KRT_U32 crcMake(const KRT_U8 *data, KRT_U32 length);

// Reads an image file in steps of a fixed length into a buffer it owns.
struct _KRTFileBuffer {
    KRT_U8 *m_data = nullptr;  // m_step_length bytes
    KRT_U32 m_step_length = 0;
    KRT_U32 m_offset = 0;  // bytes consumed so far
    KRT_U32 m_crc = 0;
    KRT_U32 m_checksum_ret = 0;
    int m_file = -1;

    // Opens the file (leading single quotes and one trailing one dropped
    // from the name) for reads of `step` bytes, starting over at offset 0
    // with a fresh zeroed buffer (none for step 0). 0, or 1 when the file
    // cannot be opened as a regular file or the buffer not be had.
    int open_for_read(const char *name, KRT_U32 step);
    // The next step into the buffer. A short read leaves the rest of the
    // buffer as the previous read left it, and counts as a whole step.
    // Null when there is no buffer or the read fails (the offset stays).
    KRT_U8 *read();
    KRT_U32 get_offset() const { return m_offset; }
    // Size of the open file (0 when none is open); the position is kept.
    KRT_U32 get_file_length();
    // Closes the file and frees the buffer and the reader.
    void close();
};

// A reader with no file open; null when it cannot be allocated.
_KRTFileBuffer *CreateKRTFileBufferInstance();

// The image file of a controller update, one per process, opened "rb" with
// its enclosing double quotes removed. 0, or 1 when it cannot be opened or
// is not a regular file.
int open_file_for_flash(const char *name);
// The next 4096 bytes; how many were read.
std::size_t read_file_for_flash(void *buffer);
// Its size in bytes, the position kept; 0 when none is open.
long get_file_length_for_flash();
void close_file_for_flash();
