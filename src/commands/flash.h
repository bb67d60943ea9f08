// The steps of the flash command, visible for tests.
#pragma once

#include "krt/types.h"

// 1 when the image cannot be opened (said so) or is larger than the
// controller's MaxFlashSize (0: no limit), else 0.
KRT_U32 checkFileSize(KRT_U16 adapter, const char *file);
// Controller update: starts the worker and polls it once a second.
KRT_U32 updateAdapterFlash(KRT_U16 adapter, const char *file, KRT_U8 slot, KRT_U8 ca, KRT_U8 type);
// Update of a back-end SSD through the controller, from the foreground;
// commitCdw10 is the Firmware Commit's CDW10 (boot partition, action, slot).
KRT_U32 updateHdFlash(KRT_U16 adapter, const char *file, KRT_U16 pdId, KRT_U32 commitCdw10, KRT_U8 ca);
// Slot count and active slots of the controller (type 0) or of an SSD (type 1).
void showSlotInfo(KRT_U16 adapter, int type, KRT_U16 pdId);
