// Raw entries of a disk's partition tables.
#pragma once

#include <vector>

#include <vornex/PartitionTable.h>

namespace VornEx::Internals {

// Appends the entries of the boot record at `sector` and of all that it leads to; see the source
// for the formats and rules. The descriptor stays the caller's; its position is left where the
// last read ended. The counter goes up by one with each entry: classic tables end at 60.
//
// Called with sector 0, extendedBase 0 and a counter that equals the length of `classic`.
// Gives the number of entries appended, or -1 when there is no boot record at `sector`.
int ReadPartitionTable(int descriptor, std::vector<ipart>& classic, std::vector<gpart>& gpt,
                       long long sector, long long extendedBase, unsigned int* count);

} // namespace VornEx::Internals
