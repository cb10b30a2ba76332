#include "harness/NodeDirectory.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "talvex/basics/CharacterDevice.h"

namespace TalvexHarness {
namespace {

std::string makeTemporaryDirectory() {
    std::vector<std::string> parents;
    std::error_code notThere;
    if (access("/dev/shm", W_OK) == 0 && std::filesystem::is_directory("/dev/shm", notThere)) {
        parents.emplace_back("/dev/shm");
    }
    std::error_code error;
    const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    parents.push_back(error ? "/tmp" : temporary.string());
    for (const std::string& parent : parents) {
        std::string pattern = parent + "/talvex-nodes-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) return pattern;
    }
    throw std::runtime_error(std::string("cannot create a temporary node directory: ") +
                             std::strerror(errno));
}

[[noreturn]] void fail(const std::string& what, const std::string& path) {
    throw std::runtime_error("cannot " + what + " " + path + ": " + std::strerror(errno));
}

// A memory file that holds the text and refuses to be written, truncated or grown, even by
// root; its /proc/self/fd link stands in for the node.
int sealedCopy(const std::string& text, const std::string& path) {
    const int copy = memfd_create("node", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (copy < 0) fail("copy", path);
    const bool sealed =
        write(copy, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        fcntl(copy, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0;
    if (!sealed) {
        close(copy);
        fail("seal a copy of", path);
    }
    return copy;
}

void replaceWithLink(const std::string& target, const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
    if (symlink(target.c_str(), path.c_str()) != 0) fail("replace", path);
}

}  // namespace

NodeDirectory::NodeDirectory(const std::string& chosen, WriteCounting counting)
    : previousNodeDirectory(Basics::NodeDirectory()) {
    if (chosen.empty()) {
        path = makeTemporaryDirectory();
        removeOnExit = true;
    } else {
        std::error_code error;
        std::filesystem::create_directories(chosen, error);
        if (error || !std::filesystem::is_directory(chosen)) {
            throw std::runtime_error("cannot use node directory " + chosen + ": " +
                                     (error ? error.message() : "not a directory"));
        }
        path = chosen;
    }
    if (counting == WriteCounting::On) watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch >= 0 && inotify_add_watch(watch, path.c_str(), IN_CLOSE_WRITE) < 0) {
        close(watch);
        watch = -1;
    }
    Basics::SetNodeDirectory(path);
}

NodeDirectory::~NodeDirectory() {
    for (const auto& [node, isBroken] : broken) {
        if (!isBroken) continue;
        try {
            Repair(node);
        } catch (const std::exception&) {
            // A node left broken in a directory the user named is theirs to remove.
        }
    }
    Basics::SetNodeDirectory(previousNodeDirectory);
    if (watch >= 0) close(watch);
    if (removeOnExit) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
}

std::string NodeDirectory::Read(const std::string& node) const {
    // Reading a directory through a stream buffer throws.
    std::error_code notThere;
    if (!std::filesystem::is_regular_file(NodePath(node), notThere)) return "";
    std::ifstream file(NodePath(node), std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

bool NodeDirectory::Exists(const std::string& node) const {
    std::error_code ignored;
    return std::filesystem::exists(NodePath(node), ignored);
}

void NodeDirectory::Write(const std::string& node, const std::string& content) const {
    std::ofstream file(NodePath(node), std::ios::binary | std::ios::trunc);
    file << content;
}

void NodeDirectory::Remove(const std::string& node) const {
    std::error_code ignored;
    std::filesystem::remove(NodePath(node), ignored);
}

void NodeDirectory::CountWrites() {
    if (watch < 0) return;
    alignas(struct inotify_event) char buffer[65536];
    while (true) {
        const ssize_t length = read(watch, buffer, sizeof buffer);
        if (length <= 0) break;
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const struct inotify_event*>(buffer + offset);
            if (event->mask & IN_Q_OVERFLOW) overflowed = true;
            if (event->len > 0) ++writes[event->name];
            offset += static_cast<ssize_t>(sizeof(struct inotify_event) + event->len);
        }
    }
}

std::optional<std::uint64_t> NodeDirectory::Writes(const std::string& node) const {
    if (watch < 0 || overflowed) return std::nullopt;
    const auto found = writes.find(node);
    const auto others = othersWrites.find(node);
    return (found == writes.end() ? 0 : found->second) -
           (others == othersWrites.end() ? 0 : others->second);
}

void NodeDirectory::MakeReadOnly(const std::string& node) {
    const std::string nodePath = path + "/" + node;
    const int copy = sealedCopy(Read(node), nodePath);
    replaceWithLink("/proc/self/fd/" + std::to_string(copy), nodePath);
    readOnlyCopies[node] = copy;
    broken[node] = true;
}

void NodeDirectory::MakeMissing(const std::string& node) {
    // Into a folder that does not exist, so that opening the node for writing cannot create it.
    replaceWithLink(path + "/.absent/" + node, path + "/" + node);
    broken[node] = true;
}

void NodeDirectory::Repair(const std::string& node) {
    const std::string kept = Read(node);
    const auto copy = readOnlyCopies.find(node);
    if (copy != readOnlyCopies.end()) {
        close(copy->second);
        readOnlyCopies.erase(copy);
    }
    std::error_code ignored;
    std::filesystem::remove(path + "/" + node, ignored);
    broken[node] = false;
    if (!kept.empty()) WriteAsOther(node, kept);
}

void NodeDirectory::WriteAsOther(const std::string& node, const std::string& text) {
    CountWrites();
    {
        std::ofstream file(path + "/" + node, std::ios::binary | std::ios::trunc);
        if (!file.is_open()) fail("write", path + "/" + node);
        file << text;
    }
    // Taken in now, so that the library's count never sees the write without its correction.
    CountWrites();
    ++othersWrites[node];
}

}  // namespace TalvexHarness
