#include "tools/sim/OutputFiles.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace TalvexSim {
namespace {

void removeAll(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) std::remove(path.c_str());
}

bool writeWhole(const std::string& path, const std::string& content) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) return false;
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    const bool closed = std::fclose(file) == 0;
    return written && closed;
}

}  // namespace

void WriteOutputFiles(const std::string& directory,
                      const std::vector<std::pair<std::string, std::string>>& files) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) throw std::runtime_error("cannot create " + directory + ": " + error.message());

    const std::string suffix = ".tmp-" + std::to_string(getpid());
    std::vector<std::string> temporaries;
    for (const auto& [name, content] : files) {
        const std::string temporary = directory + "/." + name + suffix;
        temporaries.push_back(temporary);
        if (!writeWhole(temporary, content)) {
            const std::string reason = std::strerror(errno);
            removeAll(temporaries);
            throw std::runtime_error("cannot write " + directory + "/" + name + ": " + reason);
        }
    }
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string target = directory + "/" + files[i].first;
        if (std::rename(temporaries[i].c_str(), target.c_str()) != 0) {
            const std::string reason = std::strerror(errno);
            removeAll(std::vector<std::string>(temporaries.begin() + static_cast<long>(i),
                                               temporaries.end()));
            throw std::runtime_error("cannot write " + target + ": " + reason);
        }
    }
}

}  // namespace TalvexSim
