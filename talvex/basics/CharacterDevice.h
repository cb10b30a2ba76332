#pragma once

#include <string>

#include "talvex/basics/Clock.h"

namespace Basics {

// Directory of the kernel nodes: "/sys/module/tarrow/parameters" unless set. Owners build their
// node paths from it once, when they are constructed.
std::string NodeDirectory();
void SetNodeDirectory(const std::string& directory);

// Mirrors one short text into a sysfs node while touching the file as little as possible: it
// writes only when the wanted text differs from what the node is known to hold, and re-reads the
// node every 10 seconds in case another writer changed it. Failures are silent by design: an
// unreadable node reads as empty, an unwritable one counts as written.
class CharacterDevice {
  public:
    explicit CharacterDevice(const std::string& path);
    ~CharacterDevice();

    void SetTargetStatus(const std::string& status);
    void Update();

  private:
    void updateDeviceStatus();
    void writeStatusToDevice();

    std::string devicePath;
    std::string deviceStatus;
    std::string targetStatus;
    TimePoint lastReadTime;
};

}  // namespace Basics
