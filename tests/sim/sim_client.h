// A simulated machine seen from inside the test process: krtsim resets its
// state, and the platform library, loaded with dlopen as the tool loads it,
// is pointed at it through KRTSIM_STATE.
#pragma once

#include <dlfcn.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "krt/admin.h"
#include "krt/driver.h"
#include "krt/platform.h"
#include "krt/records.h"
#include "machine.h"
#include "text.h"

namespace krt_sim_test {

using Reply = std::array<KRT_U8, 4096>;
using Words = std::array<KRT_U32, 16>;
inline const char *const kSig = "nvmeMgmt-vmhba1";

struct AdminResult {
    int rc = -1;             // the library call's own result
    KRT_U32 status = 0;      // usr_io.status
    KRT_U32 compStatus = 0;  // (SCT << 8) + SC from the completion
};

// Command words from {index, value} pairs.
inline Words cmd(std::initializer_list<std::pair<int, KRT_U32>> set)
{
    Words w{};
    for (auto [i, v] : set)
        w[static_cast<size_t>(i)] = v;
    return w;
}

inline std::string text(const KRT_U8 *p, size_t n)
{
    return std::string(reinterpret_cast<const char *>(p), n);
}

inline vmk_MgmtApiSignature signature(const char *name, KRT_U32 version = NVME_MGMT_VERSION)
{
    vmk_MgmtApiSignature sig{};
    sig.version = version;
    std::strncpy(sig.name.string, name, sizeof sig.name.string - 1);
    std::strncpy(sig.vendor.string, NVME_MGMT_VENDOR, sizeof sig.vendor.string - 1);
    return sig;
}

class LibMachine {
  public:
    explicit LibMachine(const std::string &fixture) : machine_(fixture)
    {
        lib_ = dlopen((krt_test::simLibDir() + "/libvmkmgmt.so").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (lib_ == nullptr)
            throw std::runtime_error(std::string("dlopen: ") + dlerror());
        init = reinterpret_cast<vmk_MgmtUserInit_fn>(dlsym(lib_, "vmk_MgmtUserInit"));
        invoke = reinterpret_cast<vmk_MgmtUserCallbackInvokeInt_fn>(dlsym(lib_, "vmk_MgmtUserCallbackInvokeInt"));
        destroy = reinterpret_cast<vmk_MgmtUserDestroy_fn>(dlsym(lib_, "vmk_MgmtUserDestroy"));
        if (!init || !invoke || !destroy)
            throw std::runtime_error("missing entry point");
        setenv("KRTSIM_STATE", machine_.statePath().c_str(), 1);
    }
    ~LibMachine()
    {
        unsetenv("KRTSIM_STATE");
        dlclose(lib_);
    }

    // The driver's adapter list; the library's result.
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

    // One admin command, opening and closing a handle around it as the tool does.
    AdminResult admin(const Words &words, KRT_U8 direction, void *data, KRT_U32 length, const char *sig = kSig) const
    {
        AdminResult r;
        vmk_MgmtApiSignature s = signature(sig);
        vmk_MgmtUserHandle h = nullptr;
        if ((r.rc = init(&s, 0, &h)) != 0)
            return r;
        usr_io io{};
        std::memcpy(io.cmd, words.data(), sizeof io.cmd);
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
    KRT_U32 send(const Words &words, std::vector<KRT_U8> data = {}) const
    {
        return admin(words, XFER_TO_DEV, data.empty() ? nullptr : data.data(), static_cast<KRT_U32>(data.size()))
            .compStatus;
    }
    // A direct vendor request (opcode 0xE2) reading 4096 bytes; the reply.
    Reply query(KRT_U32 cdw12, KRT_U32 cdw14 = 0, AdminResult *result = nullptr, const char *sig = kSig) const
    {
        Reply reply{};
        AdminResult r = admin(cmd({{0, KRT_VENDOR_OPCODE}, {12, cdw12}, {14, cdw14}}), XFER_FROM_DEV, reply.data(),
                              reply.size(), sig);
        if (result != nullptr)
            *result = r;
        return reply;
    }

    // A paired request: the send with the request head, then the receive.
    AdminResult paired(std::vector<KRT_U16> words, const std::vector<KRT_U8> &input, Reply &reply) const
    {
        Reply request{};
        _NVMESendData head{};
        std::memcpy(head.sign, "KRT", 3);
        head.cmd_length = static_cast<KRT_U8>(words.size());
        head.data_offset = KRT_PAIR_DATA_OFFSET;
        head.data_length = static_cast<KRT_U16>(input.size());
        for (size_t i = 0; i < words.size() && i < 4; ++i)
            head.vendor_cmd[i] = words[i];
        std::memcpy(request.data(), &head, KRT_PAIR_DATA_OFFSET);
        std::copy(input.begin(), input.end(), request.begin() + KRT_PAIR_DATA_OFFSET);
        Words send = cmd({{0, KRT_PAIR_SEND_WIRE}, {10, KRT_PAIR_CDW10}, {11, KRT_PAIR_CDW11}, {15, KRT_PAIR_CDW15}});
        send[12] = (static_cast<KRT_U32>(words.size() > 1 ? words[1] : 0) << 16) | words[0];
        AdminResult r = admin(send, XFER_TO_DEV, request.data(), request.size());
        if (r.rc != 0 || r.status != 0)
            return r;
        return receive(reply);
    }
    AdminResult receive(Reply &reply) const
    {
        reply.fill(0);
        return admin(cmd({{0, KRT_PAIR_RECEIVE_WIRE}, {15, KRT_PAIR_CDW15}}), XFER_FROM_DEV, reply.data(),
                     reply.size());
    }

    // krtsim with the words of one line.
    krt_test::RunResult run(const std::string &line) const { return machine_.krtsim(krt_test::words(line)); }
    std::string log() const { return machine_.krtsim({"log"}).out; }
    const krt_test::SimMachine &machine() const { return machine_; }

    vmk_MgmtUserInit_fn init = nullptr;
    vmk_MgmtUserCallbackInvokeInt_fn invoke = nullptr;
    vmk_MgmtUserDestroy_fn destroy = nullptr;

  private:
    krt_test::SimMachine machine_;
    void *lib_ = nullptr;
};

}  // namespace krt_sim_test
