// Progress of a controller's firmware download: one bar per controller, the
// worker thread sets it, the foreground polls it.
#pragma once

#include <atomic>
#include <thread>

#include "krt/types.h"

struct _KRTProgressBar;
using KRTProgressFunction = void (*)(_KRTProgressBar *bar, void *arg);

struct _KRTProgressBar {
    std::atomic<KRT_U8> m_percentage{0};
    std::atomic<KRT_U32> m_result{0};
    std::atomic<KRT_U32> m_status{0};  // 1 while the worker runs
    KRTProgressFunction m_function = nullptr;
    std::thread m_thread_handle;

    // Resets the bar and runs entry(bar, arg) on a worker thread; the
    // argument (size bytes) is copied so the caller's may go away. A bar
    // whose previous worker has not been collected is collected first.
    // Returns 0, or 1 when the thread cannot be started.
    int startThread(KRTProgressFunction entry, const void *arg, std::size_t size);
    void setPercentage(KRT_U8 value) { m_percentage = value; }
    void setResult(KRT_U32 value) { m_result = value; }
    KRT_U8 getPercentage() const { return m_percentage; }
    KRT_U32 getResult() const { return m_result; }
    KRT_U32 getStatus() const { return m_status; }
    // Marks the bar finished and collects the worker (unless called by the
    // worker itself).
    void closeThread();
    void destructor();

  private:
    unsigned char m_arg[256] = {};
};

constexpr int KRT_PROGRESS_BARS = 1088;

// Clears the registry (start-up).
void progressbar_management_init();
// Collects every worker and frees every bar (exit).
void progressbar_management_close();
// The bar of that controller (index & 255), created on first use.
_KRTProgressBar *progressbar_management_get_instance(KRT_U16 adapter);
// The bar of that controller if one was created, else null.
_KRTProgressBar *progressbar_management_find(KRT_U16 adapter);
