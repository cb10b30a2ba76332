#include "talvex/math/EFPS_Counter.h"

#include "talvex/basics/Conversions.h"
#include "talvex/basics/Log.h"
#include "talvex/math/MathImpl.h"

namespace Math {

void EFPS_Counter::Update(float EFPS) {
    ++map_from_EFPS_to_occurrences[Basics::SaturatingTruncate(EFPS)];
}

float EFPS_Counter::GetMostOccurredEFPS() const {
    try {
        return static_cast<float>(Basics::GetKeyOfMaxValue(map_from_EFPS_to_occurrences));
    } catch (...) {
        TALVEX_LOGW("[EFPS_Counter] Failed to get a reasonable EFPS...");
        TALVEX_LOGW("[EFPS_Counter] map_from_EFPS_to_occurrences = %s",
                    Basics::ContainerToString(map_from_EFPS_to_occurrences, 10).c_str());
        return 60.0f;
    }
}

void EFPS_Counter::Reset() { map_from_EFPS_to_occurrences.clear(); }

}  // namespace Math
