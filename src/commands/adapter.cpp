// Placeholder until this command lands.
#include "commands/commands.h"

const char adapter_help[] = "";
const char adapter_sh[] = "";
int doAdapter(int, char **, const Command_Info *) { return 1; }
