#include "platform/linux_nvme.h"

#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

// The tool's copy of the driver's record must match it field for field.
#define KRT_SAME_FIELD(f) static_assert(offsetof(LinuxAdminCommand, f) == offsetof(nvme_admin_cmd, f))
KRT_SAME_FIELD(opcode);
KRT_SAME_FIELD(flags);
KRT_SAME_FIELD(rsvd1);
KRT_SAME_FIELD(nsid);
KRT_SAME_FIELD(cdw2);
KRT_SAME_FIELD(cdw3);
KRT_SAME_FIELD(metadata);
KRT_SAME_FIELD(addr);
KRT_SAME_FIELD(metadata_len);
KRT_SAME_FIELD(data_len);
KRT_SAME_FIELD(cdw10);
KRT_SAME_FIELD(cdw11);
KRT_SAME_FIELD(cdw12);
KRT_SAME_FIELD(cdw13);
KRT_SAME_FIELD(cdw14);
KRT_SAME_FIELD(cdw15);
KRT_SAME_FIELD(timeout_ms);
KRT_SAME_FIELD(result);
#undef KRT_SAME_FIELD
static_assert(sizeof(LinuxAdminCommand) == sizeof(nvme_admin_cmd));

namespace {

int systemOpen(const char *path, int flags)
{
    return ::open(path, flags | O_CLOEXEC);
}

int systemClose(int fd)
{
    return ::close(fd);
}

int systemAdminCommand(int fd, LinuxAdminCommand *cmd)
{
    nvme_admin_cmd kernel;
    std::memcpy(&kernel, cmd, sizeof kernel);
    const int rc = ::ioctl(fd, NVME_IOCTL_ADMIN_CMD, &kernel);
    const int err = errno;
    std::memcpy(cmd, &kernel, sizeof kernel);
    errno = err;
    return rc;
}

const LinuxNvmeCalls kSystem{systemOpen, systemClose, systemAdminCommand};
const LinuxNvmeCalls *gCalls = &kSystem;

// The driver hands back the completion's status field without its phase
// tag: SC in bits 0-7, SCT in bits 8-10, then the retry delay, More and
// Do-Not-Retry bits, which say nothing about what the controller answered.
constexpr KRT_U32 kStatusCodeMask = 0x7FF;

}  // namespace

void linux_nvme_set_calls(const LinuxNvmeCalls *calls)
{
    gCalls = calls != nullptr ? calls : &kSystem;
}

int LinuxNvme_Open(const char *path)
{
    return gCalls->open(path, O_RDWR);
}

void LinuxNvme_Close(int fd)
{
    if (fd >= 0)
        gCalls->close(fd);
}

KRT_U32 LinuxNvme_AdminPassthru(int fd, LinuxAdminCommand *cmd, int *error)
{
    errno = 0;
    const int rc = gCalls->adminCommand(fd, cmd);
    // No completion came back: an errno is not a controller's status.
    *error = rc < 0 ? (errno != 0 ? errno : EIO) : 0;
    if (rc < 0)
        return 1;
    return static_cast<KRT_U32>(rc) & kStatusCodeMask;
}
