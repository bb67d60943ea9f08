// The controller's logs as they travel: the event log read as text pages,
// the SPI (debug) log read chunk by chunk and switched on and off, and the
// 4096-byte SPI data area.
#pragma once

#include "krt/admin.h"
#include "krt/types.h"

// Sub-commands of the log class (KRT_CLASS_DUMP) in CDW12 byte 1.
constexpr KRT_U8 KRT_LOG_SPI_CHUNK = 0;   // next piece of the SPI log
constexpr KRT_U8 KRT_LOG_SPI_STATE = 2;   // whether the SPI log is on
constexpr KRT_U8 KRT_LOG_SPI_SWITCH = 3;  // CDW14: 1 on, 0 off
constexpr KRT_U8 KRT_LOG_EVENT_PAGE = 4;  // CDW13: the page's byte offset

// CDW10 of the log reads: the reply's length in dwords, less one.
constexpr KRT_U32 KRT_LOG_READ_DWORDS = KRT_BUFFER_SIZE / 4 - 1;

// The event log is read as 16 pages of 4096 bytes; CDW13 is the page's
// byte offset in the log and CDW14 the page size.
constexpr int KRT_EVENT_PAGES = 16;
constexpr KRT_U32 KRT_EVENT_PAGE_SIZE = KRT_BUFFER_SIZE;
constexpr int KRT_EVENT_TEXT_OFFSET = 40;

// The largest piece of the SPI log one reply carries.
constexpr KRT_U32 KRT_SPI_LOG_MAX_CHUNK = KRT_BUFFER_SIZE - 16;

// The SPI data area: read with Get Log Page of this vendor log, written
// with opcode 199 and this CDW12.
constexpr KRT_U32 KRT_SPI_SIZE = 4096;
constexpr KRT_U8 KRT_SPI_LOG_ID = 0xC0;
constexpr KRT_U32 KRT_SPI_READ_CDW10 = ((KRT_SPI_SIZE / 4 - 1) << 16) | KRT_SPI_LOG_ID;  // 0x03FF00C0
constexpr KRT_U32 KRT_SPI_WRITE_CDW10 = KRT_SPI_SIZE / 4;
constexpr KRT_U32 KRT_SPI_WRITE_CDW12 = 0x08E0;

#pragma pack(push, 1)

// An event page: the envelope is not looked at; the text is a series of
// "[SEQ]n[TIME]t[MSG]text" lines, each ended by a line feed, and need not
// be terminated.
struct _NVME_Event_Page {
    KRT_U8 head[KRT_EVENT_TEXT_OFFSET];
    char text[KRT_BUFFER_SIZE - KRT_EVENT_TEXT_OFFSET];
};
KRT_CHECK_SIZE(_NVME_Event_Page, KRT_BUFFER_SIZE);
KRT_CHECK_OFFSET(_NVME_Event_Page, text, 40);

// A piece of the SPI log. Only the low 16 bits of `length` count; a length
// of 0 ends the log.
struct _NVME_SPI_Log_Chunk {
    KRT_U8 sign[4];
    KRT_U8 cmd_status;
    KRT_U8 reserved[3];
    KRT_U32 length;
    KRT_U8 reserved2[4];
    char text[KRT_SPI_LOG_MAX_CHUNK];
};
KRT_CHECK_SIZE(_NVME_SPI_Log_Chunk, KRT_BUFFER_SIZE);
KRT_CHECK_OFFSET(_NVME_SPI_Log_Chunk, length, 8);
KRT_CHECK_OFFSET(_NVME_SPI_Log_Chunk, text, 16);

#pragma pack(pop)
