#include "talvex/basics/Log.h"

namespace Basics {

std::atomic<int> Log::loglevel{2};
std::atomic<bool> Log::isDebugMode{false};

}  // namespace Basics
