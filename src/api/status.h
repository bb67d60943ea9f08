// The message tables behind _showStatusCode.
#pragma once

#include "krt/types.h"

// The message of a status (the vendor table for SCT 7, the command-specific
// table for SCT 1, else the generic table).
const char *statusMessage(KRT_U32 status);
const char *_cssErrorMessage(KRT_U8 code);
const char *_vcErrorMessage(KRT_U8 code);
