#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace TalvexSim {

// The directory that stands in for the kernel module's parameter folder while a simulation
// runs: the library's nodes are created there, and every completed write to one is counted.
// By default a fresh directory on a RAM-backed file system when there is one (the pacing node is
// written every frame, which is a hundred times slower on a disk-backed temporary directory),
// removed afterwards; a directory the user names is kept, so the last node texts can be read.
class NodeDirectory {
  public:
    explicit NodeDirectory(const std::string& chosen = "");
    ~NodeDirectory();
    NodeDirectory(const NodeDirectory&) = delete;
    NodeDirectory& operator=(const NodeDirectory&) = delete;

    const std::string& Path() const { return path; }
    // Whole content of a node; empty when it does not exist.
    std::string Read(const std::string& node) const;

    // Takes in the writes made since the last call; call it often enough for the kernel's
    // event queue not to fill up.
    void CountWrites();
    // Completed writes to a node so far; nothing when they could not be counted.
    std::optional<std::uint64_t> Writes(const std::string& node) const;

  private:
    std::string path;
    std::string previousNodeDirectory;
    bool removeOnExit = false;
    int watch = -1;
    bool overflowed = false;
    std::map<std::string, std::uint64_t> writes;
};

}  // namespace TalvexSim
