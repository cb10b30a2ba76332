#include "talvex/math/FrameLengthsAnalyzerBase.h"

namespace Math {

// Out of line so that the class's type information lives in the library.
FrameLengthsAnalyzerBase::~FrameLengthsAnalyzerBase() = default;

}  // namespace Math
