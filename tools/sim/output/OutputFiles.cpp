#include "tools/sim/output/OutputFiles.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace TalvexSim {

OutputSet::OutputSet(std::string directory_) : directory(std::move(directory_)) {}

OutputSet::~OutputSet() {
    if (!committed) discard();
}

std::ostream& OutputSet::Stream(const std::string& name) {
    for (auto& [known, staged] : files) {
        if (known == name) return staged->stream;
    }
    const std::filesystem::path target = std::filesystem::path(directory) / name;
    // Remember which folders did not exist, so that a discarded set leaves none behind.
    std::vector<std::filesystem::path> missing;
    for (std::filesystem::path folder = target.parent_path();
         !folder.empty() && !std::filesystem::exists(folder); folder = folder.parent_path()) {
        missing.insert(missing.begin(), folder);
    }
    std::error_code error;
    std::filesystem::create_directories(target.parent_path(), error);
    for (const auto& folder : missing) createdFolders.push_back(folder.string());
    if (error) {
        throw std::runtime_error("cannot create " + target.parent_path().string() + ": " +
                                 error.message());
    }
    auto staged = std::make_unique<Staged>();
    staged->temporary = (target.parent_path() /
                         ("." + target.filename().string() + ".tmp-" + std::to_string(getpid())))
                            .string();
    staged->stream.open(staged->temporary, std::ios::binary | std::ios::trunc);
    if (!staged->stream) {
        throw std::runtime_error("cannot write " + target.string() + ": " + std::strerror(errno));
    }
    files.emplace_back(name, std::move(staged));
    return files.back().second->stream;
}

void OutputSet::Commit() {
    for (auto& [name, staged] : files) {
        staged->stream.close();
        if (staged->stream.fail()) {
            throw std::runtime_error("cannot write " + directory + "/" + name + ": " +
                                     std::strerror(errno));
        }
    }
    for (auto& [name, staged] : files) {
        const std::string target = (std::filesystem::path(directory) / name).string();
        if (std::rename(staged->temporary.c_str(), target.c_str()) != 0) {
            throw std::runtime_error("cannot write " + target + ": " + std::strerror(errno));
        }
        staged->temporary.clear();
    }
    committed = true;
}

void OutputSet::discard() {
    for (auto& [name, staged] : files) {
        staged->stream.close();
        if (!staged->temporary.empty()) std::remove(staged->temporary.c_str());
    }
    std::error_code ignored;
    for (auto it = createdFolders.rbegin(); it != createdFolders.rend(); ++it) {
        std::filesystem::remove(*it, ignored);  // only when empty
    }
}

void WriteOutputFiles(const std::string& directory,
                      const std::vector<std::pair<std::string, std::string>>& files) {
    OutputSet set(directory);
    for (const auto& [name, content] : files) set.Put(name, content);
    set.Commit();
}

}  // namespace TalvexSim
