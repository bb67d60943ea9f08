// Fixtures: JSON descriptions of a machine's starting topology, turned into
// a state image. The built-in ones are compiled into the simulator so that
// the platform library can create its state with no files around it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "layout.h"

namespace krtsim {

// The version of the machine format (docs/machine-format.md) this build
// reads: any 1.x file; a file of a later major version is refused.
constexpr KRT_U64 kMachineFormatMajor = 1;
constexpr KRT_U64 kMachineFormatMinor = 0;

// Fills image (overwriting all of it) from fixture text. False with a
// message naming the bad field when the text is not a usable fixture.
bool buildFixture(std::string_view json, SimState &image, std::string *error);
// The same for a built-in fixture name (raid, jbof, multi, ...).
bool buildBuiltin(std::string_view name, SimState &image, std::string *error);
// Text of a built-in fixture, empty when there is no such name.
std::string_view builtinFixture(std::string_view name);
std::vector<std::string> builtinFixtureNames();

// Capacity of a RAID set of members each holding memberLba sectors.
KRT_U64 raidCapacity(KRT_U8 raidMode, int members, KRT_U64 memberLba);
// Parity disks a RAID mode carries.
KRT_U8 defaultParity(KRT_U8 raidMode);

}  // namespace krtsim
