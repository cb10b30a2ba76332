#pragma once

#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TalvexSim {

// The files of one invocation, put into place all at once so that a failure or a refusal
// leaves none of them half-written: each is written to a hidden temporary file beside its
// place (a long run streams into it as it goes) and renamed over it by Commit once every one
// was written completely. Until then nothing is in place; destroying an uncommitted set removes
// its temporary files and the folders it created. Names may hold folders: "governor/chart.svg".
class OutputSet {
  public:
    explicit OutputSet(std::string directory);
    ~OutputSet();
    OutputSet(const OutputSet&) = delete;
    OutputSet& operator=(const OutputSet&) = delete;

    const std::string& Directory() const { return directory; }
    // The stream of a file, opened on first use; throws std::runtime_error naming the file
    // when it cannot be created.
    std::ostream& Stream(const std::string& name);
    void Put(const std::string& name, const std::string& content) { Stream(name) << content; }
    // Renames every file into place; throws std::runtime_error naming the file that failed.
    void Commit();

  private:
    struct Staged {
        std::string temporary;
        std::ofstream stream;
    };
    void discard();

    std::string directory;
    std::vector<std::string> createdFolders;  // outermost first
    std::vector<std::pair<std::string, std::unique_ptr<Staged>>> files;
    bool committed = false;
};

// A set of finished texts written as one OutputSet.
void WriteOutputFiles(const std::string& directory,
                      const std::vector<std::pair<std::string, std::string>>& files);

}  // namespace TalvexSim
