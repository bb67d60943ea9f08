// The handler body of commands that this build does not carry out.
#pragma once

#include "util/command.h"

// Prints the command's description and help, says the command is not
// available, and returns 1.
int commandNotAvailable(const Command_Info *entry);
