#include "platform/vmkmgmt.h"

#include <dlfcn.h>

namespace {

struct Binding {
    bool tried = false;
    VmkMgmtEntryPoints loaded;
    bool ok = false;
    const VmkMgmtEntryPoints *override = nullptr;
};

Binding &binding()
{
    static Binding b;
    return b;
}

template <typename Fn>
Fn resolve(void *library, const char *name)
{
    // dlsym hands back an object pointer; the entry points are functions.
    return reinterpret_cast<Fn>(dlsym(library, name));
}

}  // namespace

const VmkMgmtEntryPoints *vmkmgmt_entry_points()
{
    Binding &b = binding();
    if (b.override != nullptr)
        return b.override;
    if (!b.tried) {
        b.tried = true;
        // Kept loaded for the life of the process: handles stay valid
        // until exit, and nothing gains from unloading it.
        void *library = dlopen(VMK_MGMT_LIBRARY, RTLD_NOW);
        if (library != nullptr) {
            b.loaded.init = resolve<vmk_MgmtUserInit_fn>(library, "vmk_MgmtUserInit");
            b.loaded.invoke = resolve<vmk_MgmtUserCallbackInvokeInt_fn>(library, "vmk_MgmtUserCallbackInvokeInt");
            b.loaded.destroy = resolve<vmk_MgmtUserDestroy_fn>(library, "vmk_MgmtUserDestroy");
            b.ok = b.loaded.init != nullptr && b.loaded.invoke != nullptr && b.loaded.destroy != nullptr;
        }
    }
    return b.ok ? &b.loaded : nullptr;
}

void vmkmgmt_set_entry_points(const VmkMgmtEntryPoints *points)
{
    binding().override = points;
}
