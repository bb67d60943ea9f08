#include "util/state.h"

FILE *stream = stdout;
KRT_U8 g_oneBaseMode = 0;
KRT_U8 gCurrentAdapter = 0;
KRT_U8 gSpecificAdapterFlag = 0;
KRT_U8 gNumAdaptersFound = 0;
_NVME_Adapter_Info *g_pAdInfos = nullptr;
KRT_U8 gSysDenied = 0;
KRT_U8 dbg_enable = 0;
const Command_Info *pCmdTable = nullptr;
KRT_U16 cmdTableSize = 0;

void printCommandHelp(const Command_Info *entry)
{
    // The summary begins with ':', so the first line reads "Description:<summary>".
    std::fputs("Description", stream);
    std::fprintf(stream, "%s\n", entry->cmdShortHelp);
    std::fputs(entry->cmdHelp, stream);
}
