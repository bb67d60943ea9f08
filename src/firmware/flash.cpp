#include "firmware/flash.h"

#include <new>

#include "device/device.h"
#include "device/device_management.h"
#include "krt/admin.h"
#include "util/log.h"

namespace {

// The vendor request that activates a whole raw image: controller class,
// sub-command 0x0B, the image type in the unit; CDW13 carries "KRT ".
constexpr KRT_U8 kRawImageSub = 0x0B;
constexpr KRT_U32 kRawImageTag = 'K' | ('R' << 8) | ('T' << 16) | (static_cast<KRT_U32>(' ') << 24);
constexpr KRT_U16 kRawImageFlag = (1u << 0) | (1u << 12) | (1u << 13) | (1u << 15);

Device *nvmeDeviceOf(KRT_U16 adapter)
{
    return GetDeviceManagementInstance()->getDevice(adapter)->getNVMEDevice();
}

}  // namespace

void _KRTFlash::download()
{
    if (m_file == nullptr || m_d == nullptr || m_progress == nullptr)
        return;
    for (;;) {
        const KRT_U32 before = m_file->get_offset();
        const KRT_U32 cdws[2] = {m_segment_size / 4u - 1, before / 4};
        // Every segment goes out whole: past the end of the image the buffer
        // still holds the tail of the segment before.
        const KRT_U8 *segment = m_file->read();
        if (segment == nullptr) {
            // Committing what arrived so far would commit half an image.
            add_log("firmware image read failed at offset %u.\n", before);
            m_progress->setResult(1);
            return;
        }
        const KRT_U32 status =
            m_d->sendCommand(NVME_ADMIN_FW_DOWNLOAD, 0, cdws, 2, segment, m_segment_size, nullptr, 0);
        add_log("firmware image download CDW10 0x%x CDW11 0x%x ret %d.\n", cdws[0], cdws[1], static_cast<int>(status));
        m_progress->setResult(status);
        const KRT_U32 offset = m_file->get_offset();
        // 32-bit arithmetic kept in a byte, as the bar has always shown it:
        // the segment past the end of an image that is not whole segments
        // takes the figure beyond 100.
        if (m_total_size != 0)
            m_progress->setPercentage(static_cast<KRT_U8>(offset * 98u / m_total_size + 1));
        if (offset >= m_total_size || offset < before || status != 0)
            return;
    }
}

void _KRTFlash::active()
{
    if (m_progress == nullptr)
        return;
    if (m_d == nullptr) {
        m_progress->setResult(1);
        return;
    }
    const KRT_U32 cdw10 = (static_cast<KRT_U32>(m_ca) << 3) | m_slot;
    const KRT_U32 status = m_d->sendCommand(NVME_ADMIN_FW_COMMIT, 0, &cdw10, 1, nullptr, 0, nullptr, 0);
    add_log("firmware commit CDW10 0x%x ret %d.\n", cdw10, static_cast<int>(status));
    m_progress->setResult(status);
    m_progress->setPercentage(100);
}

void _KRTFlash::sp_active()
{
    if (m_progress == nullptr)
        return;
    if (m_d == nullptr) {
        m_progress->setResult(1);
        return;
    }
    krt_admin_command_format cmd{};
    cmd.CDW[0] = KRT_VENDOR_OPCODE;
    cmd.CDW[12] = krt_cdw12(KRT_CLASS_ADAPTER, kRawImageSub, m_type);
    cmd.CDW[13] = kRawImageTag;
    cmd.CDW[15] = m_file != nullptr ? m_file->m_crc : 0;
    cmd.cdw_flag = kRawImageFlag;
    const KRT_U32 status = m_d->sendPassthruAdmin(&cmd, nullptr, 0, nullptr, 0);
    add_log("raw image activation CRC 0x%x ret %d.\n", cmd.CDW[15], static_cast<int>(status));
    m_progress->setResult(status);
    m_progress->setPercentage(100);
}

void _KRTFlash::init(const char *file_name, KRT_U16 adapter)
{
    m_progress = progressbar_management_get_instance(adapter);
    if (m_progress == nullptr || m_file == nullptr)
        return;
    if (m_ca == KRT_CA_ACTIVATE_SLOT) {
        m_d = nvmeDeviceOf(adapter);
        m_progress->setResult(0);
        m_progress->setPercentage(1);
        return;
    }
    m_file->open_for_read(file_name, 0);
    const KRT_U32 length = m_file->get_file_length();
    if (m_ca == KRT_CA_REPLACE_NOW && length == 0) {
        // Replace-and-activate without an image activates what the slot holds.
        m_d = nvmeDeviceOf(adapter);
        m_progress->setResult(0);
        m_progress->setPercentage(1);
        return;
    }
    m_file->open_for_read(file_name, length);
    const KRT_U8 *image = m_file->read();
    m_file->m_checksum_ret = checksumResult(image, length);
    if (m_file->m_checksum_ret == 0)
        m_file->m_crc = crcMake(image, length);
    add_log("firmware image length %u checksum 0x%x crc 0x%x.\n", length, m_file->m_checksum_ret, m_file->m_crc);
    const int reopened = m_file->open_for_read(file_name, m_segment_size);
    if (reopened == 0)
        m_total_size = length;
    if (m_ca == KRT_CA_REPLACE_NOW) {
        if (reopened == 0)
            m_d = nvmeDeviceOf(adapter);
        return;
    }
    // An image that cannot be opened again is not downloaded, but the
    // commit still goes out on its own: the device is taken either way.
    m_d = nvmeDeviceOf(adapter);
    m_progress->setResult(static_cast<KRT_U32>(reopened));
    m_progress->setPercentage(1);
}

void _KRTFlash::destructor()
{
    if (m_file != nullptr)
        m_file->close();
    delete this;
}

_KRTFlash *CreateKRTFlashAdapterInstance(KRT_U8 fs, KRT_U8 ca, KRT_U8 type)
{
    auto *flash = new (std::nothrow) _KRTFlash;
    if (flash == nullptr)
        return nullptr;
    flash->m_file = CreateKRTFileBufferInstance();
    if (flash->m_file == nullptr) {
        delete flash;
        return nullptr;
    }
    flash->m_slot = fs;
    flash->m_ca = ca;
    flash->m_type = type;
    return flash;
}

void thread_flash_adapter_nvme(_KRTProgressBar *bar, void *arg)
{
    const _KRTFlashData data = *static_cast<const _KRTFlashData *>(arg);
    _KRTFlash *flash = CreateKRTFlashAdapterInstance(data.fs, data.ca, data.type);
    if (flash == nullptr) {
        // Nothing can be sent; a bar left running would be polled forever.
        bar->setResult(1);
        return;
    }
    flash->init(data.file_name, data.adapter);
    bool commitOnly = false;
    if (data.ca == KRT_CA_ACTIVATE_SLOT) {
        bar->setResult(0);
        commitOnly = true;
    } else if (data.ca == KRT_CA_REPLACE_NOW && flash->m_total_size == 0) {
        commitOnly = true;
    } else if (bar->getResult() != 0) {
        // The image could not be opened again: only the commit is sent.
        bar->setResult(0);
        commitOnly = true;
    }
    if (!commitOnly) {
        // A whole raw image that fails its checksum never reaches the controller.
        if (data.type == 1 && flash->m_file->m_checksum_ret != 0) {
            bar->setResult(1);
            bar->closeThread();
            flash->destructor();
            return;
        }
        flash->download();
        if (data.type == 1 && bar->getResult() == 0)
            flash->sp_active();
    }
    if (bar->getResult() == 0)
        flash->active();
    bar->closeThread();
    flash->destructor();
}

KRTProgressFunction GetAdapterNvmeFlashAdapterFucntion()
{
    return thread_flash_adapter_nvme;
}
