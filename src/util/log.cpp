#include "util/log.h"

void init_log() {}

void close_log() {}

void add_log(const char * /*format*/, ...) {}
