// Firmware update of a controller: a worker thread downloads the image with
// Firmware Image Download, activates a whole raw image with its CRC, and
// commits it with Firmware Commit, reporting on the controller's progress
// bar as it goes.
#pragma once

#include "firmware/image.h"
#include "firmware/progressbar.h"
#include "krt/types.h"

class Device;

// What the worker is handed (copied into its progress bar).
struct _KRTFlashData {
    KRT_U8 adapter;
    KRT_U16 device_id;  // not used on the controller path
    KRT_U8 fs;          // firmware slot 0-7
    KRT_U8 ca;          // commit action 0-7
    KRT_U8 type;        // 1: a whole raw image, 0: a normal image
    const char *file_name;
};

// Commit actions with a meaning of their own to the worker.
constexpr KRT_U8 KRT_CA_ACTIVATE_SLOT = 2;  // activate a stored slot: no image
constexpr KRT_U8 KRT_CA_REPLACE_NOW = 3;    // an image is optional

// One controller update.
struct _KRTFlash {
    _KRTFileBuffer *m_file = nullptr;
    _KRTProgressBar *m_progress = nullptr;  // the controller's bar, set by init
    KRT_U8 m_slot = 0;
    KRT_U8 m_ca = 0;
    KRT_U8 m_type = 0;
    KRT_U16 m_segment_size = KRT_FLASH_SEGMENT;
    Device *m_d = nullptr;  // the controller's NVMe device, set by init
    KRT_U32 m_total_size = 0;
    KRT_U8 m_has_read_flash_info = 0;
    KRT_U16 m_device_id = 0;

    // Sends the image segment by segment (Firmware Image Download), each
    // status becoming the bar's result; stops at the end of the image or at
    // the first failure.
    void download();
    // Firmware Commit of (commit action, slot).
    void active();
    // The vendor request that has the controller check and take a whole raw
    // image by its CRC.
    void sp_active();
    // Opens and checks the image, takes the controller's device and bar.
    void init(const char *file_name, KRT_U16 adapter);
    // Closes the reader and frees the object.
    void destructor();
};

// Null when it cannot be allocated.
_KRTFlash *CreateKRTFlashAdapterInstance(KRT_U8 fs, KRT_U8 ca, KRT_U8 type);

// The worker of a controller update; arg is a _KRTFlashData.
void thread_flash_adapter_nvme(_KRTProgressBar *bar, void *arg);
KRTProgressFunction GetAdapterNvmeFlashAdapterFucntion();
