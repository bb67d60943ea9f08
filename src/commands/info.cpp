// Placeholder until this command lands.
#include "commands/commands.h"

const char info_help[] = "";
const char info_sh[] = "";
int doSInfo(int, char **, const Command_Info *) { return 1; }
