// Process-wide state set up by start-up and read by every command.
#pragma once

#include <cstdio>

#include "krt/records.h"
#include "krt/types.h"
#include "util/command.h"

extern FILE *stream;                    // where every command prints
extern KRT_U8 g_oneBaseMode;            // 1: controllers numbered from 1 for the user
extern KRT_U8 gCurrentAdapter;          // index (from 0) of the addressed controller
extern KRT_U8 gSpecificAdapterFlag;     // 1: the command line began with a controller number
extern KRT_U8 gNumAdaptersFound;        // controllers found by the scan
extern _NVME_Adapter_Info *g_pAdInfos;  // one cached record per controller, or null
extern KRT_U8 gSysDenied;               // controllers exist but may not be opened
extern KRT_U8 dbg_enable;               // debug output switch
extern const Command_Info *pCmdTable;   // the public command table
extern KRT_U16 cmdTableSize;

inline constexpr char CLI_VERSION[] = "1.0.0.1041";
