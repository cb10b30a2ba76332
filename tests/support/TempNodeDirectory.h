#pragma once

#include <string>

namespace TalvexTest {

// A fresh directory that the library uses for its kernel nodes while alive; removed afterwards.
class TempNodeDirectory {
  public:
    TempNodeDirectory();
    ~TempNodeDirectory();
    TempNodeDirectory(const TempNodeDirectory&) = delete;
    TempNodeDirectory& operator=(const TempNodeDirectory&) = delete;

    const std::string& Path() const { return path; }
    std::string NodePath(const std::string& node) const { return path + "/" + node; }

    // Whole content of a node, or "<missing>" when it does not exist.
    std::string Read(const std::string& node) const;
    void Write(const std::string& node, const std::string& content) const;
    bool Exists(const std::string& node) const;
    void Remove(const std::string& node) const;

  private:
    std::string path;
    std::string previous;
};

}  // namespace TalvexTest
