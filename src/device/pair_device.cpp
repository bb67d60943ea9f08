#include <cstring>
#include <new>

#include "device/lock.h"
#include "device/nvme_device.h"
#include "util/log.h"

namespace {

// Holds the inner device's lock for the life of one pair.
class PairGuard {
  public:
    explicit PairGuard(Device *inner) : lock_(inner != nullptr ? inner->m_lock : nullptr)
    {
        if (lock_ != nullptr)
            lock_->lock();
    }
    ~PairGuard()
    {
        if (lock_ != nullptr)
            lock_->unlock();
    }
    PairGuard(const PairGuard &) = delete;
    PairGuard &operator=(const PairGuard &) = delete;

  private:
    KRTLock *lock_;
};

}  // namespace

KRT_U32 PairCMDDevice::sendCommand(KRT_U8 /*opcode*/, KRT_U32 /*nsid*/, const KRT_U32 *cdws, KRT_U8 count,
                                   const void *in, KRT_U16 inLen, void *out, KRT_U16 outLen)
{
    // The request is named by its command words; opcode and namespace are
    // those of the pair itself.
    const KRT_U32 word0 = (cdws != nullptr && count > 0) ? cdws[0] : 0;
    const KRT_U32 word1 = (cdws != nullptr && count > 1) ? cdws[1] : 0;
    add_log("PairCMD 0x%x  0x%x\n", word0, word1);

    const KRT_U32 sendWords[6] = {
        KRT_PAIR_CDW10,
        KRT_PAIR_CDW11,
        ((word1 & 0xFFFF) << 16) | (word0 & 0xFFFF),
        in != nullptr ? static_cast<KRT_U32>(*static_cast<const KRT_U8 *>(in)) << 16 : 0,
        0,
        KRT_PAIR_CDW15,
    };

    std::memset(m_in_buffer, 0, 17);
    std::memset(m_out_buffer, 0, 9);
    auto *head = reinterpret_cast<_NVMESendData *>(m_in_buffer);
    std::memcpy(head->sign, KRT_SIGN, sizeof KRT_SIGN);
    head->cmd_length = cdws == nullptr ? 0 : (count > KRT_PAIR_MAX_WORDS ? KRT_PAIR_MAX_WORDS : count);
    head->data_offset = KRT_PAIR_DATA_OFFSET;
    head->data_length = inLen;
    for (int i = 0; i < head->cmd_length; ++i)
        head->vendor_cmd[i] = static_cast<KRT_U16>(cdws[i] & 0xFFFF);
    if (inLen != 0 && in != nullptr) {
        // The request buffer holds 4080 data bytes; a longer input is cut
        // there rather than written past the buffer.
        std::size_t n = inLen > sizeof head->data ? sizeof head->data : inLen;
        std::memcpy(head->data, in, n);
    }

    PairGuard guard(m_nvme_device);
    if (m_nvme_device == nullptr)
        return KRT_STATUS_LOCAL_FAILURE;

    KRT_U32 rc =
        m_nvme_device->sendCommand(KRT_PAIR_SEND_OPCODE, 0, sendWords, 6, m_in_buffer, KRT_BUFFER_SIZE, nullptr, 0);
    if (rc != 0) {
        add_log("send failed %d\n", static_cast<int>(rc));
        return KRT_STATUS_LOCAL_FAILURE;
    }
    const KRT_U32 receiveWords[6] = {0, 0, 0, 0, 0, KRT_PAIR_CDW15};
    rc = m_nvme_device->sendCommand(KRT_PAIR_RECEIVE_OPCODE, 0, receiveWords, 6, nullptr, 0, m_out_buffer,
                                    KRT_BUFFER_SIZE);
    if (rc != 0) {
        add_log("receive failed %d\n", static_cast<int>(rc));
        return KRT_STATUS_LOCAL_FAILURE;
    }
    const auto *reply = reinterpret_cast<const _NVMEReceiveData *>(m_out_buffer);
    if (std::memcmp(reply->sign, KRT_SIGN, sizeof KRT_SIGN) != 0) {
        add_log("receive sign get 0x%x 0x%x 0x%x expect 0x%x 0x%x 0x%x\n", reply->sign[0], reply->sign[1],
                reply->sign[2], KRT_SIGN[0], KRT_SIGN[1], KRT_SIGN[2]);
        return KRT_STATUS_LOCAL_FAILURE;
    }
    const KRT_U32 status = reply->cmd_status;
    if (status == 0 && outLen != 0 && out != nullptr) {
        std::size_t n = outLen > sizeof reply->data ? sizeof reply->data : outLen;
        std::memcpy(out, reply->data, n);
    }
    return status;
}

KRT_U32 PairCMDDevice::sendPassthruAdmin(const krt_admin_command_format *, const void *, KRT_U16, void *, KRT_U16)
{
    // Plain admin commands go to the inner device; reaching here is a caller's mistake.
    add_log("Send passthrough command fail, please contact with vendor.\n");
    return KRT_STATUS_LOCAL_FAILURE;
}

void PairCMDDevice::closeHandle()
{
    if (m_nvme_device != nullptr)
        m_nvme_device->closeHandle();
    m_nvme_device = nullptr;
    delete this;
}

Device *CreatePairCMDDeviceInstance(Device *inner)
{
    return new (std::nothrow) PairCMDDevice(inner);
}
