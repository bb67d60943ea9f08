// Placeholder until these commands land.
#include "commands/commands.h"

const char debug_help[] = "";
const char debug_sh[] = "";
const char debuglv_help[] = "";
const char debuglv_sh[] = "";
int doDebug(int, char **, const Command_Info *) { return 1; }
int doSDEBUGLV(int, char **, const Command_Info *) { return 1; }
