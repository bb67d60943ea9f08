// The SMART / health log display, shared by every command that reads the
// log: smart for the controller, an SSD or a namespace, and passthru after
// a forwarded read of log 2.
#pragma once

#include "krt/smart_log.h"

// Whose log it is, as the JSON record names it: the controller (index from
// 0), a back-end SSD or a namespace (`id` as the user typed it).
struct SmartSubject {
    enum class Kind { Controller, PhysicalDisk, Namespace } kind;
    int controller;
    long id;
};

// The log with its figures worked out (data units also in GB). With
// controller_only set the list stops after "Percentage Used".
void showLogSmartInfo(const _krt_smart_log &log, int controller_only, const SmartSubject &subject);
// The namespace form: data units without the GB figure, and a temperature
// the namespace does not report (0) shown as 0 rather than in Celsius.
void showLogSmartInfo_no_calculator(const _krt_smart_log &log, int controller_only, const SmartSubject &subject);

// A 128-bit little-endian counter in extended precision, built from its
// most significant byte down: exact as far as the 64-bit mantissa reaches.
long double smartCounter(const KRT_U8 (&bytes)[16]);
