#include "tools/sim/NodeDirectory.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "talvex/basics/CharacterDevice.h"

namespace TalvexSim {
namespace {

std::string makeTemporaryDirectory() {
    std::vector<std::string> parents;
    if (access("/dev/shm", W_OK) == 0) parents.emplace_back("/dev/shm");
    std::error_code error;
    const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
    parents.push_back(error ? "/tmp" : temporary.string());
    for (const std::string& parent : parents) {
        std::string pattern = parent + "/talvex-sim-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) return pattern;
    }
    throw std::runtime_error(std::string("cannot create a temporary node directory: ") +
                             std::strerror(errno));
}

}  // namespace

NodeDirectory::NodeDirectory(const std::string& chosen)
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
    watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch >= 0 && inotify_add_watch(watch, path.c_str(), IN_CLOSE_WRITE) < 0) {
        close(watch);
        watch = -1;
    }
    Basics::SetNodeDirectory(path);
}

NodeDirectory::~NodeDirectory() {
    Basics::SetNodeDirectory(previousNodeDirectory);
    if (watch >= 0) close(watch);
    if (removeOnExit) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
}

std::string NodeDirectory::Read(const std::string& node) const {
    std::ifstream file(path + "/" + node);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
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
    return found == writes.end() ? 0 : found->second;
}

}  // namespace TalvexSim
