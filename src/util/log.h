// Trace lines of the device layer. The debug log keeps nothing: tracing is
// compiled in so that each call site documents what a field engineer would
// want to see, but it never reaches the user.
#pragma once

void init_log();
void close_log();
void add_log(const char *format, ...) __attribute__((format(printf, 1, 2)));
