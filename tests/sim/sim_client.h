// A small client of the simulated platform library, loaded with dlopen the
// way the tool loads it, for the simulator's own tests and the benchmark.
#pragma once

#include <dlfcn.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "krt/admin.h"
#include "krt/driver.h"
#include "krt/platform.h"

namespace krt_sim_test {

struct AdminResult {
    int rc = -1;             // the library call's own result
    KRT_U32 status = 0;      // usr_io.status
    KRT_U32 compStatus = 0;  // (SCT << 8) + SC from the completion
};

class SimClient {
  public:
    explicit SimClient(const std::string &libraryPath)
    {
        lib_ = dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (lib_ == nullptr)
            throw std::runtime_error(std::string("dlopen: ") + dlerror());
        init = reinterpret_cast<vmk_MgmtUserInit_fn>(dlsym(lib_, "vmk_MgmtUserInit"));
        invoke = reinterpret_cast<vmk_MgmtUserCallbackInvokeInt_fn>(dlsym(lib_, "vmk_MgmtUserCallbackInvokeInt"));
        destroy = reinterpret_cast<vmk_MgmtUserDestroy_fn>(dlsym(lib_, "vmk_MgmtUserDestroy"));
        if (!init || !invoke || !destroy)
            throw std::runtime_error("missing entry point");
    }
    ~SimClient() { dlclose(lib_); }
    SimClient(const SimClient &) = delete;
    SimClient &operator=(const SimClient &) = delete;

    static vmk_MgmtApiSignature signature(const char *name, KRT_U32 version = NVME_MGMT_VERSION)
    {
        vmk_MgmtApiSignature sig{};
        sig.version = version;
        std::strncpy(sig.name.string, name, sizeof sig.name.string - 1);
        std::strncpy(sig.vendor.string, NVME_MGMT_VENDOR, sizeof sig.vendor.string - 1);
        sig.numCallbacks = 0;
        return sig;
    }

    // The driver's adapter list; rc is the library's result.
    int list(nvme_adapter_list &out) const
    {
        std::memset(&out, 0, sizeof out);
        vmk_MgmtApiSignature sig = signature(NVME_MGMT_NAME);
        vmk_MgmtUserHandle h = nullptr;
        int rc = init(&sig, 0, &h);
        if (rc != 0)
            return rc;
        rc = invoke(h, 0, NVME_MGMT_CB_LIST_ADAPTERS, 2, &out.count, out.adapters);
        destroy(h);
        return rc;
    }

    // One admin command on the adapter with this signature, opening and
    // closing a handle around it as the tool does.
    AdminResult admin(const char *adapterSignature, const std::array<KRT_U32, 16> &cmd, KRT_U8 direction, void *data,
                      KRT_U32 length) const
    {
        AdminResult r;
        vmk_MgmtApiSignature sig = signature(adapterSignature);
        vmk_MgmtUserHandle h = nullptr;
        r.rc = init(&sig, 0, &h);
        if (r.rc != 0)
            return r;
        usr_io io{};
        std::memcpy(io.cmd, cmd.data(), sizeof io.cmd);
        io.direction = direction;
        io.length = length;
        io.addr = reinterpret_cast<KRT_U64>(data);
        io.timeoutUs = KRT_ADMIN_TIMEOUT_US;
        KRT_U32 command = NVME_IOCTL_ADMIN_CMD;
        r.rc = invoke(h, 0, NVME_MGMT_CB_IOCTL, 2, &command, &io);
        destroy(h);
        r.status = io.status;
        r.compStatus = nvme_comp_status(io.comp[3]);
        return r;
    }

    // A direct vendor request (opcode 0xE2) reading 4096 bytes.
    AdminResult direct(const char *sig, KRT_U32 cdw12, KRT_U32 cdw14, std::array<KRT_U8, 4096> &reply) const
    {
        reply.fill(0);
        std::array<KRT_U32, 16> cmd{};
        cmd[0] = KRT_VENDOR_OPCODE;
        cmd[12] = cdw12;
        cmd[14] = cdw14;
        return admin(sig, cmd, XFER_FROM_DEV, reply.data(), reply.size());
    }

    // A paired request: the send with the request head, then the receive.
    AdminResult paired(const char *sig, std::vector<KRT_U16> words, const std::vector<KRT_U8> &input,
                       std::array<KRT_U8, 4096> &reply) const
    {
        std::array<KRT_U8, 4096> request{};
        _NVMESendData head{};
        head.sign[0] = 'K';
        head.sign[1] = 'R';
        head.sign[2] = 'T';
        head.cmd_length = static_cast<KRT_U8>(words.size());
        head.data_offset = KRT_PAIR_DATA_OFFSET;
        head.data_length = static_cast<KRT_U16>(input.size());
        for (size_t i = 0; i < words.size() && i < 4; ++i)
            head.vendor_cmd[i] = words[i];
        std::memcpy(request.data(), &head, KRT_PAIR_DATA_OFFSET);
        if (!input.empty())
            std::memcpy(request.data() + KRT_PAIR_DATA_OFFSET, input.data(), input.size());
        std::array<KRT_U32, 16> send{};
        send[0] = KRT_PAIR_SEND_WIRE;
        send[10] = KRT_PAIR_CDW10;
        send[11] = KRT_PAIR_CDW11;
        send[12] = (static_cast<KRT_U32>(words.size() > 1 ? words[1] : 0) << 16) | words[0];
        send[15] = KRT_PAIR_CDW15;
        AdminResult r = admin(sig, send, XFER_TO_DEV, request.data(), request.size());
        if (r.rc != 0 || r.status != 0)
            return r;
        return receive(sig, reply);
    }

    AdminResult receive(const char *sig, std::array<KRT_U8, 4096> &reply) const
    {
        reply.fill(0);
        std::array<KRT_U32, 16> recv{};
        recv[0] = KRT_PAIR_RECEIVE_WIRE;
        recv[15] = KRT_PAIR_CDW15;
        return admin(sig, recv, XFER_FROM_DEV, reply.data(), reply.size());
    }

    vmk_MgmtUserInit_fn init = nullptr;
    vmk_MgmtUserCallbackInvokeInt_fn invoke = nullptr;
    vmk_MgmtUserDestroy_fn destroy = nullptr;

  private:
    void *lib_ = nullptr;
};

}  // namespace krt_sim_test
