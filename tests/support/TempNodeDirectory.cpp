#include "TempNodeDirectory.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "talvex/basics/CharacterDevice.h"

namespace TalvexTest {

namespace {

// Nodes live in memory like sysfs ones when the machine has a tmpfs: tests that write a node on
// every frame would otherwise wait on the disk.
std::filesystem::path baseDirectory() {
    std::error_code error;
    if (access("/dev/shm", W_OK) == 0 && std::filesystem::is_directory("/dev/shm", error)) {
        return "/dev/shm";
    }
    return std::filesystem::temp_directory_path();
}

}  // namespace

TempNodeDirectory::TempNodeDirectory() : previous(Basics::NodeDirectory()) {
    std::string pattern = (baseDirectory() / "talvex-nodes-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path = pattern;
    Basics::SetNodeDirectory(path);
}

TempNodeDirectory::~TempNodeDirectory() {
    Basics::SetNodeDirectory(previous);
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string TempNodeDirectory::Read(const std::string& node) const {
    std::ifstream file(NodePath(node), std::ios::binary);
    if (!file.is_open()) return "<missing>";
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void TempNodeDirectory::Write(const std::string& node, const std::string& content) const {
    std::ofstream file(NodePath(node), std::ios::binary | std::ios::trunc);
    file << content;
}

bool TempNodeDirectory::Exists(const std::string& node) const {
    return std::filesystem::exists(NodePath(node));
}

void TempNodeDirectory::Remove(const std::string& node) const {
    std::error_code ignored;
    std::filesystem::remove(NodePath(node), ignored);
}

}  // namespace TalvexTest
