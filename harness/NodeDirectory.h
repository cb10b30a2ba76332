#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace TalvexHarness {

enum class WriteCounting { Off, On };

// The directory that stands in for the kernel module's parameter folder while alive: the
// library creates its nodes there. By default a fresh directory on a RAM-backed file system when
// there is one, else in the temporary directory (the pacing node is written every frame, which is
// a hundred times slower on a disk), removed afterwards; a directory the caller names is kept, so
// the last node texts can be read. The previous node directory is restored on destruction.
class NodeDirectory {
  public:
    explicit NodeDirectory(const std::string& chosen = "",
                           WriteCounting counting = WriteCounting::Off);
    ~NodeDirectory();
    NodeDirectory(const NodeDirectory&) = delete;
    NodeDirectory& operator=(const NodeDirectory&) = delete;

    const std::string& Path() const { return path; }
    std::string NodePath(const std::string& node) const { return path + "/" + node; }
    // Whole content of a node; empty when it does not exist.
    std::string Read(const std::string& node) const;
    bool Exists(const std::string& node) const;
    // Writes as the library does (no counting correction); see WriteAsOther.
    void Write(const std::string& node, const std::string& content) const;
    void Remove(const std::string& node) const;

    // With WriteCounting::On: takes in the writes made since the last call; call it often
    // enough for the kernel's event queue not to fill up.
    void CountWrites();
    // Completed writes to a node so far, by the library; nothing when they could not be counted.
    std::optional<std::uint64_t> Writes(const std::string& node) const;

    // Faults of a node as the library meets them on a device, where it runs as root and so
    // permissions stop nothing. Read-only: the node keeps its text and refuses every write.
    // Missing: it can be neither read nor created. Repair lifts either; the node then holds what
    // it held before, or nothing. Throw std::runtime_error when the directory refuses.
    void MakeReadOnly(const std::string& node);
    void MakeMissing(const std::string& node);
    void Repair(const std::string& node);
    // Another writer's text; not counted as a write of the library.
    void WriteAsOther(const std::string& node, const std::string& text);

  private:
    std::string path;
    std::string previousNodeDirectory;
    bool removeOnExit = false;
    int watch = -1;
    bool overflowed = false;
    std::map<std::string, std::uint64_t> writes;
    std::map<std::string, std::uint64_t> othersWrites;
    std::map<std::string, int> readOnlyCopies;  // sealed memory files the broken nodes point to
    std::map<std::string, bool> broken;
};

}  // namespace TalvexHarness
