#include "tools/sim/input/DeviceProfile.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "tools/sim/base/InputError.h"
#include "tools/sim/input/DeviceProfiles.h"
#include "tools/sim/input/Scenario.h"

namespace TalvexSim {
namespace {

constexpr const char* kNodes[] = {"die", "skin"};

std::string indexed(const std::string& path, Json::ArrayIndex index) {
    return path + "[" + std::to_string(index) + "]";
}

std::vector<OperatingPoint> readPoints(const JsonDocument& document, const Json::Value& value,
                                       const std::string& path) {
    const Json::Value& points = ExpectArray(document, value, path);
    if (points.empty()) document.Fail(value, path, "a domain needs at least one operating point");
    std::vector<OperatingPoint> read;
    for (Json::ArrayIndex i = 0; i < points.size(); ++i) {
        const std::string at = indexed(path, i);
        const Json::Value& pair = ExpectArray(document, points[i], at);
        if (pair.size() != 2) document.Fail(pair, at, "expected [MHz, V]");
        OperatingPoint point;
        point.frequency_MHz = ExpectNumber(document, pair[0], at + "[0]", 1.0, 100000.0);
        point.voltage_V = ExpectNumber(document, pair[1], at + "[1]", 0.1, 5.0);
        if (!read.empty() && point.frequency_MHz <= read.back().frequency_MHz) {
            document.Fail(pair, at, "operating points must ascend in frequency, each once");
        }
        read.push_back(point);
    }
    return read;
}

ClockDomainParams readDomain(const JsonDocument& document, const Json::Value& value,
                             const std::string& path) {
    ObjectReader domain(
        document, value, path,
        {"name", "cores", "dynamic_power_coefficient", "static_power_w", "rate_limit_s", "points"});
    ClockDomainParams params;
    params.name = domain.String("name");
    params.cores = domain.Integer("cores", 1, 64, params.cores);
    params.dynamicPowerCoefficient = domain.Number("dynamic_power_coefficient", 0.0, 1e6);
    params.staticPower_W = domain.Number("static_power_w", 0.0, 100.0, params.staticPower_W);
    params.rateLimit_s = domain.Number("rate_limit_s", 0.0, 10.0, params.rateLimit_s);
    params.points = readPoints(document, domain.Member("points"), domain.PathOf("points"));
    return params;
}

std::vector<ClockDomainParams> readDomains(const JsonDocument& document, const Json::Value& value,
                                           const std::string& path) {
    const Json::Value& list = ExpectArray(document, value, path);
    if (list.empty()) document.Fail(value, path, "a device needs at least one clock domain");
    std::vector<ClockDomainParams> domains;
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
        domains.push_back(readDomain(document, list[i], indexed(path, i)));
        for (size_t j = 0; j + 1 < domains.size(); ++j) {
            if (domains[j].name == domains.back().name) {
                document.Fail(list[i], indexed(path, i), "domain '" + domains[j].name + "' twice");
            }
        }
    }
    return domains;
}

ThermalNodeParams readNode(const JsonDocument& document, const Json::Value& value,
                           const std::string& path, ThermalNodeParams node) {
    ObjectReader reader(document, value, path, {"capacity_j_per_c", "resistance_c_per_w"});
    node.capacity_JPerC = reader.Number("capacity_j_per_c", 0.001, 1e6, node.capacity_JPerC);
    node.resistance_CPerW =
        reader.Number("resistance_c_per_w", 0.001, 1000.0, node.resistance_CPerW);
    return node;
}

// A name among a fixed few, or a refusal that lists them.
std::string oneOf(const JsonDocument& document, const Json::Value& value, const std::string& path,
                  const std::vector<std::string>& names, const char* what) {
    std::string name = ExpectString(document, value, path);
    if (std::find(names.begin(), names.end(), name) != names.end()) return name;
    std::string list;
    for (const std::string& known : names) list += (list.empty() ? "" : ", ") + known;
    document.Fail(value, path, "'" + name + "' is not " + what + " (" + list + ")");
}

std::vector<std::string> nodeNames() { return {std::begin(kNodes), std::end(kNodes)}; }

std::vector<std::string> domainNames(const DevicePartsParams& parts) {
    std::vector<std::string> names;
    for (const ClockDomainParams& domain : parts.domains) names.push_back(domain.name);
    return names;
}

CeilingRule readRule(const JsonDocument& document, const Json::Value& value,
                     const std::string& path, const DevicePartsParams& parts) {
    ObjectReader rule(
        document, value, path,
        {"sensor", "sample_period_s", "set_point_c", "clear_point_c", "domain", "limit_mhz"});
    CeilingRule read;
    read.sensor = oneOf(document, rule.Member("sensor"), rule.PathOf("sensor"), nodeNames(),
                        "a thermal node");
    read.samplePeriod_s = rule.Number("sample_period_s", 0.01, 600.0, read.samplePeriod_s);
    read.setPoint_C = rule.Number("set_point_c", -40.0, 150.0);
    read.clearPoint_C = rule.Number("clear_point_c", -40.0, read.setPoint_C);
    read.domain = oneOf(document, rule.Member("domain"), rule.PathOf("domain"), domainNames(parts),
                        "a clock domain");
    read.limit_MHz = rule.Number("limit_mhz", 0.0, 100000.0);
    return read;
}

MonitorLevel readLevel(const JsonDocument& document, const Json::Value& value,
                       const std::string& path, const DevicePartsParams& parts) {
    ObjectReader level(document, value, path, {"threshold_c", "clear_c", "ceilings_mhz"});
    MonitorLevel read;
    read.threshold_C = level.Number("threshold_c", -40.0, 150.0);
    read.clear_C = level.Number("clear_c", -40.0, read.threshold_C);
    const Json::Value& ceilings = level.Member("ceilings_mhz");
    const std::string at = level.PathOf("ceilings_mhz");
    if (!ceilings.isObject()) document.Fail(ceilings, at, "expected an object of MHz by domain");
    for (auto it = ceilings.begin(); it != ceilings.end(); ++it) {
        const std::string domain = it.name();
        oneOf(document, Json::Value(domain), at, domainNames(parts), "a clock domain");
        read.ceilings_MHz.emplace_back(
            domain, ExpectNumber(document, *it, at + "." + domain, 0.0, 100000.0));
    }
    return read;
}

CeilingsParams readCeilings(const JsonDocument& document, const Json::Value& value,
                            const std::string& path, const DevicePartsParams& parts) {
    ObjectReader reader(document, value, path, {"rules", "monitor"});
    CeilingsParams params = parts.ceilings;
    if (reader.Has("rules")) {
        params.rules.clear();
        const std::string at = reader.PathOf("rules");
        const Json::Value& rules = ExpectArray(document, reader.Member("rules"), at);
        for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
            params.rules.push_back(readRule(document, rules[i], indexed(at, i), parts));
        }
    }
    if (!reader.Has("monitor")) return params;
    ObjectReader monitor(document, reader.Member("monitor"), reader.PathOf("monitor"),
                         {"sensor", "period_s", "levels"});
    params.monitorSensor = oneOf(document, monitor.Member("sensor"), monitor.PathOf("sensor"),
                                 nodeNames(), "a thermal node");
    params.monitorPeriod_s = monitor.Number("period_s", 0.01, 600.0, params.monitorPeriod_s);
    params.levels.clear();
    const std::string at = monitor.PathOf("levels");
    const Json::Value& levels = ExpectArray(document, monitor.Member("levels"), at);
    for (Json::ArrayIndex i = 0; i < levels.size(); ++i) {
        params.levels.push_back(readLevel(document, levels[i], indexed(at, i), parts));
        if (i > 0 && params.levels[i].threshold_C <= params.levels[i - 1].threshold_C) {
            document.Fail(levels[i], indexed(at, i), "levels must ascend in threshold");
        }
    }
    return params;
}

PowerAllocatorParams readPowerAllocator(const JsonDocument& document, const Json::Value& value,
                                        const std::string& path, const DevicePartsParams& parts) {
    ObjectReader reader(
        document, value, path,
        {"sensor", "poll_period_s", "switch_on_c", "control_c", "sustainable_power_w", "k_po",
         "k_pu", "k_i", "k_d", "integral_cutoff_c", "domains"});
    PowerAllocatorParams params = parts.powerAllocator;
    if (reader.Has("sensor")) {
        params.sensor = oneOf(document, reader.Member("sensor"), reader.PathOf("sensor"),
                              nodeNames(), "a thermal node");
    }
    params.pollPeriod_s = reader.Number("poll_period_s", 0.01, 600.0, params.pollPeriod_s);
    params.switchOn_C = reader.Number("switch_on_c", -40.0, 150.0, params.switchOn_C);
    params.control_C = reader.Number("control_c", params.switchOn_C, 150.0, params.control_C);
    params.sustainablePower_W =
        reader.Number("sustainable_power_w", 0.0, 1000.0, params.sustainablePower_W);
    params.kPo = reader.Number("k_po", 0.0, 1000.0, params.kPo);
    params.kPu = reader.Number("k_pu", 0.0, 1000.0, params.kPu);
    params.kI = reader.Number("k_i", 0.0, 1000.0, params.kI);
    params.kD = reader.Number("k_d", 0.0, 1000.0, params.kD);
    params.integralCutoff_C =
        reader.Number("integral_cutoff_c", 0.0, 100.0, params.integralCutoff_C);
    if (reader.Has("domains")) {
        params.domains.clear();
        const std::string at = reader.PathOf("domains");
        const Json::Value& names = ExpectArray(document, reader.Member("domains"), at);
        for (Json::ArrayIndex i = 0; i < names.size(); ++i) {
            params.domains.push_back(
                oneOf(document, names[i], indexed(at, i), domainNames(parts), "a clock domain"));
        }
    }
    return params;
}

ThermalPolicyKind readPolicy(const JsonDocument& document, const Json::Value& value,
                             const std::string& path) {
    const std::string name = oneOf(
        document, value, path, {"step-wise", "ceilings", "power-allocator"}, "a thermal policy");
    if (name == "ceilings") return ThermalPolicyKind::Ceilings;
    if (name == "power-allocator") return ThermalPolicyKind::PowerAllocator;
    return ThermalPolicyKind::StepWise;
}

}  // namespace

const std::vector<std::string>& DevicePartsKeys() {
    static const std::vector<std::string> keys = {
        "domains", "die", "skin", "host_sensor", "thermal_policy", "ceilings", "power_allocator"};
    return keys;
}

DevicePartsParams ReadDeviceParts(const JsonDocument& document, const Json::Value& object,
                                  const std::string& path, DevicePartsParams base) {
    ObjectReader reader(document, object, path,
                        {"name", "description", "sources", "domains", "die", "skin", "host_sensor",
                         "thermal_policy", "ceilings", "power_allocator"});
    DevicePartsParams parts = std::move(base);
    if (reader.Has("domains")) {
        parts.domains = readDomains(document, reader.Member("domains"), reader.PathOf("domains"));
    }
    if (reader.Has("die")) {
        parts.die = readNode(document, reader.Member("die"), reader.PathOf("die"), parts.die);
    }
    if (reader.Has("skin")) {
        parts.skin = readNode(document, reader.Member("skin"), reader.PathOf("skin"), parts.skin);
    }
    if (reader.Has("host_sensor")) {
        parts.hostSensor = oneOf(document, reader.Member("host_sensor"),
                                 reader.PathOf("host_sensor"), nodeNames(), "a thermal node");
    }
    if (reader.Has("thermal_policy")) {
        parts.policy =
            readPolicy(document, reader.Member("thermal_policy"), reader.PathOf("thermal_policy"));
    }
    if (reader.Has("ceilings")) {
        parts.ceilings =
            readCeilings(document, reader.Member("ceilings"), reader.PathOf("ceilings"), parts);
    }
    if (reader.Has("power_allocator")) {
        parts.powerAllocator = readPowerAllocator(document, reader.Member("power_allocator"),
                                                  reader.PathOf("power_allocator"), parts);
    }
    return parts;
}

std::vector<std::string> DeviceProfileNames() {
    std::vector<std::string> names;
    for (const EmbeddedProfile& profile : EmbeddedDeviceProfiles()) names.push_back(profile.name);
    return names;
}

DevicePartsParams LoadDeviceProfile(const std::string& nameOrPath, const std::string& where) {
    for (const EmbeddedProfile& profile : EmbeddedDeviceProfiles()) {
        if (nameOrPath == profile.name) {
            const JsonDocument document(profile.text, "<device profile " + nameOrPath + ">");
            DevicePartsParams parts = ReadDeviceParts(document, document.Root(), "", {});
            parts.profile = nameOrPath;
            return parts;
        }
    }
    std::error_code error;
    if (!std::filesystem::is_regular_file(nameOrPath, error)) {
        std::string names;
        for (const std::string& name : DeviceProfileNames()) {
            names += (names.empty() ? "" : ", ") + name;
        }
        throw InputError(where + ": device.profile: '" + nameOrPath +
                         "' is neither a device profile (" + names + ") nor a file");
    }
    const JsonDocument document(ReadTextFile(nameOrPath), nameOrPath);
    DevicePartsParams parts = ReadDeviceParts(document, document.Root(), "", {});
    parts.profile = nameOrPath;
    return parts;
}

}  // namespace TalvexSim
