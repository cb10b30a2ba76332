#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "talvex/basics/Clock.h"

namespace TalvexBench {

// The programs define libcutils' trace entry points (exported from the executable), so the
// library's trace calls land here. Off unless switched on; the bodies only count.
void SetTraceEnabled(bool enabled);
std::uint64_t TraceCalls();

// Every global operator new of the program counts here.
std::uint64_t Allocations();

// Virtual time for the library while alive; moves only when told.
class VirtualClock {
  public:
    VirtualClock();
    ~VirtualClock();
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    static void Advance(std::chrono::nanoseconds step);
    static void AdvanceMs(float milliseconds);
};

// A fresh directory under tmpfs (/dev/shm) that the library uses for its nodes while alive.
class TmpfsNodeDirectory {
  public:
    TmpfsNodeDirectory();
    ~TmpfsNodeDirectory();
    TmpfsNodeDirectory(const TmpfsNodeDirectory&) = delete;
    TmpfsNodeDirectory& operator=(const TmpfsNodeDirectory&) = delete;

    const std::string& Path() const { return path; }
    std::string NodePath(const std::string& node) const { return path + "/" + node; }
    // Size in bytes of a node, -1 when it does not exist.
    long NodeSize(const std::string& node) const;

  private:
    std::string path;
    std::string previous;
};

// Points the library at a directory that does not exist, so that every node write fails at
// its open.
class MissingNodeDirectory {
  public:
    MissingNodeDirectory();
    ~MissingNodeDirectory();
    MissingNodeDirectory(const MissingNodeDirectory&) = delete;
    MissingNodeDirectory& operator=(const MissingNodeDirectory&) = delete;

  private:
    std::string previous;
};

// Restores the log level and debug switch on destruction.
class LogLevelScope {
  public:
    LogLevelScope(int level, bool debug);
    ~LogLevelScope();
    LogLevelScope(const LogLevelScope&) = delete;
    LogLevelScope& operator=(const LogLevelScope&) = delete;

  private:
    int previousLevel;
    bool previousDebug;
};

// The program's arguments joined by blanks, its path relative to the working directory.
std::string CommandLine(int argc, char** argv);

// One line about the machine, for the results: CPU model, cores, kernel, load average.
std::string MachineDescription();

}  // namespace TalvexBench
