#pragma once

namespace Math {

// Whether the frame lasted longer than one period at fps lowered by the tolerance. A tolerance
// equal to fps never finds a long frame; one above fps finds every positive frame long.
bool IsLongFrame(float frameLength_s, float fps, float toleranceFPS);

// Whether the scaled value exceeds the threshold.
bool IsLoadingHeavy(float value, float scale, float threshold);

}  // namespace Math
