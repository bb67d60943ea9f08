// The Linux NVMe driver's admin pass-through: each controller is a character
// device (/dev/nvmeN) that takes one admin command per ioctl.
#pragma once

#include "krt/types.h"

// The driver's admin command record (its fields and layout; the kernel's
// header is kept out of the tool, whose own driver interface uses the same
// names).
struct LinuxAdminCommand {
    KRT_U8 opcode;
    KRT_U8 flags;
    KRT_U16 rsvd1;
    KRT_U32 nsid;
    KRT_U32 cdw2;
    KRT_U32 cdw3;
    KRT_U64 metadata;
    KRT_U64 addr;
    KRT_U32 metadata_len;
    KRT_U32 data_len;
    KRT_U32 cdw10;
    KRT_U32 cdw11;
    KRT_U32 cdw12;
    KRT_U32 cdw13;
    KRT_U32 cdw14;
    KRT_U32 cdw15;
    KRT_U32 timeout_ms;
    KRT_U32 result;
};
static_assert(sizeof(LinuxAdminCommand) == 72);

// The three system calls the binding makes. Replaceable so that the device
// and the directory scan run against an in-process controller in tests.
struct LinuxNvmeCalls {
    int (*open)(const char *path, int flags) = nullptr;
    int (*close)(int fd) = nullptr;
    // The ioctl's own result: -1 with errno set, else the NVMe status.
    int (*adminCommand)(int fd, LinuxAdminCommand *cmd) = nullptr;
};

// Replaces the calls for the rest of the process (null: back to the system's).
void linux_nvme_set_calls(const LinuxNvmeCalls *calls);

// The controller's node opened read-write: a descriptor, or -1 with errno set.
int LinuxNvme_Open(const char *path);
void LinuxNvme_Close(int fd);

// Sends one admin command. 0 on success; (SCT << 8) + SC when the controller
// refuses it; 1 when the command never completed (the ioctl failed, e.g. on
// a node that is not an NVMe controller or at the time-out), with the
// errno in *error (0 whenever a completion came back).
KRT_U32 LinuxNvme_AdminPassthru(int fd, LinuxAdminCommand *cmd, int *error);
