// The request words a command prints before sending, with debugging on.
#pragma once

#include <initializer_list>

#include "krt/admin.h"

// With debugging on, prints the named command dwords of a request, one
// "CDW[n]: 0x........" line each; nothing otherwise.
void printRequestWords(const krt_admin_command_format &cmd, std::initializer_list<int> words);
