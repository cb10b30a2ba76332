#pragma once

#include <stdexcept>

namespace TalvexSim {

// A fault in a file the user gave us. The text already names the file and the place in it, so
// the command line prints it as it is and exits with 2.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace TalvexSim
