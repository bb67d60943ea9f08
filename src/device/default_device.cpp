#include "device/device.h"

namespace {

// Stands in every registry slot that holds no controller, so that a lookup
// never yields null and every request to it fails.
class DefaultDevice final : public Device {
  public:
    KRT_U32 sendCommand(KRT_U8, KRT_U32, const KRT_U32 *, KRT_U8, const void *, KRT_U16, void *, KRT_U16) override
    {
        return KRT_STATUS_LOCAL_FAILURE;
    }
    KRT_U32 sendNVM(KRT_U8, KRT_U32, const KRT_U32 *, KRT_U8, const void *, KRT_U16, void *, KRT_U16) override
    {
        return KRT_STATUS_LOCAL_FAILURE;
    }
    KRT_U32 sendPassthruAdmin(const krt_admin_command_format *, const void *, KRT_U16, void *, KRT_U16) override
    {
        return KRT_STATUS_LOCAL_FAILURE;
    }
    void closeHandle() override {}
    Device *getNVMEDevice() override { return this; }
};

}  // namespace

Device *CreateDefaultDeviceInstance()
{
    static DefaultDevice placeholder;
    return &placeholder;
}
