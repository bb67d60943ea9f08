#include "firmware/progressbar.h"

#include <array>
#include <cstring>
#include <new>
#include <system_error>

namespace {

std::array<_KRTProgressBar *, KRT_PROGRESS_BARS> m_flash_list{};

// The bar whose worker runs on this thread. The worker may be running
// before startThread has stored its handle, so the handle is no way to
// tell.
thread_local _KRTProgressBar *tWorkerBar = nullptr;

}  // namespace

int _KRTProgressBar::startThread(KRTProgressFunction entry, const void *arg, std::size_t size)
{
    if (m_thread_handle.joinable())
        m_thread_handle.join();
    m_percentage = 0;
    m_result = 0;
    m_status = 1;
    m_function = entry;
    std::memset(m_arg, 0, sizeof m_arg);
    if (arg != nullptr)
        std::memcpy(m_arg, arg, size > sizeof m_arg ? sizeof m_arg : size);
    try {
        m_thread_handle = std::thread([this] {
            tWorkerBar = this;
            if (m_function != nullptr)
                m_function(this, m_arg);
            m_status = 0;
        });
    } catch (const std::system_error &) {
        m_status = 0;
        return 1;
    }
    return 0;
}

void _KRTProgressBar::closeThread()
{
    // The worker marks its own bar finished: a thread cannot collect
    // itself, so it is left for the next start or for the exit.
    if (tWorkerBar != this && m_thread_handle.joinable())
        m_thread_handle.join();
    m_status = 0;
}

void _KRTProgressBar::destructor()
{
    closeThread();
    delete this;
}

void progressbar_management_init()
{
    m_flash_list.fill(nullptr);
}

void progressbar_management_close()
{
    for (auto &bar : m_flash_list) {
        if (bar != nullptr)
            bar->destructor();
        bar = nullptr;
    }
}

_KRTProgressBar *progressbar_management_get_instance(KRT_U16 adapter)
{
    _KRTProgressBar *&bar = m_flash_list[adapter & 255];
    if (bar == nullptr)
        bar = new (std::nothrow) _KRTProgressBar;
    return bar;
}

_KRTProgressBar *progressbar_management_find(KRT_U16 adapter)
{
    return m_flash_list[adapter & 255];
}
