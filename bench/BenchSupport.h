#pragma once

#include <cstdint>
#include <string>

namespace TalvexBench {

// The library's trace calls are counted while tracing is switched on; off by default.
void SetTraceEnabled(bool enabled);
std::uint64_t TraceCalls();

// Every global operator new of the program so far.
std::uint64_t Allocations();

// The program's arguments joined by blanks, its path relative to the working directory.
std::string CommandLine(int argc, char** argv);

// One line about the machine, for the results: CPU model, cores, kernel, load average.
std::string MachineDescription();

}  // namespace TalvexBench
