#include <cstdio>
#include <string>
#include <vector>

#include "tools/sim/cli/CommandLine.h"

int main(int argc, char** argv) {
    return TalvexSim::RunCommandLine(std::vector<std::string>(argv + 1, argv + argc), stdout,
                                     stderr);
}
