#include "tools/sim/loop/DeciderBounds.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "talvex/brain_src/fps_stabilizer/SfpsDecider.h"

namespace TalvexSim {
namespace {

namespace Keys = android::FpsStabilizer::SfpsDeciderSettings;

template <size_t N>
bool isOneOf(const std::string& key, const char* const (&keys)[N]) {
    return std::find(std::begin(keys), std::end(keys), key) != std::end(keys);
}

// NaN when the text is neither a number nor a reset.
double valueOf(const std::string& text, double reset) {
    if (UserSettings::IsResetCommand(text)) return reset;
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return (text.empty() || *end != '\0') ? std::nan("") : value;
}

void keep(double& bound, double value) {
    if (!std::isnan(value)) bound = value;
}

}  // namespace

DeciderBounds::DeciderBounds()
    : temperatureLower_C(Keys::DEFAULT_TEMPERATURE_LOWER_BOUND),
      temperatureUpper_C(Keys::DEFAULT_TEMPERATURE_UPPER_BOUND),
      currentThreshold_mA(std::numeric_limits<double>::quiet_NaN()) {}

void DeciderBounds::Apply(const std::vector<UserSettings::UserSetting>& settings) {
    const DeciderBounds defaults;
    for (const UserSettings::UserSetting& s : settings) {
        if (s.category == Keys::TEMPERATURE_CATEGORY) {
            if (isOneOf(s.key, Keys::TEMPERATURE_LOWER_BOUND_KEYS)) {
                keep(temperatureLower_C, valueOf(s.value, defaults.temperatureLower_C));
            } else if (isOneOf(s.key, Keys::TEMPERATURE_UPPER_BOUND_KEYS)) {
                keep(temperatureUpper_C, valueOf(s.value, defaults.temperatureUpper_C));
            }
        } else if (s.category == Keys::CURRENT_CATEGORY &&
                   isOneOf(s.key, Keys::ELECTRIC_CURRENT_THRESHOLD_KEYS)) {
            currentThreshold_mA = valueOf(s.value, defaults.currentThreshold_mA);
        }
    }
}

}  // namespace TalvexSim
