#pragma once

namespace TalvexSim {

// The text of scenarios/default.json, compiled in so that the program runs without any file.
const char* DefaultScenarioText();

}  // namespace TalvexSim
