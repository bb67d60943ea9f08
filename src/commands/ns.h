// The namespace table of the ns command: one entry per slot of the
// controller's host namespace list, rebuilt at the start of every run.
#pragma once

#include "krt/types.h"

#pragma pack(push, 1)
struct NSTableEntry {
    KRT_U8 nsid;  // 0: empty slot
    KRT_U8 eui64[8];
    KRT_U8 reserved1;
    KRT_U16 parentId;
    KRT_U8 status;
    KRT_U8 reserved2[3];
    KRT_U32 sectorSize;
    KRT_U8 reserved3[4];
    KRT_U64 lba;  // size in sectors
};
#pragma pack(pop)
KRT_CHECK_SIZE(NSTableEntry, 32);
KRT_CHECK_OFFSET(NSTableEntry, eui64, 1);
KRT_CHECK_OFFSET(NSTableEntry, parentId, 10);
KRT_CHECK_OFFSET(NSTableEntry, status, 12);
KRT_CHECK_OFFSET(NSTableEntry, sectorSize, 16);
KRT_CHECK_OFFSET(NSTableEntry, lba, 24);

// MaxNS entries while a run of ns lasts, null otherwise.
extern NSTableEntry *pGNSInfo;
// Entries filled from the controller's list.
extern KRT_U16 gTotalNSs;
// CNTLID of the controller the tool talks to; 2 or more on a virtual function.
// Kept from run to run when it cannot be read.
extern KRT_U16 gHostID;
