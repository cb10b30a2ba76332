#pragma once

#include <json/json.h>

#include <string>
#include <vector>

#include "tools/sim/input/DeviceParts.h"
#include "tools/sim/input/StrictJson.h"

namespace TalvexSim {

// The profiles shipped in tools/sim/devices/, compiled in so that a name works anywhere.
std::vector<std::string> DeviceProfileNames();

// A profile by one of those names, or by a path to a file of the same form. Throws InputError
// naming the file and the place of the fault, or (`where`, "file:line:column") the unknown name.
DevicePartsParams LoadDeviceProfile(const std::string& nameOrPath, const std::string& where);

// The parts an object gives, every field optional over `base`: a profile file over nothing,
// a scenario's device object over its profile. Lists replace, objects merge field by field.
DevicePartsParams ReadDeviceParts(const JsonDocument& document, const Json::Value& object,
                                  const std::string& path, DevicePartsParams base);

// The members of a scenario's device object that describe parts rather than the old model.
const std::vector<std::string>& DevicePartsKeys();

}  // namespace TalvexSim
