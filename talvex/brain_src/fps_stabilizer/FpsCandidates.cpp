#include "talvex/brain_src/fps_stabilizer/FpsCandidates.h"

#include <algorithm>
#include <cstddef>

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Exceptions.h"
#include "talvex/basics/Log.h"

namespace android {
namespace FpsStabilizer {
namespace {

constexpr int kLowestGfps = 10;
const char* const kParseFailureHeading = "Error occur while paring the FPS_ARRAY_STR_:\n";

}  // namespace

std::vector<int> ParseGfpsListFromString(const std::string& FPS_ARRAY_STR_, int FASTEST_FPS_) {
    const std::vector<std::string> pieces = Basics::SplitString(FPS_ARRAY_STR_, '-');
    TALVEX_LOGI("[ParseGfpsListFromString] splittedString = %s",
                Basics::ContainerToString(pieces, 10).c_str());

    std::vector<int> candidates;
    candidates.reserve(pieces.size());
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const std::string& piece = pieces[i];
        if (Basics::IsRealNumber(piece)) {
            int value = -1;
            Basics::ConvertStringToValue(piece, value);
            TALVEX_LOGI("[ParseGfpsListFromString]\t temp[%zu]=%d", i, value);
            if (value < kLowestGfps) {
                TALVEX_THROW(InvalidArgumentException,
                             std::string(kParseFailureHeading) + "\t FPS_ARRAY_STR_ = '" +
                                 FPS_ARRAY_STR_ + "'\n" + "\t invalid TargetValue: '" + piece +
                                 "'\n" + "Note: The TargetValue must >= 10.\n");
            }
            candidates.push_back(value);
        } else if (piece == "max") {
            if (FASTEST_FPS_ < 1) {
                TALVEX_THROW(InvalidArgumentException,
                             std::string(kParseFailureHeading) +
                                 "\t Unable to parse the 'max', since the FASTEST_FPS_ is "
                                 "unkown.\n" +
                                 "\t Note:\n" + "\t\t FPS_ARRAY_STR_ = '" + FPS_ARRAY_STR_ + "'\n" +
                                 "\t\t FASTEST_FPS_ = " + Basics::ToString<int>(FASTEST_FPS_) +
                                 "\n");
            }
            TALVEX_LOGI("[ParseGfpsListFromString]\t temp[%zu]=max, replace by RefreshRate=%d", i,
                        FASTEST_FPS_);
            candidates.push_back(FASTEST_FPS_);
        } else {
            TALVEX_THROW(InvalidArgumentException,
                         std::string(kParseFailureHeading) + "\t FPS_ARRAY_STR_ = '" +
                             FPS_ARRAY_STR_ + "'\n" + "\t invalid target value: '" + piece + "'\n" +
                             "Please check your input command.\n" +
                             "Note: The format is something like: '25-30-40-60-max'\n");
        }
    }
    std::sort(candidates.begin(), candidates.end());
    return candidates;
}

bool IsSfpsCandidatesValid(const std::vector<int>& gfpsCandidates,
                           const std::vector<int>& sfpsCandidates) {
    if (gfpsCandidates.empty() || gfpsCandidates.size() != sfpsCandidates.size()) return false;
    for (std::size_t i = 0; i < gfpsCandidates.size(); ++i) {
        if (sfpsCandidates[i] > gfpsCandidates[i]) return false;
    }
    return true;
}

}  // namespace FpsStabilizer
}  // namespace android
