#include "talvex/math/FramePredicates.h"

namespace Math {

bool IsLongFrame(float frameLength_s, float fps, float toleranceFPS) {
    return 1.0f / (fps - toleranceFPS) < frameLength_s;
}

bool IsLoadingHeavy(float value, float scale, float threshold) { return value * scale > threshold; }

}  // namespace Math
